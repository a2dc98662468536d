#include "RkArchiveFactory.h"

#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

#include "RkArcResources.h"
#include "RkArcSupportInfo.h"
#include "RkArcTypeSettings.h"
#include "RkArchive.h"
#include "RkArchiveType.h"
#include "RkError.h"
#include "RkFileIO.h"
#include "RkFileOps.h"
#include "RkZipFile.h"

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkFileIO;
using RkLib::RkString;

namespace {

struct BuiltInExtension {
  const char16_t* extension;
  int type;
  bool primary;
  bool verify;
};

constexpr BuiltInExtension kBuiltInExtensions[] = {
    {u"7Z", kArcType7z, true, false},       {u"B64", kArcTypeUU, false, false},
    {u"BHX", kArcTypeUU, false, false},     {u"BZ", kArcTypeBzip2, false, false},
    {u"BZ2", kArcTypeBzip2, true, false},   {u"CAB", kArcTypeCab, true, false},
    {u"GZ", kArcTypeGzip, true, false},     {u"HQX", kArcTypeUU, false, false},
    {u"IMG", kArcTypeIso, false, false},    {u"ISO", kArcTypeIso, true, false},
    {u"LHA", kArcTypeLha, true, false},     {u"LZH", kArcTypeLha, false, false},
    {u"LZS", kArcTypeLha, false, false},    {u"MIM", kArcTypeUU, false, false},
    {u"MIME", kArcTypeUU, false, false},    {u"RAR", kArcTypeRar, true, false},
    {u"TAR", kArcTypeTar, true, false},     {u"TAZ", kArcTypeZ, false, true},
    {u"TBZ", kArcTypeBzip2, false, false},  {u"TBZ2", kArcTypeBzip2, false, false},
    {u"TGZ", kArcTypeGzip, false, false},   {u"TXZ", kArcTypeXz, false, false},
    {u"TZ", kArcTypeZ, false, true},        {u"UU", kArcTypeUU, false, false},
    {u"UUE", kArcTypeUU, false, false},     {u"VHD", kArcTypeVDisk, false, false},
    {u"VMDK", kArcTypeVDisk, false, false}, {u"WMZ", kArcTypeZip, false, false},
    {u"WSZ", kArcTypeZip, false, false},    {u"XX", kArcTypeUU, false, false},
    {u"XXE", kArcTypeUU, false, false},     {u"XZ", kArcTypeXz, true, false},
    {u"YFS", kArcTypeZip, false, false},    {u"Z", kArcTypeZ, true, true},
    {u"ZIP", kArcTypeZip, true, false},     {u"ZIPX", kArcTypeZip, false, false},
    {nullptr, kArcTypeNone, false, false},
};

// The testers in chain order, built once for the process.
struct Testers {
  RkBZip2ArchiveType bzip2;
  RkGZipArchiveType gzip;
  RkXzArchiveType xz;
  RkZArchiveType z;
  RkZipArchiveType zip;
  RkLZArchiveType lz;
  RkCabArchiveType cab;
  RkLhaArchiveType lha;
  Rk7zArchiveType sevenZip;
  RkIsoArchiveType iso;
  RkRarArchiveType rar;
  RkTarArchiveType tar;
  RkVDiskArchiveType vdisk;
  RkUUArchiveType uu;

