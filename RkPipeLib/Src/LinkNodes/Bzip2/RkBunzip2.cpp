#include "RkBunzip2.h"

#include <bzlib.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
// The library counts in unsigned int; a step never offers it more than this.
constexpr uint64_t kMaxStep = 1u << 30;

}  // namespace

// One bzip2 stream at a time: Begin sets the library's state up, End lets it go.
//
// The library asks for its state and its block array (up to 3.6 MB at level 9) for every stream,
// and a zip of many small entries would pay for fresh pages each time. Its allocations go
// through the free list below instead, which hands a block of the same size back, so a node
// kept for the next entry allocates once.
class RkBzipDecompressor {
 public:
  // Room for every block the lists can hold, so that no push in the callbacks allocates: an
  // exception must not pass through the library's C frames.
  RkBzipDecompressor() {
    inUse_.reserve(2 * kKeptBlocks);
    free_.reserve(2 * kKeptBlocks);
  }
  RkBzipDecompressor(const RkBzipDecompressor&) = delete;
  RkBzipDecompressor& operator=(const RkBzipDecompressor&) = delete;
  ~RkBzipDecompressor() {
    End();
    for (const Block& block : free_) std::free(block.memory);
  }

  void Begin() {
    End();
    stream_ = bz_stream{};
    stream_.bzalloc = &Allocate;
    stream_.bzfree = &Release;
    stream_.opaque = this;
    // The fast form (small = 0) decodes about twice as fast as the small one.
    const int result = BZ2_bzDecompressInit(&stream_, 0, 0);
    if (result == BZ_MEM_ERROR) throw RkLib::RkFatalError(kPipeOutOfMemory);
    if (result != BZ_OK) throw RkLib::RkSevereError(kBadData);
    open_ = true;
  }

  void End() {
    if (open_) BZ2_bzDecompressEnd(&stream_);
    open_ = false;
  }

  // One call of the library; `consumed` and `produced` say what it did.
  int Decode(const uint8_t* in, uint64_t inLength, uint8_t* out, uint64_t outLength, uint64_t& consumed,
             uint64_t& produced) {
    const unsigned inCount = static_cast<unsigned>(std::min(inLength, kMaxStep));
    const unsigned outCount = static_cast<unsigned>(std::min(outLength, kMaxStep));
    stream_.next_in = const_cast<char*>(reinterpret_cast<const char*>(in));
    stream_.avail_in = inCount;
    stream_.next_out = reinterpret_cast<char*>(out);
    stream_.avail_out = outCount;
    const int result = BZ2_bzDecompress(&stream_);
    consumed = inCount - stream_.avail_in;
    produced = outCount - stream_.avail_out;
    return result;
  }

 private:
  struct Block {
    void* memory;
    size_t size;
  };
  // The library holds two blocks at a time, its state and its block array; four are kept, so
  // that streams of two levels take turns without allocating.
  static constexpr size_t kKeptBlocks = 4;

  static void* Allocate(void* opaque, int count, int size) {
    auto& self = *static_cast<RkBzipDecompressor*>(opaque);
    const size_t bytes = static_cast<size_t>(count) * static_cast<size_t>(size);
    if (self.inUse_.size() == self.inUse_.capacity()) return nullptr;  // the library asks for two
    for (size_t i = 0; i < self.free_.size(); ++i) {
      if (self.free_[i].size == bytes) {
        void* memory = self.free_[i].memory;
        self.free_.erase(self.free_.begin() + static_cast<long>(i));
        self.inUse_.push_back({memory, bytes});
        return memory;
      }
    }
    void* memory = std::malloc(bytes);
    if (memory) self.inUse_.push_back({memory, bytes});
    return memory;
  }

  static void Release(void* opaque, void* memory) {
    auto& self = *static_cast<RkBzipDecompressor*>(opaque);
    for (size_t i = 0; i < self.inUse_.size(); ++i) {
      if (self.inUse_[i].memory == memory) {
        const Block block = self.inUse_[i];
        self.inUse_.erase(self.inUse_.begin() + static_cast<long>(i));
        if (self.free_.size() < kKeptBlocks) {
          self.free_.push_back(block);
        } else {
          std::free(memory);
        }
        return;
      }
    }
    std::free(memory);  // not ours to keep: never happens
  }

  bz_stream stream_{};
  bool open_ = false;
  std::vector<Block> inUse_;  // handed out
  std::vector<Block> free_;   // kept for the next stream
};

RkBunzip2::RkBunzip2(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      library_(std::make_unique<RkBzipDecompressor>()),
      writer_(std::make_unique<RkBStrm>(&output_)) {
  output_.Reset();
}

RkBunzip2::~RkBunzip2() = default;

void RkBunzip2::Reset() {
  output_.Reset();
  library_->End();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

bool RkBunzip2::MoreInput() {
  if (reader_.available() != 0) return true;
  if (inputEnded_) return false;
  inputEnded_ = !reader_.refill(kSoftEnd);
  return !inputEnded_;
}

bool RkBunzip2::DecodeStream(bool first) {
  library_->Begin();
  for (;;) {
    const uint8_t* in = nullptr;
    const uint64_t available = reader_.available() ? reader_.peek(in, kMaxStep, 0) : 0;
    uint8_t* out;
    const uint64_t room = writer_->reserve(out, kMaxStep, 1);
    uint64_t consumed, produced;
    const int result = library_->Decode(in, available, out, room, consumed, produced);
    reader_.skip(consumed);
    writer_->commit(produced);
    switch (result) {
      case BZ_OK:
        break;
      case BZ_STREAM_END:
        library_->End();
        return true;
      case BZ_DATA_ERROR_MAGIC:
        if (!first) return false;
        throw RkLib::RkSevereError(kBadData);
      case BZ_MEM_ERROR:
        throw RkLib::RkFatalError(kPipeOutOfMemory);
      default:
        throw RkLib::RkSevereError(kBadData);
    }
    // Output goes out as it comes; more input is waited for only when the library is stuck
    // without it, so the last block is written before the input's end is known.
    if (consumed == 0 && produced == 0) {
      if (available != 0) throw RkLib::RkSevereError(kBadData);  // stuck with input: never loop
      if (!MoreInput()) throw RkLib::RkSevereError(kPipeReadPastEnd);
    }
  }
}

void RkBunzip2::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  inputEnded_ = false;
  writerClean_ = false;
  bool first = true;
  while (DecodeStream(first)) {
    first = false;
    if (!MoreInput()) break;
  }
  library_->End();
  writer_->finishOutput();
  writerClean_ = true;
}

}  // namespace RkPipeLib
