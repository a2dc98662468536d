#include "RkZipFile.h"

#include <algorithm>
#include <initializer_list>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcResources.h"
#include "RkArchiveType.h"
#include "RkError.h"
#include "RkFid.h"
#include "RkFileOps.h"
#include "RkSettings.h"
#include "RkSpanIn.h"
#include "RkZipCharset.h"
#include "RkZipDirReader.h"
#include "RkZipEntry.h"
#include "RkZipExtra.h"

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkFatalError;
using RkLib::RkString;

namespace {

constexpr uint16_t kSpanBufferSize = 32768;
constexpr uint16_t kSpanShareMode = 64;
constexpr size_t kMaxNameLength = 32767;
constexpr size_t kCutNameLength = 32766;
constexpr size_t kLongNameLength = 256;
constexpr size_t kMaxPartLength = 255;
constexpr size_t kMaxDroppedCharacters = 32511;
constexpr size_t kDelayedShown = 2;

constexpr auto IsSeparator = &FidString::IsSeparator;
bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }

// The file system holds a path whose every part is at most 255 characters: the length of the
// longest beginning of `name` that it holds.
size_t FittingLength(std::u16string_view name) {
  size_t run = 0;
  for (size_t i = 0; i < name.size(); ++i) {
    run = IsSeparator(name[i]) ? 0 : run + 1;
    if (run > kMaxPartLength) return i;
  }
  return name.size();
}

// The policy that tells how text without a UTF-8 mark is read, machine-wide.
int CharsetPolicy() {
  const auto value = RkLib::RkSettingsStore::Read(
      RkLib::RkHive::LocalMachine, u"SOFTWARE\\Rakona Computing\\Rakona\\Policies", u"CharsetDetection");
  if (!value || value->type != RkLib::RkRegValue::kString) return kZipCharsetAuto;
  if (value->text.equalsNoCase(u"OEM")) return kZipCharsetOem;
  if (value->text.equalsNoCase(u"ANSI")) return kZipCharsetAnsi;
  if (value->text.equalsNoCase(u"UTF8")) return kZipCharsetUtf8;
  return kZipCharsetAuto;
}

RkString Number(long long value) { return RkLib::RkFormatSigned(u"%lld", value); }

uint32_t EncryptionOf(const RkZipEntry& entry) {
  if (!entry.IsEncrypted()) return kZipEncryptionNone;
  if (const RkAesEncryption* aes = entry.Aes()) {
    if (aes->version == 3) return kZipEncryptionAe3;
    if (aes->keyBits == 128) return kZipEncryptionAes128;
    if (aes->keyBits == 192) return kZipEncryptionAes192;
    return kZipEncryptionAes256;
  }
  if (entry.Pkware() || (entry.flags & kZipFlagStrongEncryption)) return kZipEncryptionStrong;
  if (entry.method == kZipMethodAes || entry.UnknownEncryption()) return kZipEncryptionUnknown;
  return kZipEncryptionTraditional;
}

uint64_t HeaderSize(const RkZipEntry& entry) {
  uint64_t size = uint64_t{entry.nameLength} + entry.extraLength + 30;
  if (entry.flags & kZipFlagDescriptor) size += entry.hasZip64 ? 24 : 16;
  return size;
}

}  // namespace

RkString RkZipFile::MessageText(uint32_t id, std::initializer_list<RkString> args) {
  const RkString text = RkArcResourceText(id);
  RkString out;
  const std::u16string_view v = text.view();
  for (size_t i = 0; i < v.size(); ++i) {
    if (v[i] == u'%' && i + 1 < v.size() && v[i + 1] >= u'1' && v[i + 1] <= u'9') {
      const size_t n = static_cast<size_t>(v[i + 1] - u'1');
      if (n < args.size()) out.append(std::data(args)[n].view());
      ++i;
    } else {
      out.append(v[i]);
    }
  }
  return out;
}

RkZipFile::RkZipFile(const FidString& fileName) : RkArchive(fileName), charsetMode_(CharsetPolicy()) {}

RkZipFile::~RkZipFile() = default;

int RkZipFile::GetType() const { return kArcTypeZip; }

// ---- Messages.

void RkZipFile::Report(uint32_t level, const RkString& text) {
  if (!AskHost([&](RkArcCallback& host) { return host.ReportMessage(level, text); }))
    throw RkFatalError(kArcCancelled);
}

