// Arbitrary bytes through RkMemIn -> RkInflate -> RkMemOut in real pipes, twice: once with tiny
// buffers and the plain fast loop, once with large buffers and the BMI2 loop. The two runs must
// agree on the error code, and when they decode, on every byte and on bytesRead; when they fail,
// what reached the target (as far as the pipe carried it) is a start of the other's output. In
// plain deflate mode zlib's raw inflate is the reference:
//
// - zlib decodes: ours gives the same bytes and reads exactly as many input bytes;
// - zlib rejects: ours raises an RkError, except for what the node accepts on purpose, where
//   ours may also decode, with zlib's output up to its error as a start of ours:
//     codes with room left unused (zlib: "invalid code lengths set", "invalid literal/lengths
//     set", "invalid distances set"), up to 288 literal and 32 distance codes ("too many length
//     or distance symbols"), distance codes 30 and 31 ("invalid distance code"), distances
//     before the start of the data ("invalid distance too far back"), and a repeat of the
//     previous length before any length, taken as zero ("invalid bit length repeat");
// - zlib decodes a block that has no distance code but 258 or more literal and length codes,
//   while no length comes: the node refuses that block at once, as it should.
//
// Output stops at a cap; past that only the common start is compared.
#include <fuzzer/FuzzedDataProvider.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "RkError.h"
#include "RkInflate.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kCap = 3u << 20;
constexpr uint64_t kTinyCap = 256u << 10;  // tiny buffers cost a hand-over each

