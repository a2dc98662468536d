// RkPPMdMod: the context model of PPMd var.I, revision 1, as the ZIP method 98 uses it.
//
// The model predicts each byte from the contexts of up to `maxOrder` bytes before it. A context
// holds the symbols seen after it with their frequencies; a symbol not in it is coded as an
// escape to the shorter context (its suffix), with the symbols already ruled out masked. The
// escape of the order-0 context, which holds all 256 symbols, is the end mark of the stream.
// Contexts with a single symbol ("binary") are coded with an adaptive probability instead of
// frequencies; escapes of masked contexts get their frequency from secondary estimation (SEE).
//
// The model's memory is fixed by the stream. When it runs out, the restore method decides:
// restart from an empty model (0), cut the tree back to below three quarters of the memory (1),
// or freeze the tree and go on with the statistics only (2). The decoder must run the same
// model as the encoder step by step; every detail of the updates is part of the format.
//
// Not thread-safe: one model belongs to one decoder node.
#pragma once

#include <cstdint>

#include "RkPPMdHeap.h"
#include "RkPPMdRange.h"

namespace RkPipeLib {

class RkPPMdMod {
 public:
  static constexpr unsigned kMinOrder = 2;
  static constexpr unsigned kMaxOrder = 16;
  enum Restore : unsigned { kRestart = 0, kCutOff = 1, kFreeze = 2 };
  // What DecodeSymbol returns besides a byte.
  static constexpr int kEndMark = -1;
  static constexpr int kBadSymbol = -2;

  RkPPMdMod() = default;
  RkPPMdMod(const RkPPMdMod&) = delete;
  RkPPMdMod& operator=(const RkPPMdMod&) = delete;

  // Makes the model memory `memorySize` bytes; a larger arena from before is kept.
  void Allocate(uint32_t memorySize) { heap_.Reserve(memorySize); }
  // An empty model. `maxOrder` lies in [kMinOrder, kMaxOrder], `method` is a Restore.
  void Start(unsigned maxOrder, unsigned method);

  // The next byte, kEndMark, or kBadSymbol for a code that no encoder could have written.
  // Raises RkSevereError(7010) if the model comes apart, which a valid stream never causes.
  int DecodeSymbol(RkPPMdRange& rc);
  // The encoder's half of the same model, for round trips in tests: a byte, or kEndMark.
  void EncodeSymbol(int symbol, RkPPMdRangeEncoder& rc);

  // How often the memory ran out since Start, for tests and statistics.
  uint64_t RestoreCount() const noexcept { return restores_; }

 private:
  using State = RkPPMd::State;
  using Context = RkPPMd::Context;

  struct See {
    uint16_t summ;
    uint8_t shift;
    uint8_t count;
  };

  // ---- Views.
  Context* Ctx(uint32_t ref) const { return reinterpret_cast<Context*>(heap_.Ptr(ref)); }
  static State* OneState(Context* c) { return reinterpret_cast<State*>(c->summFreq); }
  static const State* OneState(const Context* c) { return reinterpret_cast<const State*>(c->summFreq); }
  State* Stats(const Context* c) const { return reinterpret_cast<State*>(heap_.Ptr(RkPPMd::Load32(c->stats))); }
  void SetStats(Context* c, const void* stats) const { RkPPMd::Store32(c->stats, heap_.Ref(stats)); }
  // The suffix, or null for the order-0 context.
  Context* Suffix(const Context* c) const {
    const uint32_t ref = RkPPMd::Load32(c->suffix);
    return ref ? Ctx(ref) : nullptr;
  }
  static unsigned SummFreq(const Context* c) { return RkPPMd::Load16(c->summFreq); }
  static void SetSummFreq(Context* c, unsigned v) { RkPPMd::Store16(c->summFreq, v); }
  static uint32_t Successor(const State* s) { return RkPPMd::Load32(s->successor); }
  static void SetSuccessor(State* s, uint32_t ref) { RkPPMd::Store32(s->successor, ref); }
  // The state of `symbol` in the context, which must hold it.
  State* FindState(Context* c, uint8_t symbol) const;
  // Whether a successor ref leads to a context rather than into the text area.
  bool IsContext(uint32_t ref) const { return ref >= heap_.Ref(heap_.unitsStart); }

  // ---- Coding.
  uint16_t& BinaryProbability();
  See* MakeEscapeFrequency(unsigned numMasked, uint32_t& escapeFrequency);
  int DecodeMasked(RkPPMdRange& rc);

  // ---- Updates after a symbol.
  void Update1(State* s);
  void Update1First();
  void Update2();
  void UpdateBinary();
  void NextContext();
  void Rescale();
  void UpdateModel();
  Context* CreateSuccessors(bool skip, State* suffixState, Context* c);
  Context* ReduceOrder(State* suffixState, Context* c);

  // ---- Running out of memory.
  void RestartModel();
  void RestoreModel(Context* stop, uint32_t foundSuccessor);
  void Refresh(Context* c, unsigned oldUnits, unsigned scale);
  uint32_t CutOff(Context* c, unsigned order);
  uint32_t RemoveBinaryContexts(Context* c, unsigned order);

  // ---- Masks of the symbols ruled out by escapes: a symbol is masked when its entry equals
  // the current generation, so a new symbol clears them all by counting up.
  void NewMask();
  bool Masked(uint8_t symbol) const { return mask_[symbol] == maskGeneration_; }
  void Mask(uint8_t symbol) { mask_[symbol] = maskGeneration_; }

  RkPPMdHeap heap_;
  Context* minContext_ = nullptr;  // where the current symbol is being looked for
  Context* maxContext_ = nullptr;  // the longest context of the current position
  State* foundState_ = nullptr;
  unsigned orderFall_ = 0;  // how far below the longest possible context the model runs
  unsigned initEscape_ = 0;
  unsigned prevSuccess_ = 0;
  unsigned maxOrder_ = 0;
  unsigned method_ = kRestart;  // kFreeze + 1 once frozen
  int32_t runLength_ = 0;
  int32_t initRunLength_ = 0;
  // Rows by the binary frequency class (27 covers every byte value, though 25 are used),
  // columns by the suffix size, the last success, the flags and the run length.
  uint16_t binSumm_[27][64] = {};
  See see_[24][32] = {};
  See dummySee_ = {};
  uint64_t restores_ = 0;
  uint32_t mask_[256] = {};
  uint32_t maskGeneration_ = 0;
};

}  // namespace RkPipeLib
