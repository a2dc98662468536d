// Inflate through real pipes. Streams come from python3's zlib at representative levels and
// strategies, from gzip and from 7zz (plain and Deflate64 in zip), made at test time from samples
// the test writes; hand-made streams cover the rules of the format that encoders never exercise.
// Input and output are cut into buffers as small as one byte, and a stream is split at every position.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "RkCrc32.h"
#include "RkInflate.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {
namespace {

using Bytes = std::vector<uint8_t>;
using RkPipeLib::RkInflate;
using RkPipeLib::RkMemOut;

constexpr int kDeflate = 0;
constexpr int kDeflate64 = 1;
constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;

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
  RkStreamSettings in = SmallSettings(512 * 1024);   // the source's buffers
  RkStreamSettings out = SmallSettings(512 * 1024);  // the decoder's output and the target's
  bool bmi2 = true;
};

Config Cfg(int mode, int32_t in = 512 * 1024, int32_t out = 512 * 1024, bool bmi2 = true, int32_t count = 2) {
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

Outcome InflatePieces(const Bytes& input, std::vector<size_t> cuts, int mode = kDeflate) {
  const RkStreamSettings settings = SmallSettings(static_cast<int32_t>(input.size() + 1), 3);
  PieceSource source(input, std::move(cuts), settings);
  RkInflate inflate(mode, nullptr, nullptr, settings);
  return RunThrough(source, inflate, settings);
}

// Deterministic data with what real files mix: words, numbered records, noise, runs of one byte
// and short periodic patterns (the copies of distances below 8), in pieces of varying length.
Bytes MakeSample(size_t size, uint32_t seed) {
  static const char* const kWords[] = {"the ",     "inflate ", "window ", "of ",    "a ",     "stream ",
                                       "block ",   "and ",     "code ",   "length ", "tree ",  "\n",
                                       "distance ", "literal ", "match ",  "table ",  "bits ",  ", "};
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
      switch (kind) {
        case 0: {
          const char* w = kWords[next() % (sizeof kWords / sizeof kWords[0])];
          for (; *w && out.size() < size; ++w) out.push_back(static_cast<uint8_t>(*w));
          break;
        }
        case 1: {
          const uint32_t record = static_cast<uint32_t>(out.size() / 16);
          out.push_back(static_cast<uint8_t>(record >> (8 * (i % 4))));
          break;
        }
        case 2:
          out.push_back(static_cast<uint8_t>(next()));
          break;
        case 3:
          out.push_back(static_cast<uint8_t>(piece));
          break;
        default:
          out.push_back(static_cast<uint8_t>("abcdefg"[i % (2 + piece % 6)]));
          break;
      }
    }
  }
  return out;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
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
# gzip: the raw stream is what follows the header; the 8-byte trailer stays behind it.
if shutil.which('gzip'):
    for level in ('1', '9'):
        gz = subprocess.run(['gzip', '-c', '-n', '-' + level, path('sample.bin')],
                            check=True, stdout=subprocess.PIPE).stdout
        flags, at = gz[3], 10
        if flags & 4: at += 2 + struct.unpack('<H', gz[at:at + 2])[0]
        if flags & 8: at = gz.index(b'\0', at) + 1
        if flags & 16: at = gz.index(b'\0', at) + 1
        if flags & 2: at += 2
        write('gzip%s.raw' % level, gz[at:])
        d = zlib.decompressobj(-15)
        d.decompress(gz[at:])
        print('gzip%s.deflated' % level, len(gz) - at - len(d.unused_data))
# 7zz: a zip per method; the stream lies after the local header of its entry.
def stream_of(zip_name):
    z = zipfile.ZipFile(path(zip_name))
    info = z.infolist()[0]
    raw = read(zip_name)
    at = info.header_offset
    name_length, extra_length = struct.unpack('<HH', raw[at + 26:at + 30])
    start = at + 30 + name_length + extra_length
    return info.compress_type, raw[start:start + info.compress_size]
if shutil.which('7zz'):
    for method, name in (('Deflate64', 'big'), ('Deflate64', 'small'), ('Deflate', 'big')):
        zip_name = '7zz-%s-%s.zip' % (method, name)
        subprocess.run(['7zz', 'a', '-tzip', '-mm=' + method, '-mx=9', path(zip_name), path(name + '.bin')],
                       check=True, stdout=subprocess.DEVNULL)
        kind, data = stream_of(zip_name)
        assert kind == (9 if method == 'Deflate64' else 8)
        write('7zz-%s-%s.raw' % (method, name), data)
print('done 1')
)PY";

