// RkArchiveFactory: the extension tables and the chain of content tests that decide a file's type.
//
// The chain runs the cheap signatures first, then the probe loads by how common the format is, and
// the text scan last; the first test that answers decides, so a file that could pass two tests
// belongs to the earlier one. Only extensions marked "verify" are confirmed by content.
#pragma once

#include <map>

#include "IArchiveFactory.h"
#include "RkString.h"

namespace RkArcLib {

class RkArchiveFactory : public IArchiveFactory {
 public:
  RkArchiveFactory();
  ~RkArchiveFactory() override;

  std::unique_ptr<RkArchive> CreateArchive(int type, const RkLib::FidString& path) override;
  std::unique_ptr<RkArchive> CreateArchive(const RkLib::FidString& path) override;
  RkLib::RkString GetTypeName(int type) const override;
  RkLib::RkString GetTypeName(const RkLib::FidString& path) const override;
  RkArcTypeSettings* SetTypeSettings(RkArcTypeSettings* settings, int type) override;
  RkArcTypeSettings* GetTypeSettings(const RkLib::FidString& path) const override;
  RkArcTypeSettings* GetTypeSettings(int type) const override;
  bool IsValidType(int type) const override;
  bool IsArchive(const RkLib::FidString& path) const override;
  int GetArchiveType(const RkLib::FidString& path, bool checkContent) const override;
  int CanCreateIn(const RkLib::FidString& folder, const RkLib::RkString& name) override;
  bool AddExtension(const RkLib::RkString& extension, int type, bool verify) override;
  bool RemoveExtension(const RkLib::RkString& extension) override;
  size_t GetExtensionCount() const override;
  size_t GetExtensionCount(int type) const override;
  RkLib::RkString GetExtension(size_t index) const override;
  RkLib::RkString GetExtension(int type, size_t index) const override;

  RkLib::RkString GetPrimaryExtension(int type) const;
  // Resource id of a type's display name.
  static uint32_t TypeNameResource(int type) noexcept;
  // The content tests alone, without regard to the name's extension. 0 when nothing passes.
  static int TestContent(const RkLib::FidString& path);

 protected:
  // Constructs the container object; null for a type whose reader does not exist.
  virtual std::unique_ptr<RkArchive> NewArchive(int type, const RkLib::FidString& path);

 private:
  struct NoCaseLess {
    bool operator()(const RkLib::RkString& a, const RkLib::RkString& b) const {
      return a.compareNoCase(b) < 0;
    }
  };

  std::map<RkLib::RkString, int, NoCaseLess> extensions_;
  std::map<RkLib::RkString, int, NoCaseLess> verifiedExtensions_;
  std::multimap<int, RkLib::RkString> extensionsByType_;
  std::map<int, RkLib::RkString> primaryExtensions_;
  std::map<int, RkArcTypeSettings*> typeSettings_;
};

}  // namespace RkArcLib
