#include "RkZipEntry.h"

#include <algorithm>

#include "RkFid.h"

namespace RkArcLib {

namespace {

// Hosts whose external attributes carry the DOS attribute byte.
bool HasDosAttributes(uint8_t host) noexcept { return host == 0 || host == 6 || host == 11 || host == 14; }

bool NameEndsWithSeparator(const RkLib::RkString& name) {
  return !name.empty() && RkLib::FidString::IsSeparator(name.back());
}

}  // namespace

RkZipEntryDetail& RkZipEntry::Detail() {
  if (!detail_) detail_ = std::make_unique<RkZipEntryDetail>();
  return *detail_;
}

const RkLib::RkString& RkZipEntry::Comment() const {
  static const RkLib::RkString none;
  return detail_ ? detail_->comment : none;
}

bool RkZipEntry::HasReference() const noexcept {
  if (!detail_) return false;
  return std::any_of(detail_->referenceId.begin(), detail_->referenceId.end(), [](uint8_t b) { return b != 0; });
}

uint32_t RkZipEntry::EffectiveMethod() const noexcept {
  const RkAesEncryption* aes = Aes();
  return IsEncrypted() && aes ? aes->method : method;
}

bool RkZipEntry::IsDirectory() const noexcept {
  const uint8_t host = HostSystem();
  const uint32_t upper = externalAttributes >> 16;
  if (HasDosAttributes(host)) {
    if (externalAttributes & 0x10) return true;
    if (originalSize64 != 0) return false;
    return NameEndsWithSeparator(name);
  }
  if (host == 1) return (upper & 0x0C00) == 0x0800;
  if (host == 3 || host == 7) return (upper & 0xF000) == 0x4000;
  return NameEndsWithSeparator(name);
}

bool RkZipEntry::IsLabel() const noexcept {
  const uint8_t host = HostSystem();
  return (externalAttributes & 0x08) != 0 && (host == 0 || host == 5 || host == 6 || host == 11);
}

bool RkZipEntry::IsSymbolicLink() const noexcept { return ((externalAttributes >> 16) & 0xA000) == 0xA000; }

RkLib::RkTimeStamp RkZipEntry::Modified() const {
  if (const RkExtTimeStamps* times = ExtTimeStamps(); times && times->modified.isSet) return times->modified;
  try {
    return RkLib::RkTimeStamp::FromDosDateTime(modDate, modTime);
  } catch (const RkLib::TimeStampNotValid&) {
    return RkLib::RkTimeStamp::Now();  // a writer that stored no date at all
  }
}

const char* RkZipEntry::MethodName(uint32_t method) noexcept {
  static constexpr const char* kLow[] = {"none (stored)",
                                         "shrunk",
                                         "reduced (factor 1)",
                                         "reduced (factor 2)",
                                         "reduced (factor 3)",
                                         "reduced (factor 4)",
                                         "imploded",
                                         "tokenized",
                                         "deflated",
                                         "deflated (enhanced)",
                                         "imploded (PK DCL)",
                                         "reserved by PKWARE",
                                         "bzip2 algorithm",
                                         "reserved by PKWARE",
                                         "lzma encoding",
                                         "reserved by PKWARE",
                                         "reserved by PKWARE",
                                         "reserved by PKWARE",
                                         "IBM TERSE (new)",
                                         "IBM LZ77 z Architecture (PFS)"};
  static constexpr const char* kHigh[] = {"duplicate file reference", "zstd compression",  "mp3 compression",
                                          "xz compression",           "jpeg compression",  "wavpack compression",
                                          "ppmd encoding",            "AES encryption"};
  if (method < std::size(kLow)) return kLow[method];
  if (method >= 92 && method < 92 + std::size(kHigh)) return kHigh[method - 92];
  return "unknown";
}

const char* RkZipEntry::HostName(uint8_t host) noexcept {
  static constexpr const char* kNames[] = {
      "MS-DOS, OS/2, NT FAT", "Amiga",  "VMS",           "Unix",       "VM/CMS",     "Atari ST",    "OS/2, NT HPFS",
      "Macintosh HFS",        "Z-System", "CP/M",        "TOPS-20",    "NTFS",       "SMS/QDOS",    "Acorn RISC OS",
      "Win32 VFAT",           "MVS",    "BeOS",          "Tandem NSK", "Tandem NSK", "Mac OS X"};
  return host < std::size(kNames) ? kNames[host] : "unknown";
}

}  // namespace RkArcLib
