// IArchiveFactory: turns a path into the right RkArchive. The viewer keeps one for the life of the
// process; nothing outside the factory knows the concrete container classes.
#pragma once

#include <cstddef>
#include <memory>

#include "RkFid.h"

namespace RkArcLib {

class RkArchive;
class RkArcTypeSettings;

class IArchiveFactory {
 public:
  virtual ~IArchiveFactory() = default;

  // Null for a type outside 1..14. The file is not touched.
  virtual std::unique_ptr<RkArchive> CreateArchive(int type, const RkLib::FidString& path) = 0;
  // Null when no test recognises the file.
  virtual std::unique_ptr<RkArchive> CreateArchive(const RkLib::FidString& path) = 0;
  virtual RkLib::RkString GetTypeName(int type) const = 0;
  virtual RkLib::RkString GetTypeName(const RkLib::FidString& path) const = 0;
  // Returns the object it replaces, or null. Not owned.
  virtual RkArcTypeSettings* SetTypeSettings(RkArcTypeSettings* settings, int type) = 0;
  virtual RkArcTypeSettings* GetTypeSettings(const RkLib::FidString& path) const = 0;
  virtual RkArcTypeSettings* GetTypeSettings(int type) const = 0;
  virtual bool IsValidType(int type) const = 0;
  virtual bool IsArchive(const RkLib::FidString& path) const = 0;
  virtual int GetArchiveType(const RkLib::FidString& path, bool checkContent) const = 0;
  // 0: no; 1: yes; 2: yes, with narrow names only.
  virtual int CanCreateIn(const RkLib::FidString& folder, const RkLib::RkString& name) = 0;
  virtual bool AddExtension(const RkLib::RkString& extension, int type, bool verify) = 0;
  virtual bool RemoveExtension(const RkLib::RkString& extension) = 0;
  virtual size_t GetExtensionCount() const = 0;
  virtual size_t GetExtensionCount(int type) const = 0;
  virtual RkLib::RkString GetExtension(size_t index) const = 0;
  virtual RkLib::RkString GetExtension(int type, size_t index) const = 0;
};

}  // namespace RkArcLib
