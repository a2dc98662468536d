// Inflate through real pipes. Streams come from python3's zlib at representative levels and
// strategies, from gzip and from 7zz (plain and Deflate64 in zip), made at test time from samples
// the test writes; hand-made streams cover the rules of the format that encoders never exercise.
// Input and output are cut into buffers as small as one byte, and a stream is split at every position.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RkCrc32.h"
#include "RkInflate.h"
#include "RkLegacyZipTestUtil.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkInflate;
using RkPipeLib::RkMemOut;

constexpr int kDeflate = 0;
constexpr int kDeflate64 = 1;
constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr int32_t kLarge = 512 * 1024;

struct Outcome {
  Bytes bytes;
  uint32_t code = 0;  // 0: the pipe ran through
  bool severe = false;
  int64_t bytesRead = -1;
};

// Sends the input in the pieces given, one buffer each.
class PieceSource : public RkPipeLib::RkSourceNode {
 public:
  PieceSource(const Bytes& data, std::vector<size_t> cuts, const RkStreamSettings& settings)
      : RkSourceNode(nullptr, nullptr, settings), data_(data), cuts_(std::move(cuts)) {}
  void Run() override {
    size_t at = 0;
    for (size_t i = 0; i <= cuts_.size(); ++i) {
      const size_t end = i < cuts_.size() ? cuts_[i] : data_.size();
      RkPipeBuffer* buffer = output_.getFree();
      std::memcpy(buffer->base(), data_.data() + at, end - at);
      buffer->setLength(end - at);
      output_.put(buffer);
      at = end;
    }
    output_.finish(nullptr);
    output_.setLast();
  }

 private:
  const Bytes& data_;
  std::vector<size_t> cuts_;
};

struct Config {
  int mode = kDeflate;
  RkStreamSettings in = SmallSettings(kLarge);   // the source's buffers
  RkStreamSettings out = SmallSettings(kLarge);  // the decoder's output and the target's
  bool bmi2 = true;
};

Config Cfg(int mode, int32_t in = kLarge, int32_t out = kLarge, bool bmi2 = true, int32_t count = 2) {
  return {mode, SmallSettings(in, count), SmallSettings(out, count), bmi2};
}

Outcome RunThrough(RkPipeLib::RkSourceNode& source, RkInflate& inflate, const RkStreamSettings& out) {
  RkMemOut target(nullptr, nullptr, RkMemOut::kNoLimit, out);
  RkPipeLib::RkPipe pipe(&source, {&inflate}, &target);
  Outcome o;
  try {
    EXPECT_TRUE(pipe.Run(nullptr));
  } catch (const RkLib::RkError& e) {
    o.code = e.code();
    o.severe = e.isSevere();
  }
  o.bytes = target.Bytes();
  o.bytesRead = inflate.InputBytesRead();
  return o;
}

Outcome Inflate(const Bytes& input, const Config& s = {}) {
  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, s.in);
  RkInflate inflate(s.mode, nullptr, nullptr, s.out);
  inflate.UseBmi2(s.bmi2);
  return RunThrough(source, inflate, s.out);
}

Outcome InflatePieces(const Bytes& input, std::vector<size_t> cuts, int mode) {
  const RkStreamSettings settings = SmallSettings(static_cast<int32_t>(input.size() + 1), 3);
  PieceSource source(input, std::move(cuts), settings);
  RkInflate inflate(mode, nullptr, nullptr, settings);
  return RunThrough(source, inflate, settings);
}

// Deterministic data with what real files mix: words, numbered records, noise, runs of one byte
// and short periodic patterns (the copies of distances below 8), in pieces of varying length.
Bytes MakeSample(size_t size, uint32_t seed) {
  static const char* const kWords[] = {"the ",      "inflate ", "window ", "of ",     "a ",    "stream ",
                                       "block ",    "and ",     "code ",   "length ", "tree ", "\n",
                                       "distance ", "literal ", "match ",  "table ",  "bits ", ", "};
  Bytes out;
  out.reserve(size);
  uint32_t x = seed * 2654435761u + 1;
  auto next = [&x] {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    return x;
  };
  while (out.size() < size) {
    const uint32_t kind = next() % 5;
    const size_t piece = 64 + next() % 4000;
    for (size_t i = 0; i < piece && out.size() < size; ++i) {
      if (kind == 0) {
        for (const char* w = kWords[next() % std::size(kWords)]; *w && out.size() < size; ++w)
          out.push_back(static_cast<uint8_t>(*w));
      } else if (kind == 2) {
        out.push_back(static_cast<uint8_t>(next()));
      } else {
        out.push_back(static_cast<uint8_t>(kind == 1   ? (out.size() / 16) >> (8 * (i % 4))
                                           : kind == 3 ? piece
                                                       : "abcdefg"[i % (2 + piece % 6)]));
      }
    }
  }
  return out;
}

