#include "RkPPMdMod.h"

#include <algorithm>
#include <utility>

#include "RkError.h"

namespace RkPipeLib {

using namespace RkPPMd;

namespace {

// A frequency above this halves all of its context's frequencies.
constexpr unsigned kMaxFreq = 124;
// Binary probabilities are 14-bit: 7 integer bits of adaptation, 7 of period.
constexpr unsigned kIntBits = 7;
constexpr unsigned kPeriodBits = 7;
constexpr unsigned kBinScale = 1u << (kIntBits + kPeriodBits);
// A cut-off keeps a context up to this order even when nothing follows it any more.
constexpr unsigned kCutOffKeepOrder = 9;
// Holds a chain of states, one per order; a longer chain is a broken model.
constexpr unsigned kChainCap = 2 * RkPPMdMod::kMaxOrder + 2;

// What an escape from a binary context says about the escape of the context that will grow out
// of it, by the top four bits of the binary probability.
constexpr uint8_t kExpEscape[16] = {25, 14, 9, 7, 5, 5, 4, 4, 4, 3, 3, 3, 2, 2, 2, 2};
// Starting escape probabilities of the binary contexts, by the column's low three bits.
constexpr uint16_t kInitBinEsc[8] = {0x3CDD, 0x1F3F, 0x59BF, 0x48F3, 0x64A1, 0x5ABC, 0x6632, 0x6051};

// Flags of a context that enter the table columns. Only these bits are ever set; masking keeps a
// broken model inside the tables. A binary context never carries the rescale bit 0x04.
constexpr unsigned kSeeFlags = 0x1C;
constexpr unsigned kBinaryFlags = 0x18;

struct Quantizers {
  // A frequency or symbol count to its class: 0 to 4 stand alone, then runs of 1, 2, 3, ...
  uint8_t classOf[260];
  // The suffix's symbol count to the binary table's column group: 1, 2, 3 to 11, more.
  uint8_t binaryGroup[256];
};
constexpr Quantizers MakeQuantizers() {
  Quantizers q{};
  unsigned i = 0;
  for (; i < 5; ++i) q.classOf[i] = static_cast<uint8_t>(i);
  for (unsigned value = i, left = 1; i < 260; ++i) {
    q.classOf[i] = static_cast<uint8_t>(value);
    if (--left == 0) left = ++value - 4;
  }
  q.binaryGroup[0] = 0;
  q.binaryGroup[1] = 2;
  for (i = 2; i < 11; ++i) q.binaryGroup[i] = 4;
  for (; i < 256; ++i) q.binaryGroup[i] = 6;
  return q;
}
constexpr Quantizers kQ = MakeQuantizers();
static_assert(kQ.classOf[195] == 24 && kQ.classOf[256] == 26);

constexpr uint8_t HighFlag(uint8_t symbol) { return symbol >= 0x40 ? 0x08 : 0; }

// The share of a binary probability that one step moves, rounded.
constexpr unsigned Mean(unsigned prob) { return (prob + (1u << (kPeriodBits - 2))) >> kPeriodBits; }

[[noreturn]] void ThrowBrokenModel() { throw RkLib::RkSevereError(kPPMdBadData); }

}  // namespace

void RkPPMdMod::Start(unsigned maxOrder, unsigned method) {
  maxOrder_ = maxOrder;
  method_ = method;
  restores_ = 0;
  RestartModel();
  // Stands for the SEE of the order-0 context: its escape frequency is always 1, never learnt.
  dummySee_ = {0, static_cast<uint8_t>(kPeriodBits), 64};
}

void RkPPMdMod::RestartModel() {
  heap_.Restart();
  orderFall_ = maxOrder_;
  runLength_ = initRunLength_ = -static_cast<int32_t>(std::min(maxOrder_, 12u)) - 1;
  prevSuccess_ = 0;

  // The order-0 context takes the top unit, its 256 states the first 128 units.
  Context* root = reinterpret_cast<Context*>(heap_.hiUnit -= kUnitSize);
  minContext_ = maxContext_ = root;
  Store32(root->suffix, 0);
  root->numStats = 255;
  root->flags = 0;
  SetSummFreq(root, 256 + 1);
  State* stats = reinterpret_cast<State*>(heap_.loUnit);
  heap_.loUnit += U2B(256 / 2);
  SetStats(root, stats);
  for (unsigned i = 0; i < 256; ++i) {
    stats[i].symbol = static_cast<uint8_t>(i);
    stats[i].freq = 1;
    SetSuccessor(&stats[i], 0);
  }
  foundState_ = stats;

  // Both tables start from the class boundaries: a row's divisor is the number of values that
  // fall into its class or a lower one.
  unsigned values = 0;
  for (unsigned row = 0; row < std::size(binSumm_); ++row) {
    while (kQ.classOf[values] == row) ++values;
    for (unsigned k = 0; k < 8; ++k)
      for (unsigned m = 0; m < 64; m += 8)
        binSumm_[row][k + m] = static_cast<uint16_t>(kBinScale - kInitBinEsc[k] / (values + 1));
  }
  values = 0;
  for (unsigned row = 0; row < std::size(see_); ++row) {
    while (kQ.classOf[values + 3] == row + 3) ++values;
    for (See& see : see_[row]) see = {static_cast<uint16_t>((2 * values + 5) << (kPeriodBits - 4)), kPeriodBits - 4, 7};
  }
}

RkPPMdMod::State* RkPPMdMod::FindState(Context* c, uint8_t symbol) const {
  State* s = Stats(c);
  for (unsigned n = c->numStats + 1u; n != 0; --n, ++s)
    if (s->symbol == symbol) return s;
  ThrowBrokenModel();
}

void RkPPMdMod::NewMask() {
  if (++maskGeneration_ == 0) {
    std::fill(std::begin(mask_), std::end(mask_), 0);
    maskGeneration_ = 1;
  }
}

// ---- Decoding.

int RkPPMdMod::DecodeSymbol(RkPPMdRange& rc) {
  Context* mc = minContext_;
  if (mc->numStats != 0) {
    State* s = Stats(mc);
    const unsigned summ = SummFreq(mc);
    const uint32_t count = rc.Threshold(summ);
    uint32_t hiCnt = s->freq;
    if (count < hiCnt) {
      rc.Decode(0, s->freq);
      foundState_ = s;
      const uint8_t symbol = s->symbol;
      Update1First();
      return symbol;
    }
    prevSuccess_ = 0;
    for (unsigned i = mc->numStats; i != 0; --i) {
      ++s;
      hiCnt += s->freq;
      if (hiCnt > count) {
        rc.Decode(hiCnt - s->freq, s->freq);
        foundState_ = s;
        const uint8_t symbol = s->symbol;
        Update1(s);
        return symbol;
      }
    }
    if (count >= summ) return kBadSymbol;
    rc.Decode(hiCnt, summ - hiCnt);
    NewMask();
    const State* stats = Stats(mc);
    for (unsigned i = 0; i <= mc->numStats; ++i) Mask(stats[i].symbol);
  } else {
    uint16_t& prob = BinaryProbability();
    State* s = OneState(mc);
    if (rc.BinaryThreshold() < prob) {
      rc.Decode(0, prob);
      prob = static_cast<uint16_t>(prob + (1u << kIntBits) - Mean(prob));
      foundState_ = s;
      const uint8_t symbol = s->symbol;
      UpdateBinary();
      return symbol;
    }
    rc.Decode(prob, kBinScale - prob);
    prob = static_cast<uint16_t>(prob - Mean(prob));
    initEscape_ = kExpEscape[prob >> 10];
    NewMask();
    Mask(s->symbol);
    prevSuccess_ = 0;
  }
  return DecodeMasked(rc);
}

void RkPPMdMod::EncodeSymbol(int symbol, RkPPMdRangeEncoder& rc) {
  Context* mc = minContext_;
  if (mc->numStats != 0) {
    State* s = Stats(mc);
    const unsigned summ = SummFreq(mc);
    if (s->symbol == symbol) {
      rc.Encode(0, s->freq, summ);
      foundState_ = s;
      Update1First();
      return;
    }
    prevSuccess_ = 0;
    uint32_t low = s->freq;
    for (unsigned i = mc->numStats; i != 0; --i) {
      ++s;
      if (s->symbol == symbol) {
        rc.Encode(low, s->freq, summ);
        foundState_ = s;
        Update1(s);
        return;
      }
      low += s->freq;
    }
    rc.Encode(low, summ - low, summ);
    NewMask();
    const State* stats = Stats(mc);
    for (unsigned i = 0; i <= mc->numStats; ++i) Mask(stats[i].symbol);
  } else {
    uint16_t& prob = BinaryProbability();
    State* s = OneState(mc);
    if (s->symbol == symbol) {
      rc.EncodeBinary(false, prob);
      prob = static_cast<uint16_t>(prob + (1u << kIntBits) - Mean(prob));
      foundState_ = s;
      UpdateBinary();
      return;
    }
    rc.EncodeBinary(true, prob);
    prob = static_cast<uint16_t>(prob - Mean(prob));
    initEscape_ = kExpEscape[prob >> 10];
    NewMask();
    Mask(s->symbol);
    prevSuccess_ = 0;
  }
  for (;;) {
    const unsigned numMasked = mc->numStats;
    do {
      ++orderFall_;
      mc = Suffix(mc);
      if (!mc) return;  // the escape from order 0 was the end mark
    } while (mc->numStats == numMasked);
    minContext_ = mc;
    uint32_t escapeFrequency;
    See* see = MakeEscapeFrequency(numMasked, escapeFrequency);
    State* stats = Stats(mc);
    uint32_t low = 0;
    State* hit = nullptr;
    uint32_t sum = 0;
    for (unsigned i = 0; i <= mc->numStats; ++i) {
      State* s = &stats[i];
      if (Masked(s->symbol)) continue;
      if (s->symbol == symbol) {
        hit = s;
        low = sum;
      }
      sum += s->freq;
    }
    if (hit) {
      rc.Encode(low, hit->freq, sum + escapeFrequency);
      if (see->shift < kPeriodBits && --see->count == 0) {
        see->summ = static_cast<uint16_t>(see->summ << 1);
        see->count = static_cast<uint8_t>(3u << see->shift++);
      }
      foundState_ = hit;
      Update2();
      return;
    }
    rc.Encode(sum, escapeFrequency, sum + escapeFrequency);
    see->summ = static_cast<uint16_t>(see->summ + sum + escapeFrequency);
    for (unsigned i = 0; i <= mc->numStats; ++i) Mask(stats[i].symbol);
  }
}

// After an escape: the shorter contexts, with the symbols of the longer ones ruled out. A
// context with no symbol left over is passed; an escape from order 0 is the end mark.
int RkPPMdMod::DecodeMasked(RkPPMdRange& rc) {
  State* candidates[256];
  for (;;) {
    Context* mc = minContext_;
    const unsigned numMasked = mc->numStats;
    do {
      ++orderFall_;
      mc = Suffix(mc);
      if (!mc) return kEndMark;
    } while (mc->numStats == numMasked);
    // A suffix holds every symbol of its longer contexts, so it cannot hold fewer.
    if (mc->numStats < numMasked) ThrowBrokenModel();
    minContext_ = mc;

    const unsigned unmasked = mc->numStats - numMasked;
    State* s = Stats(mc);
    const State* const last = s + mc->numStats;
    uint32_t hiCnt = 0;
    for (unsigned n = 0; n != unmasked; ++s) {
      if (s > last) ThrowBrokenModel();
      if (!Masked(s->symbol)) {
        hiCnt += s->freq;
        candidates[n++] = s;
      }
    }

    uint32_t escapeFrequency;
    See* see = MakeEscapeFrequency(numMasked, escapeFrequency);
    const uint32_t freqSum = escapeFrequency + hiCnt;
    const uint32_t count = rc.Threshold(freqSum);
    if (count < hiCnt) {
      State** pick = candidates;
      for (hiCnt = (*pick)->freq; hiCnt <= count; hiCnt += (*pick)->freq) ++pick;
      s = *pick;
      rc.Decode(hiCnt - s->freq, s->freq);
      if (see->shift < kPeriodBits && --see->count == 0) {
        see->summ = static_cast<uint16_t>(see->summ << 1);
        see->count = static_cast<uint8_t>(3u << see->shift++);
      }
      foundState_ = s;
      const uint8_t symbol = s->symbol;
      Update2();
      return symbol;
    }
    if (count >= freqSum) return kBadSymbol;
    rc.Decode(hiCnt, freqSum - hiCnt);
    see->summ = static_cast<uint16_t>(see->summ + freqSum);
    for (unsigned k = 0; k < unmasked; ++k) Mask(candidates[k]->symbol);
  }
}

// Rows by the frequency class of the one symbol; columns by the suffix's size group, the last
// success, the flags, and whether the run of successes is still short (the run length starts
// below zero; its sign bit moves to 0x20).
uint16_t& RkPPMdMod::BinaryProbability() {
  const Context* mc = minContext_;
  const Context* suffix = Suffix(mc);
  if (!suffix) ThrowBrokenModel();
  const unsigned freq = OneState(mc)->freq;
  const unsigned row = kQ.classOf[(freq - 1) & 0xFF];
  const unsigned column = kQ.binaryGroup[suffix->numStats] + prevSuccess_ + (mc->flags & kBinaryFlags) +
                          static_cast<unsigned>((runLength_ >> 26) & 0x20);
  return binSumm_[row][column];
}

// The SEE context by the size class of the context, whether its escape count is large, whether
// it has few symbols against its suffix, and its flags.
RkPPMdMod::See* RkPPMdMod::MakeEscapeFrequency(unsigned numMasked, uint32_t& escapeFrequency) {
  const Context* mc = minContext_;
  const unsigned ns = mc->numStats;
  if (ns == 255) {
    escapeFrequency = 1;
    return &dummySee_;
  }
  const Context* suffix = Suffix(mc);
  if (!suffix) ThrowBrokenModel();
  See* see = &see_[kQ.classOf[ns + 2] - 3][(SummFreq(mc) > 11 * (ns + 1)) +
                                           2 * (2 * ns < suffix->numStats + numMasked) + (mc->flags & kSeeFlags)];
  const unsigned mean = see->summ >> see->shift;
  see->summ = static_cast<uint16_t>(see->summ - mean);
  escapeFrequency = mean + (mean == 0);
  return see;
}

// ---- Updates after a symbol.

void RkPPMdMod::Update1First() {
  State* s = foundState_;
  Context* mc = minContext_;
  const unsigned freq = s->freq;
  const unsigned summ = SummFreq(mc);
  prevSuccess_ = 2 * freq >= summ;
  runLength_ = static_cast<int32_t>(static_cast<uint32_t>(runLength_) + prevSuccess_);
  SetSummFreq(mc, summ + 4);
  s->freq = static_cast<uint8_t>(freq + 4);
  if (freq + 4 > kMaxFreq) Rescale();
  NextContext();
}

void RkPPMdMod::Update1(State* s) {
  Context* mc = minContext_;
  s->freq = static_cast<uint8_t>(s->freq + 4);
  SetSummFreq(mc, SummFreq(mc) + 4);
  if (s[0].freq > s[-1].freq) {
    std::swap(s[0], s[-1]);
    foundState_ = --s;
    if (s->freq > kMaxFreq) Rescale();
  }
  NextContext();
}

void RkPPMdMod::Update2() {
  State* s = foundState_;
  Context* mc = minContext_;
  SetSummFreq(mc, SummFreq(mc) + 4);
  const unsigned freq = s->freq + 4u;
  s->freq = static_cast<uint8_t>(freq);
  if (freq > kMaxFreq) Rescale();
  runLength_ = initRunLength_;
  UpdateModel();
  minContext_ = maxContext_;
}

void RkPPMdMod::UpdateBinary() {
  State* s = foundState_;
  s->freq = static_cast<uint8_t>(s->freq + (s->freq < 196));
  prevSuccess_ = 1;
  runLength_ = static_cast<int32_t>(static_cast<uint32_t>(runLength_) + 1);
  NextContext();
}

// At full order with a real context next, the model just moves on; otherwise it grows.
void RkPPMdMod::NextContext() {
  const uint32_t successor = Successor(foundState_);
  if (orderFall_ == 0 && successor > heap_.Ref(heap_.text)) {
    minContext_ = maxContext_ = Ctx(successor);
  } else {
    UpdateModel();
    minContext_ = maxContext_;
  }
}

// Halves the frequencies of the context (keeping them at 1 at least while the model is below
// full order), sorts them, and drops the symbols that fall to 0.
void RkPPMdMod::Rescale() {
  Context* mc = minContext_;
  State* stats = Stats(mc);
  State* s = foundState_;
  {
    const State found = *s;
    for (; s != stats; --s) s[0] = s[-1];
    *s = found;
  }
  unsigned escFreq = SummFreq(mc) - s->freq;
  const unsigned adder = (orderFall_ != 0 || method_ > kFreeze) ? 1 : 0;
  s->freq = static_cast<uint8_t>((s->freq + 4 + adder) >> 1);
  unsigned sumFreq = s->freq;
  for (unsigned i = mc->numStats; i != 0; --i) {
    ++s;
    escFreq -= s->freq;
    s->freq = static_cast<uint8_t>((s->freq + adder) >> 1);
    sumFreq += s->freq;
    if (s[0].freq > s[-1].freq) {
      const State moving = *s;
      State* t = s;
      do t[0] = t[-1];
      while (--t != stats && moving.freq > t[-1].freq);
      *t = moving;
    }
  }

  if (s->freq == 0) {
    const unsigned oldNumStats = mc->numStats;
    unsigned zeros = 0;
    do ++zeros;
    while ((--s)->freq == 0);
    escFreq += zeros;
    const unsigned numStats = oldNumStats - zeros;
    mc->numStats = static_cast<uint8_t>(numStats);
    if (numStats == 0) {
      State only = *stats;
      escFreq = std::max(escFreq, 1u);
      only.freq = static_cast<uint8_t>(std::min((2u * only.freq + escFreq - 1) / escFreq, kMaxFreq / 3));
      heap_.FreeUnits(stats, (oldNumStats + 2) >> 1);
      mc->flags = static_cast<uint8_t>((mc->flags & 0x10) + HighFlag(only.symbol));
      *(foundState_ = OneState(mc)) = only;
      return;
    }
    stats = static_cast<State*>(heap_.ShrinkUnits(stats, (oldNumStats + 2) >> 1, (numStats + 2) >> 1));
    SetStats(mc, stats);
    unsigned flags = mc->flags & ~0x08u;
    for (unsigned i = 0; i <= numStats; ++i) flags |= HighFlag(stats[i].symbol);
    mc->flags = static_cast<uint8_t>(flags);
  }
  SetSummFreq(mc, sumFreq + escFreq - (escFreq >> 1));
  mc->flags |= 0x04;
  foundState_ = Stats(mc);
}

// Adds the found symbol to every context from the longest down to the one it was found in, and
// moves to the context that follows it, creating that context if it only exists as text yet.
void RkPPMdMod::UpdateModel() {
  State* const fs = foundState_;
  const uint8_t fSymbol = fs->symbol;
  const unsigned fFreq = fs->freq;
  uint32_t fSuccessor = Successor(fs);
  State* suffixState = nullptr;

  // The symbol also gains a little in the suffix of the context it was found in.
  if (fFreq < kMaxFreq / 4 && Load32(minContext_->suffix) != 0) {
    Context* c = Suffix(minContext_);
    if (c->numStats == 0) {
      suffixState = OneState(c);
      if (suffixState->freq < 32) ++suffixState->freq;
    } else {
      State* s = FindState(c, fSymbol);
      if (s != Stats(c) && s[0].freq >= s[-1].freq) {
        std::swap(s[0], s[-1]);
        --s;
      }
      if (s->freq < kMaxFreq - 9) {
        s->freq = static_cast<uint8_t>(s->freq + 2);
        SetSummFreq(c, SummFreq(c) + 2);
      }
      suffixState = s;
    }
  }

  Context* c = maxContext_;
  if (orderFall_ == 0 && fSuccessor != 0) {
    Context* next = CreateSuccessors(true, suffixState, minContext_);
    if (!next) {
      SetSuccessor(fs, 0);
      RestoreModel(c, fSuccessor);
    } else {
      SetSuccessor(fs, heap_.Ref(next));
      maxContext_ = next;
    }
    return;
  }

  if (heap_.text < heap_.TextStart()) ThrowBrokenModel();
  *heap_.text++ = fSymbol;
  uint32_t successor = heap_.Ref(heap_.text);
  if (heap_.text >= heap_.unitsStart) {
    RestoreModel(c, fSuccessor);
    return;
  }

  if (fSuccessor == 0) {
    Context* next = ReduceOrder(suffixState, minContext_);
    if (!next) {
      RestoreModel(c, 0);
      return;
    }
    fSuccessor = heap_.Ref(next);
  } else if (!IsContext(fSuccessor)) {
    Context* next = CreateSuccessors(false, suffixState, minContext_);
    if (!next) {
      RestoreModel(c, 0);
      return;
    }
    fSuccessor = heap_.Ref(next);
  }

  if (--orderFall_ == 0) {
    successor = fSuccessor;
    heap_.text -= (maxContext_ != minContext_);
  } else if (method_ > kFreeze) {
    successor = fSuccessor;
    heap_.text = heap_.TextStart();
    orderFall_ = 0;
  }

  const unsigned ns = minContext_->numStats;
  const uint32_t s0 = SummFreq(minContext_) - ns - fFreq;
  const uint8_t flag = HighFlag(fSymbol);
  for (; c != minContext_; c = Suffix(c)) {
    // The order-0 context lies below any context found in, and is full anyway.
    if (!c || c->numStats == 255) ThrowBrokenModel();
    const unsigned ns1 = c->numStats;
    if (ns1 != 0) {
      // An odd count fills its units; one more state may need the next size class.
      if ((ns1 & 1) != 0) {
        const unsigned oldUnits = (ns1 + 1) >> 1;
        const unsigned index = U2I(oldUnits);
        if (index != U2I(oldUnits + 1)) {
          void* grown = heap_.AllocUnits(index + 1);
          if (!grown) {
            RestoreModel(c, fSuccessor);
            return;
          }
          State* old = Stats(c);
          std::memcpy(grown, old, U2B(oldUnits));
          heap_.InsertNode(old, index);
          SetStats(c, grown);
        }
      }
      SetSummFreq(c, SummFreq(c) + (3 * ns1 + 1 < ns));
    } else {
      State* stats = static_cast<State*>(heap_.AllocUnits(0));
      if (!stats) {
        RestoreModel(c, fSuccessor);
        return;
      }
      *stats = *OneState(c);
      SetStats(c, stats);
      stats->freq = static_cast<uint8_t>(stats->freq < kMaxFreq / 4 - 1 ? stats->freq * 2 : kMaxFreq - 4);
      SetSummFreq(c, stats->freq + initEscape_ + (ns > 2));
    }

    // The new symbol's frequency, from its share in the context it was found in.
    uint32_t cf = 2 * fFreq * (SummFreq(c) + 6);
    const uint32_t sf = s0 + SummFreq(c);
    if (cf < 6 * sf) {
      cf = 1 + (cf > sf) + (cf >= 4 * sf);
      SetSummFreq(c, SummFreq(c) + 4);
    } else {
      cf = 4 + (cf > 9 * sf) + (cf > 12 * sf) + (cf > 15 * sf);
      SetSummFreq(c, SummFreq(c) + cf);
    }
    State* added = Stats(c) + ns1 + 1;
    SetSuccessor(added, successor);
    added->symbol = fSymbol;
    added->freq = static_cast<uint8_t>(cf);
    c->flags |= flag;
    c->numStats = static_cast<uint8_t>(ns1 + 1);
  }
  maxContext_ = minContext_ = Ctx(fSuccessor);
}

// Creates the contexts that the found state's text successor stands for: one for each suffix
// level whose state still points at the same text, each holding the symbol that followed.
RkPPMdMod::Context* RkPPMdMod::CreateSuccessors(bool skip, State* suffixState, Context* c) {
  const uint32_t upBranch = Successor(foundState_);
  const uint8_t fSymbol = foundState_->symbol;
  State* chain[kChainCap];
  unsigned chainLength = 0;
  if (!skip) chain[chainLength++] = foundState_;

  while (Context* suffix = Suffix(c)) {
    c = suffix;
    State* s;
    if (suffixState) {
      s = suffixState;
      suffixState = nullptr;
    } else if (c->numStats != 0) {
      s = FindState(c, fSymbol);
      if (s->freq < kMaxFreq - 9) {
        ++s->freq;
        SetSummFreq(c, SummFreq(c) + 1);
      }
    } else {
      s = OneState(c);
      const Context* below = Suffix(c);
      s->freq = static_cast<uint8_t>(s->freq + (below && below->numStats == 0 && s->freq < 24));
    }
    const uint32_t successor = Successor(s);
    if (successor != upBranch) {
      c = Ctx(successor);
      break;
    }
    if (chainLength == kChainCap) ThrowBrokenModel();
    chain[chainLength++] = s;
  }
  if (chainLength == 0) return c;

  State up;
  up.symbol = *heap_.Ptr(upBranch);
  SetSuccessor(&up, upBranch + 1);
  const uint8_t flags = static_cast<uint8_t>((fSymbol >= 0x40 ? 0x10 : 0) + HighFlag(up.symbol));
  if (c->numStats == 0) {
    up.freq = OneState(c)->freq;
  } else {
    const State* s = FindState(c, up.symbol);
    const uint32_t cf = s->freq - 1u;
    const uint32_t s0 = SummFreq(c) - c->numStats - cf;
    if (s0 == 0) ThrowBrokenModel();
    up.freq = static_cast<uint8_t>(1 + ((2 * cf <= s0) ? (5 * cf > s0) : ((cf + 2 * s0 - 3) / s0)));
  }

  do {
    Context* child = static_cast<Context*>(heap_.AllocContext());
    if (!child) return nullptr;
    child->numStats = 0;
    child->flags = flags;
    *OneState(child) = up;
    Store32(child->suffix, heap_.Ref(c));
    SetSuccessor(chain[--chainLength], heap_.Ref(child));
    c = child;
  } while (chainLength != 0);
  return c;
}

// The found state has no successor yet: it and the states of its suffixes that have none
// either are pointed at the text, until a suffix state with a successor turns up; that one gets
// a real context if it only has text.
RkPPMdMod::Context* RkPPMdMod::ReduceOrder(State* suffixState, Context* c) {
  const Context* const first = c;
  const uint32_t upBranch = heap_.Ref(heap_.text);
  const uint8_t fSymbol = foundState_->symbol;
  const bool frozen = method_ > kFreeze;
  State* chain[kChainCap];
  unsigned chainLength = 0;
  // A frozen model creates nothing: all of them go straight to the context found below.
  auto linkFrozen = [&](Context* target) {
    while (chainLength != 0) SetSuccessor(chain[--chainLength], heap_.Ref(target));
    heap_.text = heap_.TextStart() + 1;
    orderFall_ = 1;
    return target;
  };

  if (frozen) chain[chainLength++] = foundState_;
  SetSuccessor(foundState_, upBranch);
  ++orderFall_;

  State* s;
  for (;;) {
    if (suffixState) {
      c = Suffix(c);
      if (!c) ThrowBrokenModel();
      s = suffixState;
      suffixState = nullptr;
    } else {
      Context* suffix = Suffix(c);
      if (!suffix) return frozen ? linkFrozen(c) : c;
      c = suffix;
      if (c->numStats != 0) {
        s = FindState(c, fSymbol);
        if (s->freq < kMaxFreq - 9) {
          s->freq = static_cast<uint8_t>(s->freq + 2);
          SetSummFreq(c, SummFreq(c) + 2);
        }
      } else {
        s = OneState(c);
        s->freq = static_cast<uint8_t>(s->freq + (s->freq < 32));
      }
    }
    if (Successor(s) != 0) break;
    if (frozen) {
      if (chainLength == kChainCap) ThrowBrokenModel();
      chain[chainLength++] = s;
    }
    SetSuccessor(s, upBranch);
    ++orderFall_;
  }

  if (frozen) return linkFrozen(Ctx(Successor(s)));
  if (Successor(s) <= upBranch) {
    State* const saved = foundState_;
    foundState_ = s;
    Context* created = CreateSuccessors(false, nullptr, c);
    SetSuccessor(s, created ? heap_.Ref(created) : 0);
    foundState_ = saved;
  }
  if (orderFall_ == 1 && first == maxContext_) {
    SetSuccessor(foundState_, Successor(s));
    --heap_.text;
  }
  const uint32_t successor = Successor(s);
  return successor ? Ctx(successor) : nullptr;
}

// ---- Running out of memory.

// Takes the found symbol back out of the contexts it was just added to (from the longest down
// to `stop`), settles the ones below, and then applies the restore method.
void RkPPMdMod::RestoreModel(Context* stop, uint32_t foundSuccessor) {
  ++restores_;
  heap_.text = heap_.TextStart();
  Context* c = maxContext_;
  for (; c != stop; c = Suffix(c)) {
    if (!c || c->numStats == 0) ThrowBrokenModel();
    if (--c->numStats == 0) {
      State* stats = Stats(c);
      c->flags = static_cast<uint8_t>((c->flags & 0x10) + HighFlag(stats->symbol));
      *OneState(c) = *stats;
      heap_.SpecialFreeUnit(stats);
      OneState(c)->freq = static_cast<uint8_t>((OneState(c)->freq + 11u) >> 3);
    } else {
      Refresh(c, (c->numStats + 3u) >> 1, 0);
    }
  }
  for (; c != minContext_; c = Suffix(c)) {
    if (!c) ThrowBrokenModel();
    if (c->numStats == 0) {
      State* s = OneState(c);
      s->freq = static_cast<uint8_t>(s->freq - (s->freq >> 1));
    } else {
      SetSummFreq(c, SummFreq(c) + 4);
      if (SummFreq(c) > 128 + 4u * c->numStats) Refresh(c, (c->numStats + 2u) >> 1, 1);
    }
  }

  if (method_ > kFreeze) {
    // Frozen: nothing is freed any more; the model goes on from the found successor.
    if (foundSuccessor == 0) ThrowBrokenModel();
    maxContext_ = Ctx(foundSuccessor);
    heap_.glueCount += !(heap_.FreeCount(1) & 1);
  } else if (method_ == kFreeze) {
    while (Context* suffix = Suffix(maxContext_)) maxContext_ = suffix;
    RemoveBinaryContexts(maxContext_, 0);
    ++method_;
    heap_.glueCount = 0;
    orderFall_ = maxOrder_;
  } else if (method_ == kRestart || heap_.UsedMemory() < (heap_.Size() >> 1)) {
    RestartModel();
  } else {
    while (Context* suffix = Suffix(maxContext_)) maxContext_ = suffix;
    do {
      CutOff(maxContext_, 0);
      heap_.ExpandTextArea();
    } while (heap_.UsedMemory() > 3 * (heap_.Size() >> 2));
    heap_.glueCount = 0;
    orderFall_ = maxOrder_;
  }
}

// Shrinks the stats of a context that has lost symbols, optionally halving the frequencies.
void RkPPMdMod::Refresh(Context* c, unsigned oldUnits, unsigned scale) {
  unsigned i = c->numStats;
  State* s = static_cast<State*>(heap_.ShrinkUnits(Stats(c), oldUnits, (i + 2) >> 1));
  SetStats(c, s);
  // A sum past 15 bits would wrap; halving then keeps it in range.
  scale |= SummFreq(c) >= 0x8000u;
  unsigned flags = (c->flags & (0x10 + 0x04 * scale)) + HighFlag(s->symbol);
  unsigned escFreq = SummFreq(c) - s->freq;
  s->freq = static_cast<uint8_t>((s->freq + scale) >> scale);
  unsigned sumFreq = s->freq;
  do {
    ++s;
    escFreq -= s->freq;
    s->freq = static_cast<uint8_t>((s->freq + scale) >> scale);
    sumFreq += s->freq;
    flags |= HighFlag(s->symbol);
  } while (--i);
  SetSummFreq(c, sumFreq + ((escFreq + scale) >> scale));
  c->flags = static_cast<uint8_t>(flags);
}

// Drops every state whose successor is only text, and the contexts that are left empty, below
// `order` and up to the model order. Returns the context's ref, or 0 if it went.
uint32_t RkPPMdMod::CutOff(Context* c, unsigned order) {
  if (c->numStats == 0) {
    State* s = OneState(c);
    if (IsContext(Successor(s))) {
      SetSuccessor(s, order < maxOrder_ ? CutOff(Ctx(Successor(s)), order + 1) : 0);
      if (Successor(s) != 0 || order <= kCutOffKeepOrder) return heap_.Ref(c);
    }
    heap_.SpecialFreeUnit(c);
    return 0;
  }

  const unsigned units = (c->numStats + 2u) >> 1;
  SetStats(c, heap_.MoveUnitsUp(Stats(c), units));
  State* stats = Stats(c);
  int kept = c->numStats;  // states [0, kept] are still in; dropped ones go behind them
  for (int k = c->numStats; k >= 0; --k) {
    State* s = stats + k;
    if (!IsContext(Successor(s))) {
      SetSuccessor(s, 0);
      std::swap(*s, stats[kept--]);
    } else if (order < maxOrder_) {
      SetSuccessor(s, CutOff(Ctx(Successor(s)), order + 1));
    } else {
      SetSuccessor(s, 0);
    }
  }

  if (kept != c->numStats && order != 0) {
    c->numStats = static_cast<uint8_t>(kept);
    if (kept < 0) {
      heap_.FreeUnits(stats, units);
      heap_.SpecialFreeUnit(c);
      return 0;
    }
    if (kept == 0) {
      c->flags = static_cast<uint8_t>((c->flags & 0x10) + HighFlag(stats->symbol));
      *OneState(c) = *stats;
      heap_.FreeUnits(stats, units);
      OneState(c)->freq = static_cast<uint8_t>((OneState(c)->freq + 11u) >> 3);
    } else {
      Refresh(c, units, SummFreq(c) > 16u * static_cast<unsigned>(kept));
    }
  }
  return heap_.Ref(c);
}

// Freezing: binary contexts that lead nowhere are freed, and successors into the text are cut.
uint32_t RkPPMdMod::RemoveBinaryContexts(Context* c, unsigned order) {
  if (c->numStats == 0) {
    State* s = OneState(c);
    if (IsContext(Successor(s)) && order < maxOrder_) {
      SetSuccessor(s, RemoveBinaryContexts(Ctx(Successor(s)), order + 1));
    } else {
      SetSuccessor(s, 0);
    }
    // The suffix may have gone already, through another successor that shared it; its freed
    // unit shows flags 0xFF.
    const Context* suffix = Suffix(c);
    if (Successor(s) == 0 && suffix && (suffix->numStats == 0 || suffix->flags == 0xFF)) {
      heap_.FreeUnits(c, 1);
      return 0;
    }
    return heap_.Ref(c);
  }
  State* stats = Stats(c);
  for (int k = c->numStats; k >= 0; --k) {
    State* s = stats + k;
    if (IsContext(Successor(s)) && order < maxOrder_) {
      SetSuccessor(s, RemoveBinaryContexts(Ctx(Successor(s)), order + 1));
    } else {
      SetSuccessor(s, 0);
    }
  }
  return heap_.Ref(c);
}

}  // namespace RkPipeLib