// Level 0 is stored whatever the strategy; huffman and rle ignore the level; filtered differs from
// default only with lazy matching; fixed changes the block type at any level.
constexpr const char* kZlibCases[] = {"0-default", "1-default", "6-default", "9-default", "6-filtered",
                                      "1-huffman", "6-rle",     "1-fixed",   "9-fixed"};

// The streams are made once for the whole suite, on first need.
class Fixtures {
 public:
  static Fixtures& Get() {
    static Fixtures fixtures;
    return fixtures;
  }
  bool ok() const { return ok_; }
  bool Has(const std::string& name) const { return made_.count(name) != 0; }
  Bytes Stream(const std::string& name) const { return ReadFile(folder_ + "/" + name); }
  uint64_t Fact(const std::string& name) const { return made_.at(name); }
  const Bytes& sample() const { return sample_; }
  const Bytes& big() const { return big_; }
  const Bytes& small() const { return small_; }
  std::string folder() const { return folder_; }

 private:
  Fixtures() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "rkinflate-XXXXXX").string();
    if (!mkdtemp(tmpl.data())) return;
    folder_ = tmpl;
    sample_ = MakeSample(600 * 1024, 1);
    big_ = MakeSample(3 * 1024 * 1024 + 777, 2);
    small_ = MakeSample(3000, 3);
    WriteFile(folder_ + "/sample.bin", sample_);
    WriteFile(folder_ + "/big.bin", big_);
    WriteFile(folder_ + "/small.bin", small_);
    std::ofstream(folder_ + "/maker.py") << kMaker;
    std::string command = "python3 '" + folder_ + "/maker.py' '" + folder_ + "'";
    for (const char* c : kZlibCases) command += std::string(" ") + c;
    command += " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return;
    std::string text;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    const bool exited = ::pclose(pipe) == 0;
    std::istringstream lines(text);
    std::string name;
    uint64_t value;
    while (lines >> name >> value) made_[name] = value;
    ok_ = exited && Has("done");
    if (!ok_) std::fprintf(stderr, "the stream maker failed:\n%s\n", text.c_str());
  }
  ~Fixtures() {
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }

  std::string folder_;
  Bytes sample_, big_, small_;
  std::map<std::string, uint64_t> made_;
  bool ok_ = false;
};

#define FIXTURES_OR_SKIP()                                                                        \
  do {                                                                                            \
    if (std::system("command -v python3 >/dev/null 2>&1") != 0) GTEST_SKIP() << "needs python3"; \
    ASSERT_TRUE(Fixtures::Get().ok()) << "python3 could not make the streams";                    \
  } while (0)

