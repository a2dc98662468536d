// RkZipFile::Extract and Test: the selected entries leave through pipes, several at once, in the
// order they lie in the file.
#include <algorithm>
#include <thread>

#include "RkArcCallback.h"
#include "RkArcSelection.h"
#include "RkArcTypeSupportInfo.h"
#include "RkArchiveType.h"
#include "RkExtractItem.h"
#include "RkExtractPoolGroup.h"
#include "RkSettings.h"
#include "RkSpanIn.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

namespace RkArcLib {

using RkLib::RkErrorInfo;

namespace {

constexpr uint32_t kPollEvery = 1000;

// MaxExtractPipes from the program's settings: twice the processors unless it says 1 to 99.
uint32_t PipeCount() {
  const uint32_t processors = std::max(1u, std::thread::hardware_concurrency());
  const int32_t setting = RkLib::readSettingInt(u"Rakona", u"MaxExtractPipes", 0, u"rakona32.ini");
  return setting >= 1 && setting <= 99 ? static_cast<uint32_t>(setting) : 2 * processors;
}

}  // namespace

std::shared_ptr<const RkArcSupportInfo> RkZipFile::GetSupportInfo() const {
  return RkArcTypeSupportInfo::ForType(kArcTypeZip);
}

std::shared_ptr<RkSpanIn> RkZipFile::SharedSpan() {
  if (!spanIn_) spanIn_ = std::make_shared<RkSpanIn>();
  if (!spanIn_->IsOpen()) {
    if (!spanIn_->Open(GetFileName(), 32768, 64)) return nullptr;
    // The named file is the last part: the data of entries on the parts before it cannot be
    // reached through it, and such entries fail with 11 rather than read another part's offsets.
    const auto last = static_cast<int64_t>(endRecord_.thisPart);
    spanIn_->SetPartNumbers(last, last);
  }
  return spanIn_;
}

bool RkZipFile::Extract(const RkArcSelection& selection, RkState& state) {
  return Run(selection, false, state);
}

bool RkZipFile::Test(const RkArcSelection& selection, RkState& state) { return Run(selection, true, state); }

std::vector<int64_t> RkZipFile::SelectEntries(const RkArcSelection& selection) {
  std::vector<int64_t> chosen;
  std::vector<bool> taken(entries_.size(), false);
  const auto take = [&](int64_t index) {
    if (!taken[static_cast<size_t>(index)]) {
      taken[static_cast<size_t>(index)] = true;
      chosen.push_back(index);
    }
  };
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (i % kPollEvery == kPollEvery - 1 && AskHost([](RkArcCallback& host) { return host.IsCancelled(); }))
      throw RkLib::RkFatalError(kArcCancelled);
    const RkZipEntry* entry = entries_[i].get();
    if (!entry || !entry->parsed || entry->deleted || !selection.Matches(entry->name)) continue;
    take(static_cast<int64_t>(i));
    // A duplicate's data lies with its target, which comes along.
    const RkZipEntryDetail* detail = entry->detail();
    if (entry->EffectiveMethod() == kZipMethodDuplicate && detail && detail->targetIndex >= 0)
      take(detail->targetIndex);
  }
  // The file is read front to back, whatever order the caller named.
  std::stable_sort(chosen.begin(), chosen.end(), [&](int64_t a, int64_t b) {
    const RkZipEntry& x = *entries_[static_cast<size_t>(a)];
    const RkZipEntry& y = *entries_[static_cast<size_t>(b)];
    return x.startPart32 != y.startPart32 ? x.startPart32 < y.startPart32 : x.localOffset64 < y.localOffset64;
  });
  return chosen;
}

bool RkZipFile::Run(const RkArcSelection& selection, bool testOnly, RkState& state) {
  state.Clear();
  if (!loaded_) {
    state.Set(kArcNotLoaded, RkLib::kSeverityFatal);
    return false;
  }
  if (!SharedSpan()) {
    state.Set(kArcCannotOpen, RkLib::kSeverityFatal);
    return false;
  }
  try {
    const std::vector<int64_t> chosen = SelectEntries(selection);
    if (chosen.empty()) {
      Report(RkLib::kSeverityWarning, MessageText(kZipMsgNothingSelected, {}));
      state.Set(kArcNoFilesSelected, RkLib::kSeverityWarning);
      return false;
    }
    if (selection.listOnly) {
      for (int64_t index : chosen) {
        const RkLib::RkString& name = entries_[static_cast<size_t>(index)]->name;
        AskHost([&](RkArcCallback& host) { host.Progress(kArcProgressText, name); });
      }
      return true;
    }

    memoryOutput_.clear();
    RkExtractPoolGroup pool(*this, selection, testOnly);
    if (!testOnly && !selection.toMemory) {
      if (const int error = pool.output.Open(selection.BaseFolder()); error != 0) {
        Report(RkLib::kSeverityFatal, MessageText(kZipMsgOutput, {selection.BaseFolder()}));
        throw RkLib::RkFatalError(kZipErrOutput);
      }
    }
    if (selection.HasPassword()) pool.password = selection.Password();
    pool.total = chosen.size();
    int64_t bytes = 0;
    for (int64_t index : chosen) bytes += static_cast<int64_t>(entries_[static_cast<size_t>(index)]->originalSize64 & INT64_MAX);
    pool.progress.SetTotal(bytes);
    const bool onePipe = testOnly || selection.singlePipe || selection.toMemory;
    const size_t items = std::min<size_t>(onePipe ? 1 : PipeCount(), chosen.size());
    for (size_t i = 0; i < items; ++i) pool.AddItem(std::make_unique<RkExtractItem>(pool));
    pool.Start();

    for (size_t i = 0; i < chosen.size(); ++i) {
      auto* item = static_cast<RkExtractItem*>(pool.TakeFree());
      if (!item) break;  // the run has ended; its error follows
      item->SetEntry(chosen[i], i + 1 == chosen.size());
      ++pool.done;
      pool.Submit(item);
    }
    const RkErrorInfo fatal = pool.Finish();
    if (fatal.severity() == 0) AskHost([](RkArcCallback& host) { host.SetPercent(100); });
    if (fatal.severity() != 0) fatal.Throw();
    const RkErrorInfo first = pool.FirstItemError();
    if (first.severity() != 0) {
      state.Set(first.code(), first.severity());
      return false;
    }
  } catch (const RkLib::RkError& e) {
    state.Set(e);
  } catch (const std::bad_alloc&) {
    state.Set(RkPipeLib::kPipeOutOfMemory, RkLib::kSeverityFatal);
  }
  // The local headers of entries whose sizes follow their data were needed for this run only.
  for (const auto& entry : entries_) {
    if (entry && (entry->flags & kZipFlagDescriptor) && entry->detail()) entry->Detail().localHeader.reset();
  }
  return state.severity == 0;
}

}  // namespace RkArcLib