// A failed check names its line before the trap, for the triage of a crash file.
#define Check(ok)                                                      \
  do {                                                                 \
    if (!(ok)) {                                                       \
      std::fprintf(stderr, "check failed at line %d: %s\n", __LINE__, #ok); \
      __builtin_trap();                                                \
    }                                                                  \
  } while (0)

struct Result {
  Bytes bytes;
  uint32_t code = 0;
  int64_t bytesRead = -1;
  bool capped = false;
};

Result RunNode(const Bytes& stream, int mode, int32_t inSize, int32_t outSize, bool bmi2, uint64_t cap) {
  RkPipeLib::RkStreamSettings in, out;
  in.pipeBufferSize = inSize;
  out.pipeBufferSize = outSize;
  RkPipeLib::RkMemIn source(stream.data(), stream.size(), nullptr, nullptr, in);
  RkPipeLib::RkInflate inflate(mode, nullptr, nullptr, out);
  inflate.UseBmi2(bmi2);
  RkPipeLib::RkMemOut target(nullptr, nullptr, cap, out);
  RkPipeLib::RkPipe pipe(&source, {&inflate}, &target);
  Result r;
  try {
    pipe.Run(nullptr);
  } catch (const RkLib::RkError& e) {
    r.code = e.code();
    Check(e.isSevere() && (r.code == 7010 || r.code == 7006));
  }
  r.bytes = target.Bytes();
  r.capped = r.bytes.size() >= cap;
  if (r.capped) r.bytes.resize(cap);
  r.bytesRead = inflate.InputBytesRead();
  return r;
}

struct ZlibResult {
  Bytes bytes;
  int ret = Z_OK;
  std::string message;
  uint64_t consumed = 0;
  bool capped = false;
};

ZlibResult RunZlib(const Bytes& stream) {
  ZlibResult r;
  z_stream z{};
  Check(inflateInit2(&z, -15) == Z_OK);
  r.bytes.resize(kCap);
  z.next_in = const_cast<Bytes::value_type*>(stream.data());
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = r.bytes.data();
  z.avail_out = static_cast<uInt>(kCap);
  r.ret = inflate(&z, Z_FINISH);
  if (z.msg) r.message = z.msg;
  r.consumed = z.total_in;
  r.bytes.resize(z.total_out);
  r.capped = r.ret != Z_STREAM_END && z.avail_out == 0;
  inflateEnd(&z);
  return r;
}

bool Tolerated(const std::string& message) {
  static const char* const kAccepted[] = {
      "invalid code lengths set",      "invalid literal/lengths set",         "invalid distances set",
      "invalid distance code",         "too many length or distance symbols", "invalid distance too far back",
      "invalid bit length repeat",
  };
  return std::any_of(std::begin(kAccepted), std::end(kAccepted), [&](const char* m) { return message == m; });
}

// ---- Finding a block without distance codes in a stream that zlib decodes.

struct BitCursor {
  const Bytes& data;
  uint64_t pos;
  uint32_t Get(uint32_t n) {
    uint32_t v = 0;
    for (uint32_t i = 0; i < n; ++i, ++pos) {
      const uint32_t bit = pos / 8 < data.size() ? (data[pos / 8] >> (pos % 8)) & 1 : 0;
      v |= bit << i;
    }
    return v;
  }
};

// Reads a dynamic block header that zlib has accepted, from its first bit, and answers whether
// it has 258 or more literal and length codes but only zero distance lengths.
bool LacksDistances(const Bytes& stream, uint64_t blockStart) {
  BitCursor b{stream, blockStart};
  b.Get(1);
  if (b.Get(2) != 2) return false;
  const uint32_t literals = b.Get(5) + 257, distances = b.Get(5) + 1, clCount = b.Get(4) + 4;
  static const uint32_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
  uint32_t cl[19] = {};
  for (uint32_t i = 0; i < clCount; ++i) cl[kOrder[i]] = b.Get(3);
  // A canonical decoder one bit at a time: count per length, symbols in code order.
  uint32_t count[8] = {}, symbols[19], n = 0;
  for (uint32_t s = 0; s < 19; ++s) ++count[cl[s]];
  for (uint32_t len = 1; len < 8; ++len)
    for (uint32_t s = 0; s < 19; ++s)
      if (cl[s] == len) symbols[n++] = s;
  auto decode = [&] {
    int32_t code = 0, first = 0, index = 0;
    for (uint32_t len = 1; len < 8; ++len) {
      code |= static_cast<int32_t>(b.Get(1));
      const int32_t c = static_cast<int32_t>(count[len]);
      if (code - first < c) return symbols[index + code - first];
      index += c;
      first = (first + c) << 1;
      code <<= 1;
    }
    return 0u;  // zlib checked the code; not reached
  };
  std::vector<uint32_t> lengths;
  while (lengths.size() < literals + distances) {
    const uint32_t s = decode();
    if (s < 16) {
      lengths.push_back(s);
    } else {
      const uint32_t repeat = s == 16 ? 3 + b.Get(2) : s == 17 ? 3 + b.Get(3) : 11 + b.Get(7);
      const uint32_t value = s == 16 ? lengths.back() : 0;
      lengths.insert(lengths.end(), repeat, value);
    }
  }
  return literals >= 258 && std::all_of(lengths.begin() + literals, lengths.end(), [](uint32_t l) { return l == 0; });
}

// Walks the blocks with zlib, stopping after each block's end and after each header.
bool HasBlockWithoutDistances(const Bytes& stream) {
  z_stream z{};
  Check(inflateInit2(&z, -15) == Z_OK);
  Bytes sink(1 << 16);
  z.next_in = const_cast<Bytes::value_type*>(stream.data());
  z.avail_in = static_cast<uInt>(stream.size());
  uint64_t blockStart = 0;
  bool found = false;
  for (uint64_t out = 0; out < kCap && !found;) {
    z.next_out = sink.data();
    z.avail_out = static_cast<uInt>(sink.size());
    const int ret = inflate(&z, Z_TREES);
    out += sink.size() - z.avail_out;
    const uint64_t at = z.total_in * 8 - (z.data_type & 7);
    if (z.data_type & 256) found = LacksDistances(stream, blockStart);
    if (z.data_type & 128) blockStart = at;
    if (ret != Z_OK) break;
  }
  inflateEnd(&z);
  return found;
}

bool StartsWith(const Bytes& whole, const Bytes& start) {
  return start.size() <= whole.size() && std::equal(start.begin(), start.end(), whole.begin());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const uint8_t config = in.ConsumeIntegral<uint8_t>();
  const int mode = config & 1;
  const Bytes stream = in.ConsumeRemainingBytes<uint8_t>();
  // Each buffer costs a hand-over between threads: the tiny sizes grow with the input so that a
  // run stays near a hundred of them.
  const int32_t tinyIn = static_cast<int32_t>(1 + stream.size() / 128 + (config >> 1) % 23);
  static const int32_t kTinyOut[4] = {257, 1031, 4099, 16411};
  const int32_t tinyOut = kTinyOut[(config >> 6) & 3];

  const Result tiny = RunNode(stream, mode, tinyIn, tinyOut, false, kTinyCap);
  const Result large = RunNode(stream, mode, 1 << 16, 1 << 16, true, kCap);
  if (tiny.capped || large.capped) {
    const size_t n = std::min(tiny.bytes.size(), large.bytes.size());
    Check(std::equal(tiny.bytes.begin(), tiny.bytes.begin() + static_cast<std::ptrdiff_t>(n), large.bytes.begin()));
  } else if (tiny.code == 0 || large.code == 0) {
    Check(tiny.code == large.code && tiny.bytes == large.bytes && tiny.bytesRead == large.bytesRead);
  } else {
    // A failed run passes on what went out before the failure, as far as the pipe carried it
    // by then: one start of the output is a start of the other.
    Check(tiny.code == large.code);
    Check(StartsWith(tiny.bytes, large.bytes) || StartsWith(large.bytes, tiny.bytes));
  }
  if (mode != 0) return 0;

  const ZlibResult z = RunZlib(stream);
  const Result& ours = large;
  if (z.capped || ours.capped) {
    const size_t n = std::min(z.bytes.size(), ours.bytes.size());
    Check(std::equal(z.bytes.begin(), z.bytes.begin() + static_cast<std::ptrdiff_t>(n), ours.bytes.begin()));
    return 0;
  }
  if (z.ret == Z_STREAM_END) {
    if (ours.code == 7010 && HasBlockWithoutDistances(stream)) return 0;
    Check(ours.code == 0);
    Check(ours.bytes == z.bytes);
    Check(ours.bytesRead == static_cast<int64_t>(z.consumed));
    return 0;
  }
  if (z.ret == Z_DATA_ERROR && Tolerated(z.message)) {
    Check(ours.code != 0 || StartsWith(ours.bytes, z.bytes));
    return 0;
  }
  Check(ours.code != 0);
  return 0;
}
