#include "RkExtractItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcSelection.h"
#include "RkExtractPoolGroup.h"
#include "RkOutputFolder.h"
#include "RkPipeThread.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

namespace RkArcLib {

using RkLib::RkErrorInfo;
using RkLib::RkString;

namespace {

constexpr uint32_t kLevelInfo = 0;
constexpr uint16_t kUnixHost = 3;
// A local header's fixed part; its name and extra are guessed from the central record's.
constexpr uint64_t kLocalFixedBytes = 30;
// The item's reader: one read brings in the header and the data of a small entry.
constexpr size_t kReaderBytes = 0x40000;

RkString Hex8(uint32_t value) { return RkLib::RkFormatUnsigned(u"%08llX", value); }
RkString Decimal(uint64_t value) { return RkLib::RkFormatUnsigned(u"%llu", value); }

// The name under which an entry is written: its own, or its last part when paths are dropped.
RkString OutputName(const RkZipEntry& entry, bool junkPaths) {
  RkString name = entry.name;
  while (!name.empty() && (name.back() == u'\\' || name.back() == u'/')) name.resize(name.size() - 1);
  if (!junkPaths) return name;
  const size_t cut = name.findLastOf(u"\\/");
  return cut == RkString::npos ? name : name.substr(cut + 1);
}

}  // namespace

RkExtractItem::RkExtractItem(RkExtractPoolGroup& pool) : pool_(pool), reader_(pool.archive.SharedSpan(), kReaderBytes) {
  // Made now, never during the run: an end of the run may interrupt it from another thread.
  try {
    worker_ = boost::thread([this] { Work(); });
  } catch (...) {
    throw RkLib::RkFatalError(RkPipeLib::kPipeThreadFailed);
  }
}

RkExtractItem::~RkExtractItem() {
  {
    boost::lock_guard<boost::mutex> lock(workLock_);
    workQuit_ = true;
  }
  workWake_.notify_all();
  Abort();
  if (worker_.joinable()) {
    boost::this_thread::disable_interruption keepWaiting;
    worker_.join();
  }
  RemoveOutput();
}

void RkExtractItem::SetEntry(int64_t index, bool lastOfRun) {
  index_ = index;
  entry_ = const_cast<RkZipEntry*>(pool_.archive.Entry(index));
  lastOfRun_ = lastOfRun;
}

void RkExtractItem::Report(uint32_t level, uint32_t messageId, std::initializer_list<RkString> more) {
  std::vector<RkString> args{entry_->name};
  args.insert(args.end(), more.begin(), more.end());
  RkString text;
  switch (args.size()) {
    case 1: text = RkZipFile::MessageText(messageId, {args[0]}); break;
    case 2: text = RkZipFile::MessageText(messageId, {args[0], args[1]}); break;
    default: text = RkZipFile::MessageText(messageId, {args[0], args[1], args[2]}); break;
  }
  pool_.archive.Report(level, text);
}

void RkExtractItem::Prepare() {
  isFolder_ = entry_->IsDirectory() || entry_->IsLabel();
  if (pool_.testOnly || pool_.selection.toMemory) return;
  const RkString name = OutputName(*entry_, pool_.selection.JunkPaths());
  const auto cannotMake = [&] {
    Report(RkLib::kSeverityFatal, kZipMsgOutput);
    throw RkLib::RkFatalError(kZipErrOutput);
  };
  if (isFolder_ && (pool_.selection.JunkPaths() || name.empty())) {
    skipped = true;
    return;
  }
  switch (pool_.ClaimName(name, isFolder_)) {
    case kZipErrSameName:
      Report(RkLib::kSeverityFatal, kZipMsgSameName);
      throw RkLib::RkFatalError(kZipErrSameName);
    case kZipErrOutput:
      cannotMake();
      break;
    default:
      break;
  }
  if (isFolder_) {
    if (pool_.output.MakeFolder(name) != 0) cannotMake();
    return;
  }
  int systemError = 0;
  std::string last;
  std::shared_ptr<RkFolderHandle> folder = pool_.output.ParentOf(name, last, systemError);
  if (!folder) cannotMake();
  struct stat st;
  replace_ = ::fstatat(folder->fd(), last.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
  if (replace_) {
    RkArcItem item;
    RkState state;
    pool_.archive.GetItem(index_, item, state);
    const RkLib::FidString path = RkLib::FidString(pool_.output.Base()).Append(name);
    const int answer = pool_.archive.AskHost([&](RkArcCallback& host) { return host.AskFileExists(path, item); });
    if (answer != kArcExistsReplace && answer != kArcExistsReplaceAll) {
      skipped = true;
      return;
    }
    // Only a plain file is replaced: a link or a folder standing there is the user's, not ours.
    if (!S_ISREG(st.st_mode)) cannotMake();
  }
  folder_ = std::move(folder);
  fileName_ = std::move(last);
}

void RkExtractItem::Announce() {
  const RkString text =
      RkZipFile::MessageText(pool_.testOnly ? kZipMsgTesting : kZipMsgExtracting, {entry_->name});
  pool_.archive.AskHost([&](RkArcCallback& host) { host.Progress(kArcProgressStatus, text); });
}

bool RkExtractItem::Open() {
  if (isFolder_) return false;
  const RkZipEntryDetail* detail = entry_->detail();
  const RkZipEntry* data = detail && detail->target ? detail->target : entry_;
  reader_.Reset();
  reader_.SetReadAhead(kLocalFixedBytes + 2 * 0x10000 + data->compressedSize64);
  pool_.archive.ReadLocalHeader(*entry_, reader_);
  reader_.SetReadAhead(data->compressedSize64);

  if (entry_->IsEncrypted()) {
    // Decryption comes with its own work; until then such an entry is refused on its own.
    Report(RkLib::kSeverityWarning, kZipMsgNoPassword);
    throw RkLib::RkWarning(kZipErrNoPassword);
  }
  if (!RkExtractPipe::Decodes(data->EffectiveMethod())) {
    Report(RkLib::kSeveritySevere, kZipMsgNoDecoder, {RkString::FromAscii(RkZipEntry::MethodName(data->EffectiveMethod()))});
    throw RkLib::RkSevereError(RkPipeLib::kPipeUnsupported);
  }
  RkExtractTarget target = kExtractToTest;
  if (!pool_.testOnly) {
    target = pool_.selection.toMemory ? kExtractToMemory : kExtractToFile;
    // The file is made by the worker: making files is most of an extraction's system time, and
    // the workers of several items make theirs at once.
    openFile_ = target == kExtractToFile;
    if (openFile_) pipe_.FileOut().SetFile(&file_);
  }
  pipe_.SetUp(*entry_, *data, reader_, target);
  pipe_.Crc().SetProgress(&pool_.progress);
  // Small data runs through the nodes one after the other: no hand-over between threads.
  const uint64_t room = RkPipeLib::RkStreamSettings::Instance().pipeBufferSize;
  inline_ = data->compressedSize64 < room && entry_->originalSize64 < room;
  StartPipe();
  return false;
}

void RkExtractItem::StartPipe() {
  {
    boost::lock_guard<boost::mutex> lock(workLock_);
    // A worker that the end of the run has stopped takes no more work.
    if (workerGone_) {
      pipeError_ = RkErrorInfo(RkPipeLib::kPipeInterrupted, RkLib::kSeverityFatal);
      return;
    }
    pipeError_ = RkErrorInfo();
    workQueued_ = true;
  }
  workWake_.notify_all();
}

void RkExtractItem::Work() noexcept {
  boost::unique_lock<boost::mutex> lock(workLock_);
  for (;;) {
    try {
      while (!workQueued_ && !workQuit_) workWake_.wait(lock);
    } catch (const boost::thread_interrupted&) {
      break;  // the run has been ended
    }
    if (workQuit_) break;
    workQueued_ = false;
    workRunning_ = true;
    lock.unlock();
    RkErrorInfo outcome;
    try {
      if (openFile_ && !OpenOutput()) {
        outcome = RkErrorInfo(kZipErrOutput, RkLib::kSeverityFatal);
      } else if (inline_) {
        pipe_.RunInline(pool_.Poller());
      } else {
        pipe_.Run(pool_.Poller());
      }
    } catch (const RkLib::RkError& e) {
      outcome = RkErrorInfo(e);
    } catch (const boost::thread_interrupted&) {
      outcome = RkErrorInfo(RkPipeLib::kPipeInterrupted, RkLib::kSeverityFatal);
    } catch (...) {
      outcome = RkErrorInfo(RkPipeLib::kPipeUnknownException, RkLib::kSeverityFatal);
    }
    lock.lock();
    pipeError_ = outcome;
    workRunning_ = false;
    workWake_.notify_all();
  }
  // Whoever waits for this worker's entry learns that it will not come.
  if (workQueued_ || workRunning_) pipeError_ = RkErrorInfo(RkPipeLib::kPipeInterrupted, RkLib::kSeverityFatal);
  workQueued_ = workRunning_ = false;
  workerGone_ = true;
  workWake_.notify_all();
}

bool RkExtractItem::OpenOutput() {
  const RkLib::FidString path = RkLib::FidString(pool_.output.Base()).Append(entry_->name);
  // A file being replaced goes first and the new one is made afresh, so that nothing is ever
  // written through what stood there: not a link, nor a second name of a file elsewhere.
  if (replace_ && ::unlinkat(folder_->fd(), fileName_.c_str(), 0) != 0 && errno != ENOENT) return false;
  created_ = file_.OpenAt(folder_->fd(), fileName_.c_str(), "wxb", path);
  return created_;
}

void RkExtractItem::WaitPipe() {
  boost::this_thread::disable_interruption keepWaiting;
  boost::unique_lock<boost::mutex> lock(workLock_);
  while (workQueued_ || workRunning_) workWake_.wait(lock);
}

void RkExtractItem::Abort() {
  if (worker_.joinable()) worker_.interrupt();
}

void RkExtractItem::CloseOutput() {
  if (!file_.IsOpen()) return;
  file_.Close();
}

void RkExtractItem::RemoveOutput() {
  if (file_.IsOpen()) file_.Close();
  // Only what this item made: a file that stood there and was refused stays.
  if (created_ && folder_) ::unlinkat(folder_->fd(), fileName_.c_str(), 0);
  created_ = false;
  folder_.reset();
}

void RkExtractItem::Fail(RkErrorInfo failure) {
  RemoveOutput();
  // The host's cancel, seen by a pipe, is the run's cancel.
  if (failure.code() == RkPipeLib::kPipeCancelled || failure.code() == RkPipeLib::kPipeInterrupted)
    failure = RkErrorInfo(kArcCancelled, RkLib::kSeverityFatal);
  if (failure.severity() >= RkLib::kSeverityFatal) failure.Throw();
  pool_.NoteItemError(failure);
}

void RkExtractItem::CheckData() {
  const RkZipEntryDetail* detail = entry_->detail();
  const RkZipEntry* data = detail && detail->target ? detail->target : entry_;
  const uint64_t written = pipe_.Output().Written();
  if (!pool_.selection.noCrcCheck) {
    const RkAesEncryption* aes = entry_->Aes();
    const bool hasCrc = !(entry_->IsEncrypted() && aes && aes->version > 1);
    const uint32_t crc = pipe_.Crc().GetCrc();
    if (hasCrc && crc != entry_->crc) {
      Report(RkLib::kSeveritySevere, kZipMsgCrc, {Hex8(entry_->crc), Hex8(crc)});
      if (entry_->IsEncrypted()) Report(RkLib::kSeverityWarning, kZipMsgWrongPassword);
      throw RkLib::RkSevereError(kZipErrCrc);
    }
  }
  if (written != data->originalSize64) {
    Report(RkLib::kSeveritySevere, kZipMsgSizeMismatch, {Decimal(data->originalSize64), Decimal(written)});
    throw RkLib::RkSevereError(kZipErrSizeMismatch);
  }
}

void RkExtractItem::Finish() {
  WaitPipe();
  if (skipped) return;
  RkErrorInfo failure = error.severity() != 0 ? error : pipeError_;
  // The worker could not make the file (steps before it have reported their own failures).
  if (error.severity() == 0 && failure.code() == kZipErrOutput && failure.severity() == RkLib::kSeverityFatal)
    Report(RkLib::kSeverityFatal, kZipMsgOutput);
  if (failure.severity() == 0 && !isFolder_) {
    try {
      CheckData();
    } catch (const RkLib::RkError& e) {
      failure = RkErrorInfo(e);
    }
  } else if (failure.severity() != 0 &&
             (failure.code() == kZipErrSizeMismatch || failure.code() == RkPipeLib::kPipeWouldWait)) {
    // Without threads, a decoder that has filled the pipe's buffers has already given more than
    // the small size the entry declares.
    failure = RkErrorInfo(kZipErrSizeMismatch, RkLib::kSeveritySevere);
    // The output stopped the pipe at the declared size.
    const RkZipEntryDetail* detail = entry_->detail();
    const RkZipEntry* data = detail && detail->target ? detail->target : entry_;
    Report(RkLib::kSeveritySevere, kZipMsgSizeMismatch,
           {Decimal(data->originalSize64), RkString(u"more")});
  } else if (failure.severity() != 0 && failure.code() == RkPipeLib::kPipeUnsupported) {
    const RkZipEntryDetail* detail = entry_->detail();
    const RkZipEntry* data = detail && detail->target ? detail->target : entry_;
    Report(RkLib::kSeveritySevere, kZipMsgNoDecoder,
           {RkString::FromAscii(RkZipEntry::MethodName(data->EffectiveMethod()))});
  } else if (failure.severity() != 0 && failure.code() >= RkPipeLib::kPipeOutOfMemory &&
             failure.code() <= RkPipeLib::kPipeUnknownException && failure.code() != RkPipeLib::kPipeCancelled &&
             failure.code() != RkPipeLib::kPipeInterrupted) {
    Report(RkLib::kSeveritySevere, kZipMsgDataError, {Decimal(failure.code())});
  }
  if (failure.severity() != 0) return Fail(failure);

  if (file_.IsOpen()) {
    file_.SetTimeStamp(entry_->Modified());
    const uint32_t mode = entry_->externalAttributes >> 16;
    // Only the permission bits, and only of a plain file: a link's text is written as a file.
    if (entry_->HostSystem() == kUnixHost && S_ISREG(mode)) ::fchmod(file_.Handle(), mode & 0777);
    CloseOutput();
  }
  if (pool_.selection.toMemory && !pool_.testOnly && !isFolder_) pool_.archive.KeepMemoryOutput(std::move(pipe_.MemoryOut().Data()));
  if (pool_.testOnly) {
    Report(kLevelInfo, kZipMsgTestedOk);
    if (lastOfRun_) pool_.archive.Report(kLevelInfo, RkZipFile::MessageText(kZipMsgTestsDone, {}));
  }
  if (!pool_.archive.AskHost([](RkArcCallback& host) { return host.KeepGoing(); }))
    throw RkLib::RkFatalError(kArcCancelled);
}

void RkExtractItem::Reset() {
  CloseOutput();
  folder_.reset();
  fileName_.clear();
  entry_ = nullptr;
  index_ = -1;
  isFolder_ = false;
  openFile_ = false;
  replace_ = false;
  created_ = false;
  pipeError_ = RkErrorInfo();
}

}  // namespace RkArcLib