void RkZipFile::ReportReader(uint32_t level, uint32_t messageId, int64_t number) {
  switch (messageId) {
    case kZipMsgNotArchive:
      return Report(level, MessageText(messageId, {GetFileName()}));
    case kZipMsgFirstNotCentral:
    case kZipMsgNotCentral:
    case kZipMsgShortRecord:
    case kZipMsgBadRecord:
    case kZipMsgTooManyRecords: {
      // Where in the file, so that the damage can be found.
      const RkZipLocation& at = reader_->RecordLocation();
      return Report(level, MessageText(messageId, {Number(number < 0 ? 1 : number), Number(static_cast<long long>(at.offset))}));
    }
    case kZipMsgNewerVersion:
      return Report(level, MessageText(messageId, {Number(number / 10), Number(number % 10)}));
    default:
      return Report(level, MessageText(messageId, {}));
  }
}

void RkZipFile::Delay(uint32_t messageId, const RkString& name) {
  damaged_ = true;
  delayed_.push_back({messageId, name});
}

void RkZipFile::FlushMessages() {
  for (size_t i = 0; i < delayed_.size() && i < kDelayedShown; ++i) {
    const DelayedMessage& m = delayed_[i];
    Report(RkLib::kSeverityWarning, MessageText(m.id, {m.name}));
  }
  if (delayed_.size() > kDelayedShown) {
    Report(RkLib::kSeverityWarning,
           MessageText(kZipMsgMoreChanged, {Number(static_cast<long long>(delayed_.size() - kDelayedShown))}));
  }
  delayed_.clear();
}

// ---- Load.

void RkZipFile::CloseFiles() {
  reader_.reset();
  if (spanIn_) spanIn_->Close();
}

bool RkZipFile::Unload() {
  entries_.clear();
  entries_.shrink_to_fit();
  {
    std::lock_guard<std::mutex> lock(nameOrderLock_);
    nameOrder_.clear();
    nameOrder_.shrink_to_fit();
    nameOrderBuilt_ = false;
  }
  referenceTargets_.clear();
  references_.clear();
  loaded_ = partial_ = encrypted_ = false;
  return true;
}

bool RkZipFile::Load(int64_t first, int64_t last, const RkString*, RkState& state) {
  state.Clear();
  loaded_ = false;
  damaged_ = false;
  delayed_.clear();
  bool ok = true;
  try {
    OpenAndLocate();
    ReadCentralDirectory(first, last);
    CheckReferences();
    FlushMessages();
  } catch (const RkLib::RkError& e) {
    state.Set(e);
    ok = false;
  }
  CloseFiles();
  if (state.IsFatalToLoad()) {
    Unload();
  } else {
    loaded_ = true;
  }
  return ok;
}

void RkZipFile::OpenAndLocate() {
  endRecord_ = RkZipEHdr();
  const FidString& path = GetFileName();
  RkLib::RkPathInfo info;
  if (RkLib::RkGetPathInfo(path, info, RkLib::RkLinks::kFollowed) != 0) {
    Report(RkLib::kSeverityWarning, MessageText(kZipMsgNoAttributes, {path}));
    throw RkLib::RkWarning(kArcNewOrEmpty);
  }
  if (info.kind == RkLib::RkPathKind::kFolder) {
    Report(RkLib::kSeverityFatal, MessageText(kZipMsgIsFolder, {path}));
    throw RkFatalError(kArcCannotOpen);
  }
  fileSize_ = info.size;
  if (fileSize_ == 0) {
    // Left as a new archive, with nothing in it.
    Unload();
    Report(RkLib::kSeverityWarning, MessageText(kZipMsgEmptyFile, {path}));
    throw RkLib::RkWarning(kArcNewOrEmpty);
  }
  if (!spanIn_) spanIn_ = std::make_shared<RkSpanIn>();
  spanIn_->Close();
  if (!spanIn_->Open(path, kSpanBufferSize, kSpanShareMode)) {
    Report(RkLib::kSeverityFatal, MessageText(kZipMsgCannotOpen, {path}));
    throw RkFatalError(kArcCannotOpen);
  }
  reader_ = std::make_unique<RkZipDirReader>(
      spanIn_, [this](uint32_t level, uint32_t id, int64_t number) { ReportReader(level, id, number); },
      charsetMode_);
  reader_->Locate();
  endRecord_ = reader_->EndRecord();
}

void RkZipFile::ReadCentralDirectory(int64_t first, int64_t last) {
  Unload();
  if (first < 0 && last < 0) return;  // the probe: the end records were enough
  const uint64_t count = endRecord_.entriesTotal;
  partial_ = false;
  reader_->Walk(first, last, [&](uint64_t index, const RkZipRecord& record) {
    if (entries_.empty()) entries_.resize(count);  // the reader has checked the count against the file
    ReadEntry(index, record);
    IndexEntry(index);
    if (entries_[index]->IsEncrypted()) encrypted_ = true;
  });
  if (entries_.size() != count) entries_.resize(count);
  const uint64_t from = first < 0 ? 0 : static_cast<uint64_t>(first);
  const uint64_t to = last < 0 ? count : static_cast<uint64_t>(last) + 1;
  partial_ = from > 0 || to < count;
}