// Checks a run that should have decoded `expected` from all of `stream` but `trailing` bytes.
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
  ExpectDecoded(Inflate(stream), f.sample(), stream.size(), "bmi2");
  ExpectDecoded(Inflate(stream, Cfg(kDeflate, 512 * 1024, 512 * 1024, false)), f.sample(), stream.size(), "plain");
  ExpectDecoded(Inflate(Concat(stream, Bytes(100, 0xA5))), f.sample(), stream.size(), "junk behind");
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, InflateZlib, testing::ValuesIn(kZlibCases), [](const auto& row) {
  std::string name = std::string("Level") + row.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

// Past the 1 MiB window, so that it goes out whole and matches reach back across its start; then
// gzip's and 7zz's streams, Deflate64 included.
TEST_F(PipeTest, InflateDecodesLargeAndOtherEncodersStreams) {
  FIXTURES_OR_SKIP();
  const Fixtures& f = Fixtures::Get();
  for (const char* name : {"big1.raw", "big9.raw"})
    for (const Config& c : {Cfg(kDeflate, 4096, 1 << 20), Cfg(kDeflate, 1 << 20, 1 << 20),
                            Cfg(kDeflate, 1000, 777, true, 3)})
      ExpectDecoded(Inflate(f.Stream(name), c), f.big(), f.Fact(name), name);
  if (f.Has("gzip9.raw")) {
    for (const std::string name : {"gzip1", "gzip9"}) {
      const Bytes body = f.Stream(name + ".raw");  // the 8-byte trailer stays behind the stream
      EXPECT_EQ(f.Fact(name + ".deflated") + 8, body.size());
      ExpectDecoded(Inflate(body), f.sample(), f.Fact(name + ".deflated"), name.c_str());
    }
  }
  // A stream without the long length code decodes the same in both modes.
  ExpectDecoded(Inflate(f.Stream("small6.raw"), Cfg(kDeflate64)), f.small(), f.Fact("small6.raw"), "zlib as 64");
  if (!f.Has("7zz-Deflate64-big.raw")) GTEST_SKIP() << "needs 7zz";
  const Bytes big64 = f.Stream("7zz-Deflate64-big.raw");
  ExpectDecoded(Inflate(big64, Cfg(kDeflate64)), f.big(), big64.size(), "Deflate64 big");
  ExpectDecoded(Inflate(big64, Cfg(kDeflate64, 512 * 1024, 512 * 1024, false)), f.big(), big64.size(), "plain loop");
  ExpectDecoded(Inflate(f.Stream("7zz-Deflate-big.raw")), f.big(), f.Fact("7zz-Deflate-big.raw"), "7zz Deflate");
}

TEST_F(PipeTest, InflateTakesOneByteBuffersInAndOut) {
  FIXTURES_OR_SKIP();
  Watchdog watchdog(std::chrono::seconds(300), "one-byte buffers");
  const Fixtures& f = Fixtures::Get();
  struct Case {
    const char* name;
    int mode;
    int32_t in, out;
  };
  std::vector<Case> cases = {{"small6.raw", kDeflate, 1, 1 << 16},
                             {"small6.raw", kDeflate, 1 << 16, 1},
                             {"small1.raw", kDeflate, 1, 1},
                             {"small9.raw", kDeflate, 3, 7},
                             {"7zz-Deflate64-small.raw", kDeflate64, 1, 1 << 16},
                             {"7zz-Deflate64-small.raw", kDeflate64, 2, 3}};
  for (const Case& c : cases) {
    if (!f.Has(c.name)) continue;
    const std::string what = std::string(c.name) + " in " + std::to_string(c.in) + " out " + std::to_string(c.out);
    ExpectDecoded(Inflate(f.Stream(c.name), Cfg(c.mode, c.in, c.out)), f.small(), f.Fact(c.name), what.c_str());
  }
}

// The input cut at every position: each cut falls somewhere in the bit buffer's refills, a code,
// its extra bits or a block header, and the fast loop meets the end of each piece.
TEST_F(PipeTest, InflateDecodesAStreamSplitAtEveryPosition) {
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
      ASSERT_TRUE(o.bytes == f.small()) << name << " cut at " << cut;
      ASSERT_EQ(o.bytesRead, static_cast<int64_t>(stream.size())) << name << " cut at " << cut;
    }
  }
}

// Every proper prefix of a stream ends before the final block does.
TEST_F(PipeTest, InflateRaises7006ForEveryTruncation) {
  FIXTURES_OR_SKIP();
  const Bytes stream = Fixtures::Get().Stream("small9.raw");
  for (size_t length = 0; length < stream.size(); ++length) {
    const Outcome o = Inflate(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(length)),
                              Cfg(kDeflate, 64));
    ASSERT_EQ(o.code, kReadPastEnd) << "prefix of " << length;
    ASSERT_TRUE(o.severe);
  }
}

// A node used for item after item, after a failure too, as an archive uses it.
TEST_F(PipeTest, InflateNodeServesItemAfterItem) {
  FIXTURES_OR_SKIP();
  const Fixtures& f = Fixtures::Get();
  const RkStreamSettings settings = SmallSettings(4096);
  RkInflate inflate(kDeflate, nullptr, nullptr, settings);
  const Bytes good = f.Stream("small6.raw");
  const Bytes fixed = f.Stream("z9-fixed.raw");
  const Bytes bad = {0x07};  // a final block of type 3
  const std::vector<std::pair<const Bytes*, const Bytes*>> items = {
      {&good, &f.small()}, {&fixed, &f.sample()}, {&bad, nullptr}, {&fixed, &f.sample()}, {&good, &f.small()}};
  for (const auto& [stream, expected] : items) {
    RkPipeLib::RkMemIn source(stream->data(), stream->size(), nullptr, nullptr, settings);
    inflate.Reset();
    const Outcome o = RunThrough(source, inflate, settings);
    if (!expected) {
      EXPECT_EQ(o.code, kBadData);
      continue;
    }
    ExpectDecoded(o, *expected, stream->size(), "item");
  }
}

// Writes fields least significant bit first and prefix codes most significant bit first, as
// deflate packs them.
class BitWriter {
 public:
  BitWriter& Bits(uint32_t value, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) Bit((value >> i) & 1);
    return *this;
  }
  BitWriter& Code(uint32_t code, uint32_t length) {
    for (uint32_t i = length; i-- > 0;) Bit((code >> i) & 1);
    return *this;
  }
  BitWriter& Align() {
    while (used_ != 0) Bit(0);
    return *this;
  }
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
  Bytes Done() {
    Align();
    return bytes_;
  }

 private:
  void Bit(uint32_t b) {
    if (used_ == 0) bytes_.push_back(0);
    bytes_.back() |= static_cast<uint8_t>(b << used_);
    used_ = (used_ + 1) % 8;
  }
  Bytes bytes_;
  uint32_t used_ = 0;
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

