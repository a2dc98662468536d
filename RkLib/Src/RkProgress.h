// Progress counters that a worker adds to and the owner's thread reads. The figure shown to the
// user is done / scale, which stays within a signed 16-bit range whatever the total.
#pragma once

#include <cstdint>
#include <mutex>

namespace RkLib {

class RkProgress {
 public:
  static constexpr int64_t kInitialScale = 10240;
  static constexpr int64_t kMaxFigure = 32767;

  RkProgress() = default;
  RkProgress(const RkProgress&) = delete;
  RkProgress& operator=(const RkProgress&) = delete;
  virtual ~RkProgress() = default;

  virtual int64_t GetScale() const { return scale_; }
  virtual int64_t GetTotal() const { return total_; }
  virtual int64_t GetDone() const { return done_; }
  virtual bool GetItemFlag() const { return itemFlag_; }
  virtual int64_t GetItemDone() const { return itemDone_; }
  virtual void SetDone(int64_t done) { done_ = done; }
  virtual void SetItemFlag(bool flag) { itemFlag_ = flag; }
  virtual void Reset();
  // Also picks the scale: 10240 doubled until total / scale fits the 16-bit figure.
  virtual void SetTotal(int64_t total);
  virtual void SetItemDone(int64_t itemDone) { itemDone_ = itemDone; }
  // The hot path of every stage: no checks.
  virtual void Add(int64_t amount) { done_ += amount; }
  // done / scale and total / scale, as the 16-bit figures a progress bar is given.
  virtual int32_t GetFigure() const { return static_cast<int32_t>(done_ / scale_); }
  virtual int32_t GetTotalFigure() const { return static_cast<int32_t>(total_ / scale_); }

 protected:
  static int64_t ScaleFor(int64_t total);

 private:
  int64_t scale_ = kInitialScale;
  int64_t total_ = 0;
  int64_t done_ = 0;
  bool itemFlag_ = false;
  int64_t itemDone_ = -1;
};

// The same operations, each under the object's mutex.
class RkThreadedProgress final : public RkProgress {
 public:
  int64_t GetScale() const override;
  int64_t GetTotal() const override;
  int64_t GetDone() const override;
  bool GetItemFlag() const override;
  int64_t GetItemDone() const override;
  void SetDone(int64_t done) override;
  void SetItemFlag(bool flag) override;
  void Reset() override;
  void SetTotal(int64_t total) override;
  void SetItemDone(int64_t itemDone) override;
  void Add(int64_t amount) override;
  int32_t GetFigure() const override;
  int32_t GetTotalFigure() const override;

 private:
  mutable std::mutex mutex_;
};

}  // namespace RkLib