  const RkArchiveType* const signatures[4] = {&bzip2, &gzip, &xz, &z};
  const RkArchiveType* const probes[9] = {&zip, &lz, &cab, &lha, &sevenZip, &iso, &rar, &tar, &vdisk};
};

const Testers& GetTesters() {
  static const Testers testers;
  return testers;
}

uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

// Files that are known not to be archives although a later test might take them.
bool IsExcluded(const uint8_t (&head)[68]) {
  // An executable with a 512-byte paragraph header that is not a DOS program ("MZ").
  if (Le16(head + 12) == 512 && Le16(head + 30) <= 2 && head[0] != 'M' && head[1] != 'Z') return true;
  // A compound document.
  return std::memcmp(head, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) == 0;
}

// Makes an absolute path of `path` against the working folder; false when that cannot be known.
bool MakeAbsolute(FidString& path) {
  if (path.IsAbsolute()) return true;
  char cwd[PATH_MAX];
  if (!::getcwd(cwd, sizeof cwd)) return false;
  FidString absolute = FidString::FromPosix(cwd);
  absolute.Append(path);
  path = absolute;
  return true;
}

// A free name after the template "_RKXXXXXX" in `folder`; the template itself when none is free.
FidString ScratchName(const FidString& folder) {
  FidString base = folder;
  base.AddSeparator();
  const RkString digits =
      RkLib::RkFormatUnsigned(u"%05llu", static_cast<unsigned long long>(::getpid()) % 100000);
  for (char16_t first = u'a'; first <= u'z'; ++first) {
    FidString candidate = base;
    candidate.Append(RkString(u"_RK") + std::u16string_view(&first, 1) + digits);
    if (!RkLib::RkPathExists(candidate)) return candidate;
  }
  FidString candidate = base;
  candidate.Append(u"_RKXXXXXX");
  return candidate;
}

}  // namespace

RkArchiveFactory::RkArchiveFactory() {
  for (const BuiltInExtension* row = kBuiltInExtensions; row->extension; ++row) {
    extensions_.emplace(row->extension, row->type);
    if (row->verify) verifiedExtensions_.emplace(row->extension, row->type);
    extensionsByType_.emplace(row->type, row->extension);
    if (row->primary) primaryExtensions_.emplace(row->type, row->extension);
  }
}

RkArchiveFactory::~RkArchiveFactory() = default;

std::unique_ptr<RkArchive> RkArchiveFactory::NewArchive(int type, const FidString& path) {
  switch (type) {
    case kArcTypeZip:
      return std::make_unique<RkZipFile>(path);
    default:
      return nullptr;  // the readers of the other containers come later
  }
}