// Writes the samples, compresses them with python3's zlib, gzip and 7zz, and pulls the raw
// streams out of the gzip and zip files. Prints "name size" for each stream it made.
constexpr const char* kMaker = R"PY(
import os, shutil, struct, subprocess, sys, zipfile, zlib
folder = sys.argv[1]
def path(name): return os.path.join(folder, name)
def read(name): return open(path(name), 'rb').read()
def write(name, data):
    open(path(name), 'wb').write(data)
    print(name, len(data))
sample = read('sample.bin')
strategies = {'default': zlib.Z_DEFAULT_STRATEGY, 'filtered': zlib.Z_FILTERED,
              'huffman': zlib.Z_HUFFMAN_ONLY, 'rle': zlib.Z_RLE, 'fixed': zlib.Z_FIXED}
for level, name in (sys.argv[2 + i].split('-') for i in range(len(sys.argv) - 2)):
    c = zlib.compressobj(int(level), zlib.DEFLATED, -15, 9, strategies[name])
    write('z%s-%s.raw' % (level, name), c.compress(sample) + c.flush())
for name in ('big', 'small'):
    data = read(name + '.bin')
    for level in (0, 1, 6, 9):
        c = zlib.compressobj(level, zlib.DEFLATED, -15)
        write('%s%d.raw' % (name, level), c.compress(data) + c.flush())
# gzip -n sets no flag, so the raw stream starts at 10; the 8-byte trailer stays behind it.
if shutil.which('gzip'):
    for level in ('1', '9'):
        gz = subprocess.run(['gzip', '-c', '-n', '-' + level, path('sample.bin')],
                            check=True, stdout=subprocess.PIPE).stdout
        assert gz[3] == 0
        write('gzip%s.raw' % level, gz[10:])
        d = zlib.decompressobj(-15)
        d.decompress(gz[10:])
        print('gzip%s.deflated' % level, len(gz) - 10 - len(d.unused_data))
# 7zz: a zip per method; the stream lies after the local header of its entry.
if shutil.which('7zz'):
    for method, name in (('Deflate64', 'big'), ('Deflate64', 'small'), ('Deflate', 'big')):
        zip_name = path('7zz-%s-%s.zip' % (method, name))
        subprocess.run(['7zz', 'a', '-tzip', '-mm=' + method, '-mx=9', zip_name, path(name + '.bin')],
                       check=True, stdout=subprocess.DEVNULL)
        info, raw = zipfile.ZipFile(zip_name).infolist()[0], open(zip_name, 'rb').read()
        assert info.compress_type == (9 if method == 'Deflate64' else 8)
        name_length, extra_length = struct.unpack('<HH', raw[info.header_offset + 26:info.header_offset + 30])
        start = info.header_offset + 30 + name_length + extra_length
        write('7zz-%s-%s.raw' % (method, name), raw[start:start + info.compress_size])
print('done 1')
)PY";

// Level 0 is stored whatever the strategy; huffman and rle ignore the level; filtered differs from
// default only with lazy matching; fixed changes the block type at any level.
constexpr const char* kZlibCases[] = {"0-default", "1-default", "6-default", "9-default", "6-filtered",
                                      "1-huffman", "6-rle",     "1-fixed",   "9-fixed"};

// The streams are made once for the whole suite, on first need.
class Fixtures {
 public:
  static const Fixtures& Get() {
    static const Fixtures fixtures;
    return fixtures;
  }
  bool Has(const std::string& name) const { return made_.count(name) != 0; }
  Bytes Stream(const std::string& name) const { return ReadAll(folder_ / name); }
  uint64_t Fact(const std::string& name) const { return made_.at(name); }

  const Bytes sample = MakeSample(600 * 1024, 1), big = MakeSample(3 * 1024 * 1024 + 777, 2),
              small = MakeSample(3000, 3);
  bool ok = false;

 private:
  Fixtures() {
    WriteAll(folder_ / "sample.bin", sample);
    WriteAll(folder_ / "big.bin", big);
    WriteAll(folder_ / "small.bin", small);
    std::ofstream(folder_ / "maker.py") << kMaker;
    std::string command = "python3 '" + folder_ / "maker.py" + "' '" + folder_ / "" + "'";
    for (const char* c : kZlibCases) command += std::string(" ") + c;
    const bool exited = std::system((command + " >'" + folder_ / "made.txt" + "' 2>&1").c_str()) == 0;
    std::ifstream lines(folder_ / "made.txt");
    std::string name;
    uint64_t value;
    while (lines >> name >> value) made_[name] = value;
    ok = exited && Has("done");
    const Bytes text = ReadAll(folder_ / "made.txt");
    if (!ok) std::fprintf(stderr, "the stream maker failed:\n%s\n", std::string(text.begin(), text.end()).c_str());
  }

  ScratchFolder folder_;
  std::map<std::string, uint64_t> made_;
};

