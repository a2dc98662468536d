// RkArchiveType: the content testers of the container types. Each answers the type code or 0.
// Signature testers read a few bytes of an open file; the others construct their container on
// the path and try a probe load, so they take the path. The testers keep no state.
#pragma once

#include "RkLibFwd.h"

namespace RkArcLib {

enum RkArcType : int {
  kArcTypeNone = 0,
  kArcType7z = 1,
  kArcTypeBzip2 = 2,
  kArcTypeCab = 3,
  kArcTypeGzip = 4,
  kArcTypeIso = 5,
  kArcTypeLha = 6,
  kArcTypeLZ = 7,
  kArcTypeRar = 8,
  kArcTypeTar = 9,
  kArcTypeUU = 10,
  kArcTypeXz = 11,
  kArcTypeZ = 12,
  kArcTypeZip = 13,
  kArcTypeVDisk = 14,
};

inline constexpr int kArcTypeFirst = kArcType7z;
inline constexpr int kArcTypeLast = kArcTypeVDisk;

class RkArchiveType {
 public:
  RkArchiveType() = default;
  RkArchiveType(const RkArchiveType&) = delete;
  RkArchiveType& operator=(const RkArchiveType&) = delete;
  virtual ~RkArchiveType();

  virtual int TestOpenFile(RkLib::RkFileIO& file) const;
  virtual int TestFileName(const RkLib::FidString& path) const;
};

// Signature testers: TestFileName opens the file and asks TestOpenFile, which reads from offset 0
// and leaves the file at offset 0.
class RkSignatureArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkBZip2ArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

class RkGZipArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

class RkXzArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

class RkZArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

// Encoded text: uuencode, xxencode, BinHex and MIME. Passes plain text only with the lines that
// start an encoded block.
class RkUUArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

// Virtual disks are known by extension first, since their signatures sit at either end of the file.
// The file position is restored.
class RkVDiskArchiveType : public RkSignatureArchiveType {
 public:
  int TestOpenFile(RkLib::RkFileIO& file) const override;
};

// Probe-load testers: true only when the container's own loader accepts the file. Until a
// container's reader exists its tester answers 0.
class Rk7zArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkCabArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkIsoArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkLhaArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkLZArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkRarArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkTarArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

class RkZipArchiveType : public RkArchiveType {
 public:
  int TestFileName(const RkLib::FidString& path) const override;
};

}  // namespace RkArcLib
