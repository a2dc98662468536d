// RkInflate: the link node that decodes deflate data, or Deflate64 data when made with mode 1.
//
// The node reads the compressed bytes in place from the reader's buffer and decodes into a
// window of 1 MiB, which goes out through the writer in parts as it fills, and the rest at the
// end. It stops at the final block's end, not at the end of the input: bytes after it are
// left unread, and the input stream's bytesRead is set to the exact count of bytes that the
// compressed data took, however far the reader looked ahead.
//
// Failures: invalid data raises RkSevereError(7010), input that ends before the final block
// RkSevereError(7006). Lengths of a code that leave room unused are accepted, and so are the
// distance codes 30 and 31 in plain deflate; a distance that reaches before the start of the
// data reads what the window holds, which is not cleared between items. No check guards memory:
// every table index and window position is in range by construction, whatever the input.
//
// The window and the tables are allocated once with the node, and the tables of the fixed block
// are built on its first fixed block and kept.
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkHufTree.h"
#include "RkNode.h"

namespace RkPipeLib {

struct RkInflateCursor;
struct RkInflateTables;

class RkInflate : public RkLinkNode {
 public:
  static constexpr uint32_t kWindowSize = 1u << 20;
  static constexpr int kModeDeflate64 = 1;

  // `mode` 1 selects Deflate64; any other value plain deflate.
  RkInflate(int mode, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
            const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkInflate() override;

  void Run() override;
  // Empties the output stream for the next item; after a failed run the writer starts afresh,
  // since its buffer may hold bytes of the failed item or have gone down the stream.
  virtual void Reset();
  bool IsDeflate64() const noexcept { return deflate64_; }

  // Chooses the fast loop: false keeps the plain one even where the processor has BMI2, so
  // that tests and benchmarks can run both.
  void UseBmi2(bool use) noexcept;

 private:
  using FastLoopFn = int (*)(RkInflateCursor&, const RkInflateTables&);

  void DecodeStream(RkInflateCursor& c);
  void StoredBlock(RkInflateCursor& c);
  void FixedTables(RkInflateTables& t);
  void DynamicTables(RkInflateCursor& c, RkInflateTables& t);
  void HuffmanBlock(RkInflateCursor& c, const RkInflateTables& t);
  bool SlowSymbol(RkInflateCursor& c, const RkInflateTables& t);
  uint32_t SlowLookup(RkInflateCursor& c, const uint32_t* table, uint32_t width);
  void EnsureBits(RkInflateCursor& c, uint32_t n);
  void NextChunk(RkInflateCursor& c);
  void PutByte(RkInflateCursor& c, uint8_t byte);
  void CopyMatch(RkInflateCursor& c, uint32_t length, uint32_t distance);
  void FlushPart(RkInflateCursor& c);
  void FlushWindow(RkInflateCursor& c);

  std::unique_ptr<RkBStrm> writer_;
  bool writerClean_ = true;
  RkBStrm reader_;
  RkHufTree treeAllocator_;
  std::unique_ptr<uint8_t[]> window_;
  bool deflate64_;
  FastLoopFn fastLoop_ = nullptr;
  uint64_t bytesTaken_ = 0;  // bytes handed to the bit buffer or copied from stored blocks
  // The fixed block's tables in their slots, with the mode they were built for (-1: none).
  int fixedMode_ = -1;
  uint32_t fixedLiteralBits_ = 0;
  uint32_t fixedDistanceBits_ = 0;
};

}  // namespace RkPipeLib