std::unique_ptr<RkArchive> RkArchiveFactory::CreateArchive(int type, const FidString& path) {
  if (!IsValidType(type)) return nullptr;
  std::unique_ptr<RkArchive> archive;
  try {
    archive = NewArchive(type, path);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (!archive) return nullptr;
  RkArcTypeSettings* settings = GetTypeSettings(type);
  if (!settings) return archive;
  settings->SetPrimaryExtension(GetPrimaryExtension(type));
  const auto info = archive->GetSupportInfo();
  settings->SetHasOptions(info && (info->Slot25() || info->Slot82() || info->Slot66() || info->Slot73()));
  archive->SetTypeSettingsObject(settings);
  return archive;
}

std::unique_ptr<RkArchive> RkArchiveFactory::CreateArchive(const FidString& path) {
  return CreateArchive(GetArchiveType(path, true), path);
}

uint32_t RkArchiveFactory::TypeNameResource(int type) noexcept {
  return (type >= kArcTypeFirst && type <= kArcTypeLast) ? kArcTypeNameBase + static_cast<uint32_t>(type)
                                                         : kArcTypeNameUnknown;
}

RkString RkArchiveFactory::GetTypeName(int type) const { return RkArcResourceText(TypeNameResource(type)); }

RkString RkArchiveFactory::GetTypeName(const FidString& path) const {
  return GetTypeName(GetArchiveType(path, true));
}

RkArcTypeSettings* RkArchiveFactory::SetTypeSettings(RkArcTypeSettings* settings, int type) {
  RkArcTypeSettings*& slot = typeSettings_[type];
  RkArcTypeSettings* earlier = slot;
  slot = settings;
  return earlier;
}

RkArcTypeSettings* RkArchiveFactory::GetTypeSettings(const FidString& path) const {
  return GetTypeSettings(GetArchiveType(path, false));
}

RkArcTypeSettings* RkArchiveFactory::GetTypeSettings(int type) const {
  const auto it = typeSettings_.find(type);
  return it == typeSettings_.end() ? nullptr : it->second;
}

bool RkArchiveFactory::IsValidType(int type) const { return type >= kArcTypeFirst && type <= kArcTypeLast; }

bool RkArchiveFactory::IsArchive(const FidString& path) const {
  return IsValidType(GetArchiveType(path, true));
}

int RkArchiveFactory::GetArchiveType(const FidString& path, bool checkContent) const {
  if (path.empty()) return kArcTypeNone;
  const RkString extension = path.GetExtension();
  const auto it = extensions_.find(extension);
  if (it == extensions_.end()) return checkContent ? TestContent(path) : kArcTypeNone;
  if (checkContent && verifiedExtensions_.count(extension) != 0) {
    const int found = TestContent(path);
    if (found != kArcTypeNone) return found;
  }
  return it->second;
}

int RkArchiveFactory::TestContent(const FidString& path) {
  RkFileIO file;
  if (!file.Open(path, "rb")) return kArcTypeNone;
  uint8_t head[68];
  if (file.Read(head, sizeof head) == sizeof head && IsExcluded(head)) return kArcTypeNone;
  if (!file.Seek(0)) return kArcTypeNone;
  const Testers& testers = GetTesters();
  for (const RkArchiveType* tester : testers.signatures) {
    if (const int type = tester->TestOpenFile(file)) return type;
  }
  for (const RkArchiveType* tester : testers.probes) {
    if (const int type = tester->TestFileName(path)) return type;
  }
  return testers.uu.TestOpenFile(file);
}

int RkArchiveFactory::CanCreateIn(const FidString& folder, const RkString& name) {
  FidString path = ScratchName(folder);
  path.ReplaceName(name);
  if (!MakeAbsolute(path)) return 0;
  const std::unique_ptr<RkArchive> archive = CreateArchive(path);
  if (!archive) return 0;
  const auto info = archive->GetSupportInfo();
  if (!info || !info->CanCreateNew()) return 1;
  const RkArcTypeSettings* settings = archive->GetTypeSettingsObject();
  return (!settings || settings->AllowsWideNames()) ? 1 : 2;
}

bool RkArchiveFactory::AddExtension(const RkString& extension, int type, bool verify) {
  if (!extensions_.emplace(extension, type).second) return false;
  if (verify) verifiedExtensions_[extension] = type;
  extensionsByType_.emplace(type, extension);
  return true;
}

bool RkArchiveFactory::RemoveExtension(const RkString& extension) {
  const auto it = extensions_.find(extension);
  if (it == extensions_.end()) return false;
  const int type = it->second;
  const auto primary = primaryExtensions_.find(type);
  if (primary != primaryExtensions_.end() && primary->second.equalsNoCase(extension)) return false;
  auto [first, last] = extensionsByType_.equal_range(type);
  for (auto row = first; row != last; ++row) {
    if (row->second.equalsNoCase(extension)) {
      extensionsByType_.erase(row);
      break;
    }
  }
  verifiedExtensions_.erase(extension);
  extensions_.erase(it);
  return true;
}

size_t RkArchiveFactory::GetExtensionCount() const { return extensionsByType_.size(); }

size_t RkArchiveFactory::GetExtensionCount(int type) const { return extensionsByType_.count(type); }

RkString RkArchiveFactory::GetExtension(size_t index) const {
  if (index >= extensionsByType_.size()) return RkString();
  return std::next(extensionsByType_.begin(), static_cast<ptrdiff_t>(index))->second;
}

RkString RkArchiveFactory::GetExtension(int type, size_t index) const {
  auto [first, last] = extensionsByType_.equal_range(type);
  for (auto row = first; row != last; ++row, --index) {
    if (index == 0) return row->second;
  }
  return RkString();
}

RkString RkArchiveFactory::GetPrimaryExtension(int type) const {
  const auto it = primaryExtensions_.find(type);
  return it == primaryExtensions_.end() ? RkString() : it->second;
}

}  // namespace RkArcLib