// A dynamic block header, by default with a complete code-length code: 0 to 14 in 4 bits, 15 to
// 18 in 6. The code-length symbols to write are given apart, each as symbol | extra << 5, so
// that repeats can be written by hand.
struct DynamicHeader {
  std::vector<uint8_t> literal;   // HLIT entries
  std::vector<uint8_t> distance;  // HDIST entries
  std::vector<uint8_t> clLengths = {4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 6, 6, 6, 6};
};

constexpr uint32_t kClOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

void WriteDynamicHeader(BitWriter& w, bool last, const DynamicHeader& h, const std::vector<uint32_t>& symbols) {
  w.Header(last, 2);
  w.Bits(static_cast<uint32_t>(h.literal.size() - 257), 5);
  w.Bits(static_cast<uint32_t>(h.distance.size() - 1), 5);
  w.Bits(19 - 4, 4);
  for (uint32_t s : kClOrder) w.Bits(h.clLengths[s], 3);
  const std::vector<uint32_t> clCodes = CanonicalCodes(h.clLengths);
  for (uint32_t s : symbols) {
    const uint32_t symbol = s & 31;
    w.Code(clCodes[symbol], h.clLengths[symbol]);
    w.Bits(s >> 5, symbol == 16 ? 2 : symbol == 17 ? 3 : symbol == 18 ? 7 : 0);
  }
}

// Code-length symbols for plain lengths.
std::vector<uint32_t> PlainLengths(const DynamicHeader& h) {
  std::vector<uint32_t> symbols(h.literal.begin(), h.literal.end());
  symbols.insert(symbols.end(), h.distance.begin(), h.distance.end());
  return symbols;
}

// Stored blocks of at most 65535 bytes each.
void StoredBlocks(BitWriter& w, const Bytes& data, bool last) {
  for (size_t at = 0; at < data.size(); at += 65535) {
    const uint32_t n = static_cast<uint32_t>(std::min<size_t>(65535, data.size() - at));
    w.Header(last && at + n == data.size(), 0).Align().Bits(n, 16).Bits(~n & 0xFFFF, 16);
    for (size_t i = 0; i < n; ++i) w.Byte(data[at + i]);
  }
}

