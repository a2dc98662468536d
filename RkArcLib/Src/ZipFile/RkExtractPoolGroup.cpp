#include "RkExtractPoolGroup.h"

#include "RkArcCallback.h"
#include "RkZipFile.h"

namespace RkArcLib {

namespace {

// The host is asked about a cancel every so many buffers: often enough to feel prompt, rarely
// enough that the archive-wide lock is never a queue.
constexpr uint32_t kPollsPerAsk = 8;

}  // namespace

RkExtractPoolGroup::RkExtractPoolGroup(RkZipFile& zip, const RkArcSelection& request, bool test)
    : archive(zip), selection(request), testOnly(test) {}

// The items and the threads use this object's members: they end before it does.
RkExtractPoolGroup::~RkExtractPoolGroup() { Shutdown(); }

uint32_t RkExtractPoolGroup::ClaimName(std::u16string_view name, bool folder) {
  std::u16string key(name);
  for (char16_t& c : key) {
    if (c == u'/') c = u'\\';
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  std::lock_guard<std::mutex> lock(Lock());
  for (size_t cut = key.find(u'\\'); cut != std::u16string::npos; cut = key.find(u'\\', cut + 1)) {
    if (names_.count(key.substr(0, cut)) != 0) return uint32_t{kZipErrOutput};
  }
  if (folder) return names_.count(key) != 0 ? uint32_t{kZipErrOutput} : 0u;
  return names_.insert(std::move(key)).second ? 0u : uint32_t{kZipErrSameName};
}

bool RkExtractPoolGroup::Poll(RkLib::RkMsgQueue*) {
  if (Ended()) return false;
  if (polls_.fetch_add(1, std::memory_order_relaxed) % kPollsPerAsk != 0) return true;
  return !archive.AskHost([&](RkArcCallback& host) {
    const int64_t whole = progress.GetTotal();
    if (whole > 0) host.SetPercent(static_cast<int>(progress.GetDone() * 100 / whole));
    return host.IsCancelled();
  });
}

}  // namespace RkArcLib