void RkZipFile::ReadEntry(uint64_t index, const RkZipRecord& record) {
  auto entry = std::make_unique<RkZipEntry>(record.header);
  entry->central = record.location;
  entry->name = RkZipDecodeName(record.name, entry->versionMadeBy, entry->flags, charsetMode_);
  if (!record.comment.empty()) {
    RkZipEntryDetail& detail = entry->Detail();
    detail.rawComment.assign(record.comment);
    detail.comment = RkZipDecodeComment(RkZipTrimText(record.comment, ' '), charsetMode_);
  }
  if (!record.extra.empty()) RkExtra::ApplyRecords(record.extra, *entry, RkExtraContext{record.name, record.comment});
  bool shortened = false;
  bool stripped = false;
  entry->name = FixName(std::move(entry->name), shortened, stripped);
  if (shortened) Delay(kZipMsgNameShortened, entry->name);
  if (stripped) Delay(kZipMsgNameStripped, entry->name);
  entry->parsed = true;
  entries_[index] = std::move(entry);
}

void RkZipFile::IndexEntry(uint64_t index) {
  RkZipEntry& entry = *entries_[index];
  if (entry.brokenReference) {
    Delay(kZipMsgBrokenReference, entry.name);
    entry.brokenReference = false;
    entry.Detail().referenceId = {};
    return;
  }
  if (!entry.HasReference()) return;
  const ReferenceId& id = entry.detail()->referenceId;
  if (entry.method == kZipMethodDuplicate) {
    references_.emplace(id, index);
  } else {
    referenceTargets_.emplace(id, index);  // a second target of the same id keeps the first
  }
}

void RkZipFile::CheckReferences() {
  for (const auto& [id, index] : references_) {
    const auto target = referenceTargets_.find(id);
    RkZipEntry& entry = *entries_[index];
    if (target == referenceTargets_.end()) {
      Delay(kZipMsgDanglingReference, entry.name);
    } else {
      entry.Detail().target = entries_[target->second].get();
      entry.Detail().targetIndex = static_cast<int64_t>(target->second);
    }
  }
}

void RkZipFile::BuildNameOrder() const {
  nameOrder_.clear();
  nameOrder_.reserve(entries_.size());
  for (size_t i = 0; i < entries_.size(); ++i)
    if (entries_[i]) nameOrder_.push_back(static_cast<uint32_t>(i));
  const auto less = [this](uint32_t a, uint32_t b) {
    const int order = entries_[a]->name.compare(entries_[b]->name);
    return order < 0 || (order == 0 && a < b);
  };
  // Most writers store a folder tree in name order already: one pass proves it.
  if (!std::is_sorted(nameOrder_.begin(), nameOrder_.end(), less)) std::sort(nameOrder_.begin(), nameOrder_.end(), less);
}

// ---- Names.

namespace {

// A part that must go: empty (a root, or a doubled separator), "." or "..".
bool IsDroppedPart(std::u16string_view part) { return part.empty() || part == u"." || part == u".."; }

bool HasDrive(std::u16string_view name) {
  return name.size() >= 2 && name[1] == u':' &&
         ((name[0] >= u'A' && name[0] <= u'Z') || (name[0] >= u'a' && name[0] <= u'z'));
}

// Whether a drive, a root or a part that climbs or stands still is there; a trailing separator,
// which marks a folder, is not one of them.
bool NeedsStripping(std::u16string_view name) {
  if (HasDrive(name)) return true;
  size_t at = 0;
  for (;;) {
    size_t end = at;
    while (end < name.size() && !IsSeparator(name[end])) ++end;
    const bool last = end == name.size();
    const std::u16string_view part = name.substr(at, end - at);
    if (IsDroppedPart(part) && !(last && part.empty() && at != 0)) return true;
    if (last) return false;
    at = end + 1;
  }
}

}  // namespace