#define FIXTURES_OR_SKIP()                                                         \
  do {                                                                             \
    if (!HaveTool("python3")) GTEST_SKIP() << "needs python3";                     \
    ASSERT_TRUE(Fixtures::Get().ok) << "python3 could not make the streams";       \
  } while (0)

// Checks a run that should have decoded `expected` from the first `streamSize` bytes of its input.
void ExpectDecoded(const Outcome& o, const Bytes& expected, size_t streamSize, const char* what) {
  ASSERT_EQ(o.code, 0u) << what;
  ASSERT_EQ(o.bytes.size(), expected.size()) << what;
  EXPECT_TRUE(o.bytes == expected) << what << ": the bytes differ";
  EXPECT_EQ(o.bytesRead, static_cast<int64_t>(streamSize)) << what;
}

class InflateZlib : public PipeTest, public testing::WithParamInterface<const char*> {};

// Through both fast loops, and with junk behind the stream.
TEST_P(InflateZlib, Decodes) {
  FIXTURES_OR_SKIP();
  const Fixtures& f = Fixtures::Get();
  const Bytes stream = f.Stream(std::string("z") + GetParam() + ".raw");
  ExpectDecoded(Inflate(stream), f.sample, stream.size(), "bmi2");
  ExpectDecoded(Inflate(stream, Cfg(kDeflate, kLarge, kLarge, false)), f.sample, stream.size(), "plain");
  ExpectDecoded(Inflate(Concat(stream, Bytes(100, 0xA5))), f.sample, stream.size(), "junk behind");
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, InflateZlib, testing::ValuesIn(kZlibCases), [](const auto& row) {
  std::string name = std::string("Level") + row.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

// Past the 1 MiB window, so that it goes out whole and matches reach back across its start; gzip's
// and 7zz's streams, Deflate64 included; and buffers as small as one byte in and out.
TEST_F(PipeTest, InflateDecodesOtherEncodersStreamsThroughAnyBuffers) {
  FIXTURES_OR_SKIP();
  Watchdog watchdog(std::chrono::seconds(300), "the encoders' streams");
  const Fixtures& f = Fixtures::Get();
  const struct {
    const char* stream;
    const Bytes& expected;
    Config config;
    const char* length = nullptr;  // the fact that gives the stream's length, if not its own name
  } cases[] = {
      {"big1.raw", f.big, Cfg(kDeflate, 4096, 1 << 20)},
      {"big1.raw", f.big, Cfg(kDeflate, 1 << 20, 1 << 20)},
      {"big1.raw", f.big, Cfg(kDeflate, 1000, 777, true, 3)},
      {"big9.raw", f.big, Cfg(kDeflate, 4096, 1 << 20)},
      {"big9.raw", f.big, Cfg(kDeflate, 1 << 20, 1 << 20)},
      {"big9.raw", f.big, Cfg(kDeflate, 1000, 777, true, 3)},
      {"gzip1.raw", f.sample, Cfg(kDeflate), "gzip1.deflated"},  // the 8-byte trailer stays behind
      {"gzip9.raw", f.sample, Cfg(kDeflate), "gzip9.deflated"},
      {"small6.raw", f.small, Cfg(kDeflate64)},  // without the long length code the modes agree
      {"small6.raw", f.small, Cfg(kDeflate, 1, 1 << 16)},
      {"small6.raw", f.small, Cfg(kDeflate, 1 << 16, 1)},
      {"small1.raw", f.small, Cfg(kDeflate, 1, 1)},
      {"small9.raw", f.small, Cfg(kDeflate, 3, 7)},
      {"7zz-Deflate64-small.raw", f.small, Cfg(kDeflate64, 1, 1 << 16)},
      {"7zz-Deflate64-small.raw", f.small, Cfg(kDeflate64, 2, 3)},
      {"7zz-Deflate64-big.raw", f.big, Cfg(kDeflate64)},
      {"7zz-Deflate64-big.raw", f.big, Cfg(kDeflate64, kLarge, kLarge, false)},
      {"7zz-Deflate-big.raw", f.big, Cfg(kDeflate)},
  };
  for (const auto& c : cases) {
    if (!f.Has(c.stream)) continue;
    const std::string what = std::string(c.stream) + " in " + std::to_string(c.config.in.pipeBufferSize) + " out " +
                             std::to_string(c.config.out.pipeBufferSize) + (c.config.bmi2 ? "" : " plain");
    ExpectDecoded(Inflate(f.Stream(c.stream), c.config), c.expected, f.Fact(c.length ? c.length : c.stream),
                  what.c_str());
  }
  if (!f.Has("7zz-Deflate-big.raw") || !f.Has("gzip1.raw")) GTEST_SKIP() << "7zz or gzip is missing: not all checked";
}

// The input cut at every position: each cut falls somewhere in the bit buffer's refills, a code,
// its extra bits or a block header, and the fast loop meets the end of each piece. Every proper
// prefix ends before the final block does.
TEST_F(PipeTest, InflateDecodesAStreamSplitAtEveryPositionAndNoPrefix) {
  FIXTURES_OR_SKIP();
  const Fixtures& f = Fixtures::Get();
  for (const char* name : {"small6.raw", "small0.raw", "7zz-Deflate64-small.raw"}) {
    if (!f.Has(name)) continue;
    const int mode = name[0] == '7' ? kDeflate64 : kDeflate;
    const Bytes stream = f.Stream(name);
    for (size_t cut = 1; cut < stream.size(); ++cut) {
      std::vector<size_t> cuts = {cut};
      if (mode == kDeflate64 && cut > 1) cuts.insert(cuts.begin(), cut / 2);
      const Outcome o = InflatePieces(stream, cuts, mode);
      ASSERT_EQ(o.code, 0u) << name << " cut at " << cut;
      ASSERT_TRUE(o.bytes == f.small) << name << " cut at " << cut;
      ASSERT_EQ(o.bytesRead, static_cast<int64_t>(stream.size())) << name << " cut at " << cut;
      if (std::string(name) == "small0.raw") continue;  // stored: its prefixes take long and teach little
      const Outcome prefix = Inflate(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(cut)),
                                     Cfg(mode, 64));
      ASSERT_EQ(prefix.code, kReadPastEnd) << name << " prefix of " << cut;
      ASSERT_TRUE(prefix.severe);
    }
  }
}

// Deflate's fields, chained: values least significant bit first, prefix codes most significant
// bit first.
class BitWriter : LsbBitWriter {
 public:
  BitWriter& Bits(uint32_t value, uint32_t n) {
    Put(n == 0 ? 0 : value & (0xFFFFFFFFu >> (32 - n)), n);
    return *this;
  }
  BitWriter& Code(uint32_t code, uint32_t length) {
    PutCode(code, length);
    return *this;
  }
  BitWriter& Align() { return Bits(0, (8 - BitCount() % 8) % 8); }
  BitWriter& Byte(uint8_t b) { return Bits(b, 8); }
  // The fixed block's codes.
  BitWriter& FixedSymbol(uint32_t s) {
    if (s < 144) return Code(0x30 + s, 8);
    if (s < 256) return Code(0x190 + s - 144, 9);
    if (s < 280) return Code(s - 256, 7);
    return Code(0xC0 + s - 280, 8);
  }
  BitWriter& FixedDistance(uint32_t code) { return Code(code, 5); }
  BitWriter& Header(bool last, uint32_t type) { return Bits(last, 1).Bits(type, 2); }
  Bytes Done() { return Finish(); }
};

// Canonical codes of a list of lengths.
std::vector<uint32_t> CanonicalCodes(const std::vector<uint8_t>& lengths) {
  std::vector<uint32_t> codes(lengths.size());
  uint32_t code = 0;
  for (uint32_t len = 1; len <= 15; ++len) {
    for (size_t s = 0; s < lengths.size(); ++s)
      if (lengths[s] == len) codes[s] = code++;
    code <<= 1;
  }
  return codes;
}

// A dynamic block header, by default with a complete code-length code: 0 to 14 in 4 bits, 15 to 18 in 6.
struct DynamicHeader {
  std::vector<uint8_t> literal;   // HLIT entries
  std::vector<uint8_t> distance;  // HDIST entries
  std::vector<uint8_t> clLengths = {4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 6, 6, 6, 6};
};

// `hlit` literal/length lengths, zero but for `set`.
DynamicHeader Dh(size_t hlit, std::initializer_list<std::pair<uint32_t, uint8_t>> set, std::vector<uint8_t> distance) {
  DynamicHeader h{std::vector<uint8_t>(hlit, 0), std::move(distance)};
  for (const auto& [symbol, length] : set) h.literal[symbol] = length;
  return h;
}

std::vector<uint8_t> ClLengths(std::initializer_list<std::pair<uint32_t, uint8_t>> set) {
  std::vector<uint8_t> lengths(19, 0);
  for (const auto& [symbol, length] : set) lengths[symbol] = length;
  return lengths;
}

constexpr uint32_t kClOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

// A final dynamic block's header, then the code-length symbols given, each as symbol | extra << 5,
// so that repeats can be written by hand.
BitWriter Dynamic(const DynamicHeader& h, const std::vector<uint32_t>& symbols) {
  BitWriter w;
  w.Header(true, 2).Bits(static_cast<uint32_t>(h.literal.size() - 257), 5);
  w.Bits(static_cast<uint32_t>(h.distance.size() - 1), 5).Bits(19 - 4, 4);
  for (uint32_t s : kClOrder) w.Bits(h.clLengths[s], 3);
  const std::vector<uint32_t> clCodes = CanonicalCodes(h.clLengths);
  for (uint32_t s : symbols) {
    const uint32_t symbol = s & 31;
    w.Code(clCodes[symbol], h.clLengths[symbol]);
    w.Bits(s >> 5, symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0);
  }
  return w;
}

// The same with the lengths written plainly.
BitWriter Dynamic(const DynamicHeader& h) {
  std::vector<uint32_t> symbols(h.literal.begin(), h.literal.end());
  symbols.insert(symbols.end(), h.distance.begin(), h.distance.end());
  return Dynamic(h, symbols);
}

// A dynamic block of the literals of `text` and the end.
Bytes LiteralBlock(const DynamicHeader& h, const std::string& text) {
  const std::vector<uint32_t> codes = CanonicalCodes(h.literal);
  BitWriter w = Dynamic(h);
  for (char ch : text) w.Code(codes[static_cast<uint8_t>(ch)], h.literal[static_cast<uint8_t>(ch)]);
  return w.Code(codes[256], h.literal[256]).Done();
}

// Stored blocks of at most 65535 bytes each.
void StoredBlocks(BitWriter& w, const Bytes& data, bool last) {
  for (size_t at = 0; at < data.size(); at += 65535) {
    const uint32_t n = static_cast<uint32_t>(std::min<size_t>(65535, data.size() - at));
    w.Header(last && at + n == data.size(), 0).Align().Bits(n, 16).Bits(~n & 0xFFFF, 16);
    for (size_t i = 0; i < n; ++i) w.Byte(data[at + i]);
  }
}

Bytes FixedBlockOf(const std::string& text, bool last = true) {
  BitWriter w;
  w.Header(last, 1);
  for (char ch : text) w.FixedSymbol(static_cast<uint8_t>(ch));
  return w.FixedSymbol(256).Done();
}

// 'a', then length 4 at distance 2: before the data's start.
Bytes BeforeTheStart() {
  return BitWriter().Header(true, 1).FixedSymbol('a').FixedSymbol(258).FixedDistance(1).FixedSymbol(256).Done();
}

// Hand-made streams of what encoders seldom write, each with what it decodes to.
struct Made {
  const char* name;
  int mode;
  Bytes stream;
  Bytes expected;
};

void PrintTo(const Made& c, std::ostream* os) { *os << c.name; }

std::vector<Made> MadeCases() {
  std::vector<Made> cases;
  // LEN and NLEN of an empty stored block are the stream's last bytes.
  cases.push_back({"EmptyStoredBlockLast", kDeflate,
                   BitWriter().Header(false, 1).FixedSymbol('a').FixedSymbol('b').FixedSymbol(256)
                       .Header(true, 0).Align().Bits(0, 16).Bits(0xFFFF, 16).Done(),
                   FromString("ab")});
  // 3 + 3 * 8 + 7 = 34 bits: five bytes, the last used in part.
  cases.push_back({"PartUsedLastByte", kDeflate, FixedBlockOf("xyz"), FromString("xyz")});
  {  // Stored blocks up to 1.5 MiB, then a match across the window's start: 227 + 31 at distance 32768.
    Bytes data = MakeSample(1536 * 1024, 9);
    BitWriter w;
    StoredBlocks(w, data, false);
    w.Header(true, 1).FixedSymbol(284).Bits(31, 5).FixedDistance(29).Bits(8191, 13).FixedSymbol(256);
    for (size_t i = 0, from = data.size() - 32768; i < 258; ++i) data.push_back(data[from + i]);
    cases.push_back({"StoredBlocksAcrossTheWindow", kDeflate, w.Done(), data});
  }
  // Code 285 with its 16 extra bits all set is 65538 in Deflate64; in plain deflate it is 258 with none.
  cases.push_back({"Deflate64LongestLength", kDeflate64,
                   BitWriter().Header(true, 1).FixedSymbol('x').FixedSymbol(285).Bits(0xFFFF, 16)
                       .FixedDistance(0).FixedSymbol(256).Done(),
                   Bytes(1 + 65538, 'x')});
  cases.push_back({"Length285InPlainDeflate", kDeflate,
                   BitWriter().Header(true, 1).FixedSymbol('x').FixedSymbol(285).FixedDistance(0)
                       .FixedSymbol(256).Done(),
                   Bytes(1 + 258, 'x')});
  {  // Stored blocks bring the window to 1000 bytes before its end; a match of 65538 then wraps.
    const Bytes data = MakeSample(RkInflate::kWindowSize - 1000, 4);
    BitWriter w;
    StoredBlocks(w, data, false);
    // Distance code 31 with all extra bits: 49153 + 16383 = 65536.
    w.Header(true, 1).FixedSymbol(285).Bits(0xFFFF, 16).FixedDistance(31).Bits(0x3FFF, 14).FixedSymbol(256);
    Bytes expected = data;
    for (size_t i = 0; i < 65538; ++i) expected.push_back(expected[expected.size() - 65536]);
    cases.push_back({"Deflate64MatchWrapsTheWindow", kDeflate64, w.Done(), expected});
  }
  {  // Length 3 at distance code 30 with extra 5: 32769 + 5 back, accepted in plain deflate too.
    Bytes data = MakeSample(40000, 5);
    BitWriter w;
    StoredBlocks(w, data, false);
    w.Header(true, 1).FixedSymbol(257).FixedDistance(30).Bits(5, 14).FixedSymbol(256);
    for (int i = 0; i < 3; ++i) data.push_back(data[data.size() - 32774]);
    cases.push_back({"DistanceCode30InPlainDeflate", kDeflate, w.Done(), data});
  }
  // Reaching before the data's start is not checked: a new node's window reads as zeros.
  cases.push_back({"DistanceBeforeTheStart", kDeflate, BeforeTheStart(), Bytes{'a', 0, 'a', 0, 'a'}});
  // HLIT 257 with one distance length of 0: no length code can come.
  cases.push_back({"DynamicWithoutDistanceCodes", kDeflate,
                   LiteralBlock(Dh(257, {{'a', 1}, {'b', 2}, {256, 2}}, {0}), "abba"), FromString("abba")});
  // Codes 00 and 01; 1x is not a code, and is never met.
  cases.push_back({"IncompleteLiteralCode", kDeflate, LiteralBlock(Dh(257, {{'a', 2}, {256, 2}}, {1}), "aa"),
                   FromString("aa")});
  {
    // 15-bit codes (past the first level of 11 bits) for the rare literals and a distance code;
    // lengths 1 to 15 and two of 15 make a complete code: the shape of a skewed real alphabet.
    DynamicHeader h = Dh(257 + 29, {{'Z', 15}, {256, 15}}, std::vector<uint8_t>(30, 0));
    for (uint32_t i = 0; i < 14; ++i) h.literal['A' + i] = h.distance[i] = static_cast<uint8_t>(i + 1);
    h.distance[28] = h.distance[29] = 15;
    // The length 3 code has to exist too: steal the 'N' code (length 14) for symbol 257 instead.
    h.literal['N'] = 0;
    h.literal[257] = 14;
    const std::vector<uint32_t> lit = CanonicalCodes(h.literal), dist = CanonicalCodes(h.distance);
    BitWriter w = Dynamic(h);
    Bytes expected;
    for (int round = 0; round < 4000; ++round) {
      for (uint8_t ch : {'A', 'Z', 'M', 'B', 'Z'}) {
        w.Code(lit[ch], h.literal[ch]);
        expected.push_back(ch);
      }
      // Length 3 at distance code 29 (24577 + extra) only once there is that much; else code 0.
      const bool far = expected.size() > 24577 + 100;
      w.Code(lit[257], 14).Code(dist[far ? 29 : 0], far ? 15 : 1).Bits(7, far ? 13 : 0);
      for (int i = 0; i < 3; ++i) expected.push_back(expected[expected.size() - (far ? 24584 : 1)]);
    }
    cases.push_back({"LongCodesInSubTables", kDeflate, w.Code(lit[256], 15).Done(), expected});
  }
  return cases;
}

class InflateMade : public PipeTest, public testing::WithParamInterface<Made> {};

// Both loops, junk behind the stream (the fast loop runs up to its end), and small input buffers
// (one byte for short streams, where LEN and NLEN or a code come from several buffers).
TEST_P(InflateMade, Decodes) {
  const Made& c = GetParam();
  const size_t n = c.stream.size();
  const int32_t small = n < 4096 ? 1 : n < 100000 ? 5 : 1000;
  ExpectDecoded(Inflate(c.stream, Cfg(c.mode)), c.expected, n, "bmi2");
  ExpectDecoded(Inflate(c.stream, Cfg(c.mode, kLarge, kLarge, false)), c.expected, n, "plain loop");
  ExpectDecoded(Inflate(Concat(c.stream, Bytes(64, 0xFF)), Cfg(c.mode)), c.expected, n, "junk behind");
  ExpectDecoded(Inflate(c.stream, Cfg(c.mode, small)), c.expected, n, "small input buffers");
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, InflateMade, testing::ValuesIn(MadeCases()),
                         [](const auto& row) { return std::string(row.param.name); });

// A node used for item after item, after a failure too, as an archive uses it. A reach before an
// item's start is not checked: it reads the window as the item before left it.
TEST_F(PipeTest, InflateNodeServesItemAfterItem) {
  const RkStreamSettings settings = SmallSettings(1 << 16);
  RkInflate inflate(kDeflate, nullptr, nullptr, settings);
  const Bytes window = MakeSample(RkInflate::kWindowSize, 6);  // fills the window to its last byte
  BitWriter w;
  StoredBlocks(w, window, true);
  const Bytes full = w.Done(), reach = BeforeTheStart(), padded = Concat(reach, Bytes(64, 0));
  const Bytes dynamic = LiteralBlock(Dh(257, {{'a', 1}, {'b', 2}, {256, 2}}, {0}), "abba"), abba = FromString("abba");
  const Bytes bad = {0x07};  // a final block of type 3
  const Bytes reached = {'a', window.back(), 'a', window.back(), 'a'};
  const std::pair<const Bytes*, const Bytes*> items[] = {{&full, &window},  {&reach, &reached}, {&bad, nullptr},
                                                         {&dynamic, &abba}, {&bad, nullptr},     {&full, &window},
                                                         {&padded, &reached}};
  for (const auto& [stream, expected] : items) {
    RkPipeLib::RkMemIn source(stream->data(), stream->size(), nullptr, nullptr, settings);
    inflate.Reset();
    const Outcome o = RunThrough(source, inflate, settings);
    if (expected) {
      ExpectDecoded(o, *expected, stream == &padded ? reach.size() : stream->size(), "item");
    } else {
      EXPECT_EQ(o.code, kBadData);
    }
  }
}

// Broken streams, each with the code it must raise.
struct BadCase {
  const char* name;
  Bytes stream;
  uint32_t code;
};

std::vector<BadCase> BadCases() {
  const DynamicHeader distanceHole = Dh(258, {{'a', 2}, {256, 2}, {257, 2}}, {1, 2});
  const std::vector<uint32_t> holeLit = CanonicalCodes(distanceHole.literal);
  const DynamicHeader withLengths = Dh(258, {{'a', 1}, {'b', 2}, {256, 2}}, {0});
  const std::vector<uint32_t> lit = CanonicalCodes(withLengths.literal);
  DynamicHeader overCl = Dh(257, {}, {1}), noCl = Dh(257, {}, {1}), clHole = Dh(257, {}, {0});
  overCl.clLengths = ClLengths({{0, 1}, {1, 1}, {8, 1}});
  noCl.clLengths = ClLengths({});
  clHole.clLengths = ClLengths({{8, 2}});
  return {
      {"EmptyInput", {}, kReadPastEnd},
      {"BlockType3", BitWriter().Header(true, 3).Done(), kBadData},
      {"StoredLengthsDisagree", BitWriter().Header(true, 0).Align().Bits(5, 16).Bits(5, 16).Done(), kBadData},
      {"StoredBlockCutShort", BitWriter().Header(true, 0).Align().Bits(5, 16).Bits(~5u & 0xFFFF, 16).Byte(1).Done(),
       kReadPastEnd},
      {"LengthCode286", BitWriter().Header(true, 1).FixedSymbol(286).Done(), kBadData},
      {"LengthCode287", BitWriter().Header(true, 1).FixedSymbol('a').FixedSymbol(287).Done(), kBadData},
      {"NoFinalBlock", FixedBlockOf("abc", false), kReadPastEnd},
      {"CodeLengthCodeOverSubscribed", Dynamic(overCl, {}).Done(), kBadData},
      {"CodeLengthCodeEmpty", Dynamic(noCl, {}).Done(), kBadData},
      // An incomplete code-length code (one symbol of length 2) whose hole is met.
      {"CodeLengthCodeHole", Dynamic(clHole, {}).Code(3, 2).Done(), kBadData},
      {"LiteralCodeOverSubscribed", Dynamic(Dh(257, {{'a', 1}, {'b', 1}, {256, 1}}, {1})).Done(), kBadData},
      {"DistanceCodeOverSubscribed", Dynamic(Dh(258, {{'a', 2}, {256, 2}, {257, 2}}, {1, 1, 1})).Done(), kBadData},
      {"LiteralCodeEmpty", Dynamic(Dh(257, {}, {1})).Done(), kBadData},
      // 258 lengths to give, written as 138 + 138 zeros.
      {"RepeatPastTheLengths", Dynamic(Dh(257, {}, {0}), {18 | (127 << 5), 18 | (127 << 5)}).Done(), kBadData},
      // Codes 00 and 01 for 'a' and the end; 11 is met.
      {"LiteralCodeHole", Dynamic(Dh(257, {{'a', 2}, {256, 2}}, {1})).Code(0, 2).Code(3, 2).Code(1, 2).Done(),
       kBadData},
      // A distance code with a hole: lengths 1 and 2 (codes 0 and 10), then code 11 is met.
      {"DistanceCodeHole", Dynamic(distanceHole).Code(holeLit['a'], 2).Code(holeLit[257], 2).Code(3, 2).Done(),
       kBadData},
      // With HLIT 258 a length code could come without a distance code: refused at once.
      {"LengthCodesWithoutDistanceCodes", Dynamic(withLengths).Code(lit['a'], 1).Code(lit[256], 2).Done(), kBadData},
      // Cut inside the extra bits of a length: the data ends, it is not invalid.
      {"CutInExtraBits", Bytes{0x03, 0x06}, kReadPastEnd},
  };
}

class InflateBad : public PipeTest, public testing::WithParamInterface<BadCase> {};

TEST_P(InflateBad, RaisesItsCode) {
  const BadCase& c = GetParam();
  for (int32_t in : {1, 4096}) {
    const Outcome o = Inflate(c.stream, Cfg(kDeflate, in));
    EXPECT_EQ(o.code, c.code) << "input buffers of " << in;
    EXPECT_TRUE(o.severe);
  }
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, InflateBad, testing::ValuesIn(BadCases()),
                         [](const auto& row) { return std::string(row.param.name); });

// Found by the fuzz target: a stream that decodes 256 KiB before it meets an invalid distance.
// The part that goes out before the failure depends on how far the pipe carried it, but it is
// always a start of the data, whatever the buffer sizes and the loop.
TEST_F(PipeTest, InflateOutputBeforeAFailureIsAStartOfTheData) {
  Bytes stream(480, 0);
  const std::pair<size_t, uint8_t> set[] = {{0, 237},  {1, 192},  {2, 129},  {7, 128},   {8, 160},
                                            {9, 253},  {10, 169}, {11, 23},  {12, 169},  {317, 52},
                                            {403, 52}, {460, 40}, {478, 160}, {479, 6}};
  for (const auto& [at, value] : set) stream[at] = value;
  std::vector<Bytes> outputs;
  for (int32_t in : {1, 4, 65536})
    for (int32_t out : {257, 65536})
      for (bool bmi2 : {false, true}) {
        const Outcome o = Inflate(stream, Cfg(kDeflate, in, out, bmi2));
        EXPECT_EQ(o.code, kBadData) << in << " " << out << " " << bmi2;
        outputs.push_back(o.bytes);
      }
  const Bytes& longest = *std::max_element(outputs.begin(), outputs.end(),
                                           [](const Bytes& a, const Bytes& b) { return a.size() < b.size(); });
  for (const Bytes& o : outputs) EXPECT_TRUE(std::equal(o.begin(), o.end(), longest.begin()));
}

// ---- The shared corpus.

// Raw streams from another encoder, none of which sets the final bit: they must end in 7006,
// and with the first block made final they decode that block, a start of the known text.
TEST_F(PipeTest, InflateCorpusStreamsWithoutAFinalBlock) {
  const std::filesystem::path folder = CorpusPath("klauspost-flate");
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
  int checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string file = entry.path().filename().string();
    const size_t dot = file.find('.');
    if (file == "MANIFEST" || dot == std::string::npos || file.substr(dot) == ".in") continue;
    const std::filesystem::path plainPath = folder / (file.substr(0, dot) + ".in");
    if (!std::filesystem::exists(plainPath)) continue;
    Bytes stream = ReadAll(entry.path().string());
    const Bytes plain = ReadAll(plainPath.string());
    EXPECT_EQ(Inflate(stream).code, kReadPastEnd) << file;
    stream[0] |= 1;
    const Outcome o = Inflate(stream);
    ASSERT_EQ(o.code, 0u) << file;
    EXPECT_LE(o.bytes.size(), plain.size()) << file;
    EXPECT_TRUE(std::equal(o.bytes.begin(), o.bytes.end(), plain.begin())) << file;
    ++checked;
  }
  EXPECT_GT(checked, 40);
}

