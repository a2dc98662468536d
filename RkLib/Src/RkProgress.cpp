#include "RkProgress.h"

#include "RkError.h"

namespace RkLib {

int64_t RkProgress::ScaleFor(int64_t total) {
  uint64_t scale = kInitialScale;
  // An int64 total needs at most 2^48 to fit, far from overflow; the check guards the invariant.
  while (total / static_cast<int64_t>(scale) > kMaxFigure) {
    scale <<= 1;
    RK_ASSERT(scale != 0 && scale <= static_cast<uint64_t>(INT64_MAX));
  }
  return static_cast<int64_t>(scale);
}

void RkProgress::SetTotal(int64_t total) {
  total_ = total;
  scale_ = ScaleFor(total);
}

void RkProgress::Reset() {
  scale_ = kInitialScale;
  total_ = 0;
  done_ = 0;
  itemFlag_ = false;
  itemDone_ = -1;
}

#define RK_LOCKED(expr)             \
  std::lock_guard lock(mutex_);     \
  return expr

int64_t RkThreadedProgress::GetScale() const { RK_LOCKED(RkProgress::GetScale()); }
int64_t RkThreadedProgress::GetTotal() const { RK_LOCKED(RkProgress::GetTotal()); }
int64_t RkThreadedProgress::GetDone() const { RK_LOCKED(RkProgress::GetDone()); }
bool RkThreadedProgress::GetItemFlag() const { RK_LOCKED(RkProgress::GetItemFlag()); }
int64_t RkThreadedProgress::GetItemDone() const { RK_LOCKED(RkProgress::GetItemDone()); }
void RkThreadedProgress::SetDone(int64_t done) { RK_LOCKED(RkProgress::SetDone(done)); }
void RkThreadedProgress::SetItemFlag(bool flag) { RK_LOCKED(RkProgress::SetItemFlag(flag)); }
void RkThreadedProgress::Reset() { RK_LOCKED(RkProgress::Reset()); }
void RkThreadedProgress::SetTotal(int64_t total) { RK_LOCKED(RkProgress::SetTotal(total)); }
void RkThreadedProgress::SetItemDone(int64_t itemDone) { RK_LOCKED(RkProgress::SetItemDone(itemDone)); }
void RkThreadedProgress::Add(int64_t amount) { RK_LOCKED(RkProgress::Add(amount)); }
int32_t RkThreadedProgress::GetFigure() const { RK_LOCKED(RkProgress::GetFigure()); }
int32_t RkThreadedProgress::GetTotalFigure() const { RK_LOCKED(RkProgress::GetTotalFigure()); }

#undef RK_LOCKED

}  // namespace RkLib