RkString RkZipFile::FixName(RkString name, bool& shortened, bool& stripped) {
  const size_t given = name.size();
  if (name.size() > kMaxNameLength) name.resize(kCutNameLength);
  if (name.size() > kLongNameLength) {
    const bool hasSeparator = std::any_of(name.view().begin(), name.view().end(), IsSeparator);
    if (hasSeparator) {
      // Characters go from the end until every part fits, but no more than the allowance.
      const size_t floor = name.size() > kMaxDroppedCharacters ? name.size() - kMaxDroppedCharacters : 0;
      name.resize(std::max(FittingLength(name.view()), floor));
    } else {
      name.resize(kMaxPartLength);
    }
    if (!name.empty() && IsHighSurrogate(name.back())) name.resize(name.size() - 1);
  }
  shortened = name.size() != given;  // shortening only ever cuts

  stripped = NeedsStripping(name.view());
  if (!stripped) {
    name.replaceAll(u'/', u'\\');
    return name;
  }
  // Drive, root and the parts that climb or stand still go; what remains is relative and stays
  // inside whatever folder it is extracted to.
  const std::u16string_view view = name.view();
  std::u16string fixed;
  fixed.reserve(view.size());
  size_t at = HasDrive(view) ? 2 : 0;
  for (;;) {
    size_t end = at;
    while (end < view.size() && !IsSeparator(view[end])) ++end;
    const bool last = end == view.size();
    const std::u16string_view part = view.substr(at, end - at);
    if (!IsDroppedPart(part)) {
      if (!fixed.empty()) fixed += u'\\';
      fixed += part;
    } else if (last && part.empty() && !fixed.empty()) {
      fixed += u'\\';  // the folder mark
    }
    if (last) break;
    at = end + 1;
  }
  return RkString(std::move(fixed));
}

// ---- Items.

const RkZipEntry* RkZipFile::Entry(int64_t index) const {
  if (index < 0 || static_cast<uint64_t>(index) >= entries_.size()) return nullptr;
  return entries_[static_cast<size_t>(index)].get();
}

int64_t RkZipFile::FindItem(const RkString& name, RkState& state) const {
  state.Clear();
  std::lock_guard<std::mutex> lock(nameOrderLock_);
  if (!nameOrderBuilt_) {
    BuildNameOrder();
    nameOrderBuilt_ = true;
  }
  const auto found = std::lower_bound(nameOrder_.begin(), nameOrder_.end(), name, [this](uint32_t i, const RkString& n) {
    return entries_[i]->name.compare(n) < 0;
  });
  if (found == nameOrder_.end() || entries_[*found]->name != name) {
    state.Set(kArcNameNotFound, RkLib::kSeveritySevere);
    return -1;
  }
  return *found;
}

bool RkZipFile::GetItem(int64_t index, RkArcItem& item, RkState& state) const {
  state.Clear();
  if (!loaded_) {
    state.Set(kArcNotLoaded, RkLib::kSeverityFatal);
    return false;
  }
  if (index < 0 || static_cast<uint64_t>(index) >= entries_.size()) {
    state.Set(kArcIndexOutOfRange, RkLib::kSeverityFatal);
    return false;
  }
  const RkZipEntry* e = entries_[static_cast<size_t>(index)].get();
  if (!e) {
    state.Set(kArcSlotNotLoaded, RkLib::kSeverityFatal);
    return false;
  }
  item = RkArcItem();
  item.name = e->name;
  if (const RkExtTimeStamps* times = e->ExtTimeStamps()) {
    item.modified = times->modified;
    item.created = times->created;
  } else {
    item.modified = e->Modified();
  }
  const uint8_t dos = static_cast<uint8_t>(e->externalAttributes);
  item.attributes.raw = dos;
  item.attributes.readOnly = dos & 0x01;
  item.attributes.hidden = dos & 0x02;
  item.attributes.system = dos & 0x04;
  item.attributes.archive = dos & 0x20;
  item.attributes.directory = e->IsDirectory();
  item.attributes.symbolicLink = e->IsSymbolicLink();
  item.originalSize = e->originalSize64;
  item.compressedSize = e->compressedSize64;
  item.offset = e->localOffset64;
  item.headerSize = HeaderSize(*e);
  item.crc = e->crc;
  item.comment = e->Comment();
  item.method = RkArcMethodFromZip(e->EffectiveMethod());
  item.encryption = EncryptionOf(*e);
  item.hostSystem = e->HostSystem();
  item.hostVersion = static_cast<uint8_t>(e->versionMadeBy);
  item.neededSystem = static_cast<uint8_t>(e->versionNeeded >> 8);
  item.neededVersion = static_cast<uint8_t>(e->versionNeeded);
  item.startPart = e->startPart32;
  item.isLabel = e->IsLabel();
  if (e->method == kZipMethodDuplicate && e->detail() && e->detail()->targetIndex >= 0) {
    item.duplicateOf = e->detail()->targetIndex;
  }
  return true;
}

bool RkZipFile::GetComment(RkString& comment, RkState& state) {
  state.Clear();
  comment = endRecord_.comment;
  return true;
}

bool RkZipFile::GetItemComment(int64_t index, RkString& comment, RkState& state) {
  RkArcItem item;
  if (!GetItem(index, item, state)) return false;
  comment = item.comment;
  return true;
}

}  // namespace RkArcLib