// Deflate64 entries of zips from the corpus, checked against the sizes and CRCs of their own
// headers: the stream is found through the local header.
TEST_F(PipeTest, InflateCorpusDeflate64Zips) {
  const struct {
    const char* zip;
    uint32_t crc;
    uint64_t size;
  } entries[] = {{"commons-compress/zip/COMPRESS-380.zip", 0x2a604090, 3072},
                 {"commons-compress/zip/COMPRESS-380-readbeyondmemory.zip", 0x124e14f0, 17051},
                 {"commons-compress/zip/lorem-ipsum-deflate64.zip", 0xb9034f7e, 144060},
                 {"commons-compress/zip/COMPRESS-380-dd.zip", 0xee027fb2, 25}};
  for (const auto& e : entries) {
    const std::filesystem::path path = CorpusPath(e.zip);
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "no corpus file " << path;
    const Bytes zip = ReadAll(path.string());
    ASSERT_GT(zip.size(), 30u);
    ASSERT_EQ(zip[8] | zip[9] << 8, 9) << e.zip << ": the first entry is Deflate64";
    const size_t start = 30 + (zip[26] | zip[27] << 8) + (zip[28] | zip[29] << 8);
    const Bytes rest(zip.begin() + static_cast<std::ptrdiff_t>(start), zip.end());
    for (int32_t in : {1, 1 << 16}) {
      const Outcome o = Inflate(rest, Cfg(kDeflate64, in));
      ASSERT_EQ(o.code, 0u) << e.zip;
      EXPECT_EQ(o.bytes.size(), e.size) << e.zip;
      EXPECT_EQ(Crc(o.bytes), e.crc) << e.zip;
    }
  }
}

}  // namespace
}  // namespace RkPipeTest
