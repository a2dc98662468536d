// RkCrcProgress: passes each buffer on untouched and, in the same pass, keeps the CRC-32, counts
// the bytes that look like text, feeds an optional SHA-1, adds to the owner's progress and polls
// the owner's callback. What an extraction needs to know about an item's bytes, in one node.
#pragma once

#include <cstdint>
#include <memory>

#include "RkDigest.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkCrcProgress : public RkLinkNode {
 public:
  // IsText's answer when more bytes look like text than went through, which cannot happen.
  static constexpr uint32_t kTextCountBroken = 65535;

  RkCrcProgress(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkCrcProgress() override;

  // A false answer of the callback's Poll, asked after each buffer, throws RkFatalError(7002).
  void Run() override;

  // Polled from this node's thread; the owner's Poll must allow for that.
  virtual void SetUICallBack(RkUICallBack* callback) { callback_ = callback; }
  // Added to from this node's thread; the owner's object must allow for that.
  virtual void SetProgress(RkLib::RkProgress* progress) { progress_ = progress; }
  // Empties the output stream and starts the counts, the CRC and the digest anew.
  virtual void Reset();
  virtual uint32_t GetCrc() const { return crc_; }
  // The SHA-1 of the last run that ended normally with the digest enabled.
  virtual RkLib::RkDigestValue GetDigest() const { return digestValue_; }
  virtual void SetDigestEnabled(bool enabled);
  virtual bool IsDigestEnabled() const { return digestEnabled_; }
  virtual uint64_t GetTotal() const { return totalBytes_; }
  // 1 when at most a quarter as many bytes lie outside the text range as inside it, else 0.
  virtual uint32_t IsText() const;

 private:
  void Take(const RkPipeBuffer& buffer);

  uint64_t textBytes_ = 0;
  uint64_t totalBytes_ = 0;
  uint32_t crc_;
  bool digestEnabled_ = false;
  RkLib::RkDigestValue digestValue_;
  std::unique_ptr<RkLib::RkDigestFunction> digest_;  // made when first enabled
  RkLib::RkProgress* progress_ = nullptr;
  RkUICallBack* callback_ = nullptr;
};

}  // namespace RkPipeLib