Bytes Text(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes FixedBlockOf(const std::string& text, bool last = true) {
  BitWriter w;
  w.Header(last, 1);
  for (char ch : text) w.FixedSymbol(static_cast<uint8_t>(ch));
  w.FixedSymbol(256);
  return w.Done();
}

TEST_F(PipeTest, InflateStoredBlockOfLengthZeroAtTheEndCountsItsLengths) {
  BitWriter w;
  w.Header(false, 1).FixedSymbol('a').FixedSymbol('b').FixedSymbol(256);
  w.Header(true, 0).Align().Bits(0, 16).Bits(0xFFFF, 16);
  const Bytes stream = w.Done();
  const Outcome o = Inflate(Concat(stream, Text("behind")));
  ExpectDecoded(o, Text("ab"), stream.size(), "stored end");
  // The same from one-byte buffers, where LEN and NLEN come from four buffers.
  ExpectDecoded(Inflate(Concat(stream, Text("behind")), Cfg(kDeflate, 1)), Text("ab"), stream.size(), "one-byte buffers");
}

TEST_F(PipeTest, InflateCountsAPartUsedLastByte) {
  const Bytes stream = FixedBlockOf("xyz");  // 3 + 3 * 8 + 7 = 34 bits: five bytes
  ASSERT_EQ(stream.size(), 5u);
  ExpectDecoded(Inflate(Concat(stream, Bytes(9, 0xFF))), Text("xyz"), 5, "fixed");
}

TEST_F(PipeTest, InflateStoredBlocksCrossBuffersAndTheWindow) {
  // Stored blocks of 65535 bytes up to 1.5 MiB, then a match that reaches back across the
  // window's start, from input in buffers of 1000 bytes.
  Bytes data = MakeSample(1536 * 1024, 9);
  BitWriter w;
  StoredBlocks(w, data, false);
  w.Header(true, 1).FixedSymbol(284).Bits(31, 5).FixedDistance(29).Bits(8191, 13).FixedSymbol(256);
  const Bytes stream = w.Done();
  const size_t from = data.size() - 32768;
  for (size_t i = 0; i < 258; ++i) data.push_back(data[from + i]);  // length 227 + 31, distance 32768
  Config s;
  s.in = SmallSettings(1000);
  ExpectDecoded(Inflate(stream, s), data, stream.size(), "stored");
}

TEST_F(PipeTest, InflateDeflate64LongestLengthIs65538) {
  // 'x', then code 285 with its 16 extra bits all set and distance 1, then the end.
  BitWriter w;
  w.Header(true, 1).FixedSymbol('x').FixedSymbol(285).Bits(0xFFFF, 16).FixedDistance(0).FixedSymbol(256);
  const Bytes stream = w.Done();
  Config s;
  s.mode = kDeflate64;
  ExpectDecoded(Inflate(stream, s), Bytes(1 + 65538, 'x'), stream.size(), "Deflate64");
  s.bmi2 = false;
  ExpectDecoded(Inflate(stream, s), Bytes(1 + 65538, 'x'), stream.size(), "Deflate64, plain loop");
  // In plain deflate the code is 258 with no extra bits.
  BitWriter p;
  p.Header(true, 1).FixedSymbol('x').FixedSymbol(285).FixedDistance(0).FixedSymbol(256);
  const Bytes plain = p.Done();
  ExpectDecoded(Inflate(plain), Bytes(1 + 258, 'x'), plain.size(), "deflate");
}

TEST_F(PipeTest, InflateDeflate64MatchesRunPastTheWindowEnd) {
  // Stored blocks bring the window to 1000 bytes before its end; a match of 65538 then wraps.
  // Junk behind the stream keeps the fast loop going up to the match.
  const Bytes data = MakeSample(RkInflate::kWindowSize - 1000, 4);
  BitWriter w;
  StoredBlocks(w, data, false);
  // Distance code 31 with all extra bits: 49153 + 16383 = 65536.
  w.Header(true, 1).FixedSymbol(285).Bits(0xFFFF, 16).FixedDistance(31).Bits(0x3FFF, 14).FixedSymbol(256);
  const Bytes stream = w.Done();
  Bytes expected = data;
  for (size_t i = 0; i < 65538; ++i) expected.push_back(expected[expected.size() - 65536]);
  Config s;
  s.mode = kDeflate64;
  ExpectDecoded(Inflate(stream, s), expected, stream.size(), "wrapping match");
  ExpectDecoded(Inflate(Concat(stream, Bytes(64, 0)), s), expected, stream.size(), "wrapping match, fast");
}

TEST_F(PipeTest, InflateAcceptsDistanceCodes30And31InPlainDeflate) {
  Bytes data = MakeSample(40000, 5);
  BitWriter w;
  w.Header(false, 0).Align().Bits(40000, 16).Bits(~40000u & 0xFFFF, 16);
  for (uint8_t b : data) w.Byte(b);
  // Length 3 at distance code 30 with extra 5: 32769 + 5 back.
  w.Header(true, 1).FixedSymbol(257).FixedDistance(30).Bits(5, 14).FixedSymbol(256);
  const Bytes stream = w.Done();
  for (int i = 0; i < 3; ++i) data.push_back(data[data.size() - 32774]);
  ExpectDecoded(Inflate(stream), data, stream.size(), "distance code 30");
}

// Reaching before the data's start is not checked: the window is read as it stands, zero in a
// new node and the previous item's bytes after one.
TEST_F(PipeTest, InflateDistanceBeforeTheStartReadsTheWindow) {
  BitWriter w;
  w.Header(true, 1).FixedSymbol('a').FixedSymbol(258).FixedDistance(1).FixedSymbol(256);  // 4 at distance 2
  const Bytes stream = w.Done();
  ExpectDecoded(Inflate(stream), Bytes{'a', 0, 'a', 0, 'a'}, stream.size(), "fresh window");
  const Bytes padded = Concat(stream, Bytes(64, 0));  // for the fast loop
  ExpectDecoded(Inflate(padded), Bytes{'a', 0, 'a', 0, 'a'}, stream.size(), "fresh window, fast");

  // An item that fills the window to its last byte, then the same stream again.
  const RkStreamSettings settings = SmallSettings(1 << 16);
  RkInflate inflate(kDeflate, nullptr, nullptr, settings);
  Bytes first = MakeSample(RkInflate::kWindowSize, 6);
  BitWriter f;
  StoredBlocks(f, first, true);
  const Bytes firstStream = f.Done();
  for (const Bytes* item : {&firstStream, &stream, &firstStream, &padded}) {
    RkPipeLib::RkMemIn source(item->data(), item->size(), nullptr, nullptr, settings);
    inflate.Reset();
    const Outcome o = RunThrough(source, inflate, settings);
    ASSERT_EQ(o.code, 0u);
    if (item != &firstStream) {
      const uint8_t last = first.back();
      EXPECT_EQ(o.bytes, (Bytes{'a', last, 'a', last, 'a'}));
    }
  }
}

TEST_F(PipeTest, InflateDynamicBlockWithoutDistanceCodes) {
  // Literals 'a' 'b' and the end: HLIT 257 with one distance length of 0 decodes.
  DynamicHeader h;
  h.literal.assign(257, 0);
  h.literal['a'] = 1;
  h.literal['b'] = 2;
  h.literal[256] = 2;
  h.distance = {0};
  BitWriter w;
  WriteDynamicHeader(w, true, h, PlainLengths(h));
  const std::vector<uint32_t> codes = CanonicalCodes(h.literal);
  for (char ch : std::string("abba")) w.Code(codes[static_cast<uint8_t>(ch)], h.literal[static_cast<uint8_t>(ch)]);
  w.Code(codes[256], 2);
  const Bytes stream = w.Done();
  ExpectDecoded(Inflate(stream), Text("abba"), stream.size(), "no distances");

  // With HLIT 258 a length code could come, and the block is refused at once.
  h.literal.push_back(0);
  BitWriter w2;
  WriteDynamicHeader(w2, true, h, PlainLengths(h));
  w2.Code(codes['a'], 1).Code(codes[256], 2);
  EXPECT_EQ(Inflate(w2.Done()).code, kBadData);
}

TEST_F(PipeTest, InflateIncompleteLiteralCodeDecodesAsFarAsItIsValid) {
  DynamicHeader h;
  h.literal.assign(257, 0);
  h.literal['a'] = 2;
  h.literal[256] = 2;  // codes 00 and 01; 1x is not a code
  h.distance = {1};
  const std::vector<uint32_t> codes = CanonicalCodes(h.literal);
  BitWriter w;
  WriteDynamicHeader(w, true, h, PlainLengths(h));
  w.Code(codes['a'], 2).Code(codes['a'], 2).Code(codes[256], 2);
  const Bytes stream = w.Done();
  ExpectDecoded(Inflate(stream), Text("aa"), stream.size(), "incomplete");

  BitWriter hole;
  WriteDynamicHeader(hole, true, h, PlainLengths(h));
  hole.Code(codes['a'], 2).Code(3, 2).Code(codes[256], 2);
  const Outcome o = Inflate(hole.Done());
  EXPECT_EQ(o.code, kBadData);
  EXPECT_TRUE(o.severe);
}

TEST_F(PipeTest, InflateLongCodesGoThroughSubTables) {
  // 15-bit codes (past the first level of 11 bits) for the rare literals and a distance code;
  // lengths 1 to 15 and two of 15 make a complete code: the shape of a skewed real alphabet.
  DynamicHeader h;
  h.literal.assign(257 + 29, 0);
  for (uint32_t i = 0; i < 14; ++i) h.literal['A' + i] = static_cast<uint8_t>(i + 1);
  h.literal['Z'] = 15;
  h.literal[256] = 15;
  h.distance.assign(30, 0);
  for (uint32_t i = 0; i < 14; ++i) h.distance[i] = static_cast<uint8_t>(i + 1);
  h.distance[28] = 15;
  h.distance[29] = 15;
  // The length 3 code has to exist too: steal the 'N' code (length 14) for symbol 257 instead.
  h.literal['N'] = 0;
  h.literal[257] = 14;
  const std::vector<uint32_t> lit = CanonicalCodes(h.literal);
  const std::vector<uint32_t> dist = CanonicalCodes(h.distance);
  BitWriter w;
  WriteDynamicHeader(w, true, h, PlainLengths(h));
  Bytes expected;
  for (int round = 0; round < 4000; ++round) {
    for (uint8_t ch : {'A', 'Z', 'M', 'B', 'Z'}) {
      w.Code(lit[ch], h.literal[ch]);
      expected.push_back(ch);
    }
    // Length 3 at distance code 29 (24577 + extra) only once there is that much; else code 0.
    if (expected.size() > 24577 + 100) {
      w.Code(lit[257], 14).Code(dist[29], 15).Bits(7, 13);
      for (int i = 0; i < 3; ++i) expected.push_back(expected[expected.size() - 24584]);
    } else {
      w.Code(lit[257], 14).Code(dist[0], 1);
      for (int i = 0; i < 3; ++i) expected.push_back(expected.back());
    }
  }
  w.Code(lit[256], 15);
  const Bytes stream = w.Done();
  ExpectDecoded(Inflate(stream), expected, stream.size(), "sub-tables");
  Config plain;
  plain.bmi2 = false;
  plain.in = SmallSettings(5);
  ExpectDecoded(Inflate(stream, plain), expected, stream.size(), "sub-tables, small buffers");
}

// Broken streams, each with the code it must raise.
struct BadCase {
  const char* name;
  Bytes stream;
  uint32_t code;
};

std::vector<BadCase> BadCases() {
  std::vector<BadCase> cases;
  cases.push_back({"EmptyInput", {}, kReadPastEnd});
  cases.push_back({"BlockType3", BitWriter().Header(true, 3).Done(), kBadData});
  cases.push_back({"StoredLengthsDisagree", BitWriter().Header(true, 0).Align().Bits(5, 16).Bits(5, 16).Done(),
                   kBadData});
  cases.push_back({"StoredBlockCutShort",
                   BitWriter().Header(true, 0).Align().Bits(5, 16).Bits(~5u & 0xFFFF, 16).Byte(1).Done(),
                   kReadPastEnd});
  cases.push_back({"LengthCode286", BitWriter().Header(true, 1).FixedSymbol(286).Done(), kBadData});
  cases.push_back({"LengthCode287", BitWriter().Header(true, 1).FixedSymbol('a').FixedSymbol(287).Done(), kBadData});
  cases.push_back({"NoFinalBlock", FixedBlockOf("abc", false), kReadPastEnd});
  {
    DynamicHeader h;  // a code-length code of three lengths of 1: over-subscribed
    h.literal.assign(257, 8);
    h.distance = {1};
    h.clLengths.assign(19, 0);
    h.clLengths[0] = h.clLengths[1] = h.clLengths[8] = 1;
    BitWriter w;
    WriteDynamicHeader(w, true, h, {});
    cases.push_back({"CodeLengthCodeOverSubscribed", w.Done(), kBadData});
  }
  {
    DynamicHeader h;  // no code-length code at all
    h.literal.assign(257, 8);
    h.distance = {1};
    h.clLengths.assign(19, 0);
    BitWriter w;
    WriteDynamicHeader(w, true, h, {});
    cases.push_back({"CodeLengthCodeEmpty", w.Done(), kBadData});
  }
  {
    DynamicHeader h;  // three literal codes of length 1
    h.literal.assign(257, 0);
    h.literal['a'] = h.literal['b'] = h.literal[256] = 1;
    h.distance = {1};
    BitWriter w;
    WriteDynamicHeader(w, true, h, PlainLengths(h));
    cases.push_back({"LiteralCodeOverSubscribed", w.Done(), kBadData});
  }
  {
    DynamicHeader h;  // three distance codes of length 1
    h.literal.assign(258, 0);
    h.literal['a'] = h.literal[256] = h.literal[257] = 2;
    h.distance = {1, 1, 1};
    BitWriter w;
    WriteDynamicHeader(w, true, h, PlainLengths(h));
    cases.push_back({"DistanceCodeOverSubscribed", w.Done(), kBadData});
  }
  {
    DynamicHeader h;  // only zero lengths for the literals
    h.literal.assign(257, 0);
    h.distance = {1};
    BitWriter w;
    WriteDynamicHeader(w, true, h, PlainLengths(h));
    cases.push_back({"LiteralCodeEmpty", w.Done(), kBadData});
  }
  {
    DynamicHeader h;  // 258 lengths to give, written as 138 + 138 zeros
    h.literal.assign(257, 0);
    h.distance = {0};
    BitWriter w;
    WriteDynamicHeader(w, true, h, {18 | (127 << 5), 18 | (127 << 5)});
    cases.push_back({"RepeatPastTheLengths", w.Done(), kBadData});
  }
  {
    // An incomplete code-length code (one symbol of length 2) whose hole is met.
    DynamicHeader h;
    h.literal.assign(257, 0);
    h.distance = {0};
    h.clLengths.assign(19, 0);
    h.clLengths[8] = 2;
    BitWriter w;
    WriteDynamicHeader(w, true, h, {});
    w.Code(3, 2);
    cases.push_back({"CodeLengthCodeHole", w.Done(), kBadData});
  }
  {
    // A distance code with a hole: lengths 1 and 2 (codes 0 and 10), then code 11 is met.
    DynamicHeader h;
    h.literal.assign(258, 0);
    h.literal['a'] = h.literal[256] = h.literal[257] = 2;
    h.distance = {1, 2};
    const std::vector<uint32_t> lit = CanonicalCodes(h.literal);
    BitWriter w;
    WriteDynamicHeader(w, true, h, PlainLengths(h));
    w.Code(lit['a'], 2).Code(lit[257], 2).Code(3, 2);
    cases.push_back({"DistanceCodeHole", w.Done(), kBadData});
  }
  {
    // Cut inside the extra bits of a length: the data ends, it is not invalid.
    cases.push_back({"CutInExtraBits", Bytes{0x03, 0x06}, kReadPastEnd});
  }
  return cases;
}

class InflateBad : public PipeTest, public testing::WithParamInterface<BadCase> {};

TEST_P(InflateBad, RaisesItsCode) {
  const BadCase& c = GetParam();
  for (int32_t in : {1, 4096}) {
    Config s;
    s.in = SmallSettings(in);
    const Outcome o = Inflate(c.stream, s);
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
        Config s;
        s.in = SmallSettings(in);
        s.out = SmallSettings(out);
        s.bmi2 = bmi2;
        const Outcome o = Inflate(stream, s);
        EXPECT_EQ(o.code, kBadData) << in << " " << out << " " << bmi2;
        outputs.push_back(o.bytes);
      }
  const Bytes& longest = *std::max_element(outputs.begin(), outputs.end(),
                                           [](const Bytes& a, const Bytes& b) { return a.size() < b.size(); });
  for (const Bytes& o : outputs) EXPECT_TRUE(std::equal(o.begin(), o.end(), longest.begin()));
}

// ---- The shared corpus.

std::string CorpusPath(const std::string& relative) { return std::string(RK_CORPUS_DIR) + "/" + relative; }

// Raw streams from another encoder, none of which sets the final bit: they must end in 7006,
// and with the first block made final they decode that block, a start of the known text.
TEST_F(PipeTest, InflateCorpusStreamsWithoutAFinalBlock) {
  const std::string folder = CorpusPath("klauspost-flate");
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no corpus at " << folder;
  int checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string file = entry.path().filename().string();
    const size_t dot = file.find('.');
    if (file == "MANIFEST" || dot == std::string::npos || file.substr(dot) == ".in") continue;
    const std::string plainPath = folder + "/" + file.substr(0, dot) + ".in";
    if (!std::filesystem::exists(plainPath)) continue;
    const Bytes stream = ReadFile(entry.path().string());
    const Bytes plain = ReadFile(plainPath);
    const Outcome whole = Inflate(stream);
    EXPECT_EQ(whole.code, kReadPastEnd) << file;
    Bytes first = stream;
    first[0] |= 1;
    const Outcome o = Inflate(first);
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
  struct Entry {
    const char* zip;
    uint32_t crc;
    uint64_t size;
  };
  const Entry entries[] = {{"commons-compress/zip/COMPRESS-380.zip", 0x2a604090, 3072},
                           {"commons-compress/zip/COMPRESS-380-readbeyondmemory.zip", 0x124e14f0, 17051},
                           {"commons-compress/zip/lorem-ipsum-deflate64.zip", 0xb9034f7e, 144060},
                           {"commons-compress/zip/COMPRESS-380-dd.zip", 0xee027fb2, 25}};
  for (const Entry& e : entries) {
    const std::string path = CorpusPath(e.zip);
    if (!std::filesystem::exists(path)) GTEST_SKIP() << "no corpus file " << path;
    const Bytes zip = ReadFile(path);
    ASSERT_GT(zip.size(), 30u);
    ASSERT_EQ(zip[8] | zip[9] << 8, 9) << e.zip << ": the first entry is Deflate64";
    const size_t start = 30 + (zip[26] | zip[27] << 8) + (zip[28] | zip[29] << 8);
    const Bytes rest(zip.begin() + static_cast<std::ptrdiff_t>(start), zip.end());
    for (int32_t in : {1, 1 << 16}) {
      Config s;
      s.mode = kDeflate64;
      s.in = SmallSettings(in);
      const Outcome o = Inflate(rest, s);
      ASSERT_EQ(o.code, 0u) << e.zip;
      EXPECT_EQ(o.bytes.size(), e.size) << e.zip;
      EXPECT_EQ(RkLib::RkCrc32(0, o.bytes.data(), o.bytes.size()), e.crc) << e.zip;
    }
  }
}

}  // namespace
}  // namespace RkPipeTest
