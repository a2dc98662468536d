#include "RkArchiveType.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "RkFileIO.h"
#include "RkString.h"
#include "RkZipFile.h"

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkFileIO;
using RkLib::RkSeekFrom;

namespace {

// Reads up to `size` bytes from offset 0 and rewinds, as every signature test must.
size_t ReadHead(RkFileIO& file, void* buffer, size_t size) {
  if (!file.Seek(0)) return 0;
  const size_t got = file.Read(buffer, size);
  file.Seek(0);
  return got;
}

bool StartsWith(const uint8_t* data, size_t size, std::string_view prefix) {
  return size >= prefix.size() && std::memcmp(data, prefix.data(), prefix.size()) == 0;
}

bool EqualNoCase(const uint8_t* data, std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (std::tolower(data[i]) != std::tolower(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

// `text` stands at data[pos], case ignored, wholly inside the bytes read.
bool TextAt(const uint8_t* data, size_t size, size_t pos, std::string_view text) {
  return pos + text.size() <= size && EqualNoCase(data + pos, text);
}

}  // namespace

RkArchiveType::~RkArchiveType() = default;

int RkArchiveType::TestOpenFile(RkFileIO&) const { return kArcTypeNone; }
int RkArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }

int RkSignatureArchiveType::TestFileName(const FidString& path) const {
  RkFileIO file;
  if (!file.Open(path, "rb")) return kArcTypeNone;
  return TestOpenFile(file);
}

int RkBZip2ArchiveType::TestOpenFile(RkFileIO& file) const {
  uint8_t head[3];
  const size_t got = ReadHead(file, head, sizeof head);
  return StartsWith(head, got, "BZh") ? kArcTypeBzip2 : kArcTypeNone;
}

int RkGZipArchiveType::TestOpenFile(RkFileIO& file) const {
  uint8_t head[2];
  // 1F 9E is the mark of the old gzip of version 0.5.
  const bool ok =
      ReadHead(file, head, sizeof head) == 2 && head[0] == 0x1F && (head[1] == 0x8B || head[1] == 0x9E);
  return ok ? kArcTypeGzip : kArcTypeNone;
}

int RkXzArchiveType::TestOpenFile(RkFileIO& file) const {
  uint8_t head[6];
  const size_t got = ReadHead(file, head, sizeof head);
  return StartsWith(head, got,
                    std::string_view("\xFD"
                                     "7zXZ\0",
                                     6))
             ? kArcTypeXz
             : kArcTypeNone;
}

int RkZArchiveType::TestOpenFile(RkFileIO& file) const {
  uint8_t head[2];
  const bool ok = ReadHead(file, head, sizeof head) == 2 && head[0] == 0x1F && head[1] == 0x9D;
  return ok ? kArcTypeZ : kArcTypeNone;
}

int RkVDiskArchiveType::TestOpenFile(RkFileIO& file) const {
  const bool vhd = file.Path().HasExtension(u"VHD");
  if (!vhd && !file.Path().HasExtension(u"VMDK")) return kArcTypeNone;
  const int64_t position = file.Tell();
  uint8_t data[512];
  bool pass = false;
  if (vhd) {
    // The footer is the last 512 bytes of every kind of VHD.
    const int64_t size = file.GetSize();
    pass = size >= 512 && file.ReadAt(data, 9, size - 512) == 9 && std::memcmp(data, "conectix\0", 9) == 0;
  } else {
    const size_t got = file.Seek(0) ? file.Read(data, sizeof data) : 0;
    if (got >= 4) {
      pass = StartsWith(data, got, "KDMV") || StartsWith(data, got, "COWD");
      constexpr std::string_view kDescriptor = "# Disk DescriptorFile";
      size_t pos = 0;
      while (!pass && pos + kDescriptor.size() < got && std::isspace(data[pos])) ++pos;
      pass = pass || TextAt(data, got, pos, kDescriptor);
    }
  }
  file.Seek(position);
  return pass ? kArcTypeVDisk : kArcTypeNone;
}

int RkUUArchiveType::TestOpenFile(RkFileIO& file) const {
  constexpr std::string_view kBinHexAlphabet =
      "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
  constexpr size_t kBinHexProbe = 40;
  uint8_t data[4096];
  const size_t size = ReadHead(file, data, sizeof data);
  if (size < kBinHexProbe + 1) return kArcTypeNone;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] >= 128) return kArcTypeNone;
  }
  bool atLineStart = true, contentType = false, sawBegin = false, sawBinhex = false;
  for (size_t pos = 0; pos + kBinHexProbe + 1 < size; ++pos) {
    const uint8_t c = data[pos];
    if (c == '\r' || c == '\n') {
      atLineStart = true;
      continue;
    }
    if (atLineStart) {
      // A Content-Type header with any line after it is a MIME message.
      if (contentType) return kArcTypeUU;
      atLineStart = false;
      if (TextAt(data, size, pos, "Content-Type")) {
        contentType = true;
        sawBinhex = false;
      } else if (TextAt(data, size, pos, "begin")) {
        sawBegin = true;
        sawBinhex = false;
      } else if (sawBegin && (c == 'M' || c == 'h')) {
        return kArcTypeUU;
      } else if (sawBinhex && c == ':' &&
                 std::string_view(reinterpret_cast<const char*>(data + pos + 1), kBinHexProbe)
                         .find_first_not_of(kBinHexAlphabet) == std::string_view::npos) {
        return kArcTypeUU;
      } else {
        sawBegin = contentType = sawBinhex = false;
      }
    } else if (contentType) {
      // Web-page archives and mail messages are not encoded files.
      if (TextAt(data, size, pos, "multipart/related") ||
          TextAt(data, size, pos, "application/x-mimearchive") || TextAt(data, size, pos, "message/rfc822")) {
        return kArcTypeNone;
      }
    }
    if (TextAt(data, size, pos, "binhex")) {
      if (contentType) return kArcTypeUU;
      sawBegin = false;
      sawBinhex = true;
    }
  }
  return kArcTypeNone;
}

// The probe load reads the end records and nothing more; whatever it reports is swallowed.
int RkZipArchiveType::TestFileName(const FidString& path) const {
  try {
    RkZipFile zip(path);
    RkState state;
    return zip.Load(-1, -1, nullptr, state) ? kArcTypeZip : kArcTypeNone;
  } catch (...) {
    return kArcTypeNone;
  }
}

// The readers of these containers come later; until then nothing is of their type.
int Rk7zArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkCabArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkIsoArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkLhaArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkLZArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkRarArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }
int RkTarArchiveType::TestFileName(const FidString&) const { return kArcTypeNone; }

}  // namespace RkArcLib
