// RkArcSelection: an extraction request: which items, where to, with which password and options.
//
// Setters ask the archive type's support information first and refuse, with RkFatalError, an
// option that the type does not offer; so a format only ever meets options it knows. The modes
// of a run (test, to memory, one pipe, names only) belong to the request as well, since the
// callers of Extract choose them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "RkFid.h"
#include "RkString.h"

namespace RkArcLib {

class RkArcSupportInfo;

// Support slots that guard the options of a selection.
enum RkArcSelectionSlot : uint32_t {
  kArcSlotBaseFolder = 67,
  kArcSlotAttributeMode = 65,
};

class RkArcSelection {
 public:
  struct Item {
    RkLib::RkString name;
    bool wildcard = false;
  };

  // Null support: every option is refused except the items and the modes.
  explicit RkArcSelection(std::shared_ptr<const RkArcSupportInfo> support = nullptr);

  // A name with '/' or '\' between its parts; `wildcard` lets '*' and '?' match. Names are
  // compared without regard to case, with either separator. No item at all selects everything.
  void AddItem(const RkLib::RkString& name, bool wildcard);
  const std::vector<Item>& Items() const { return items_; }
  bool Matches(const RkLib::RkString& entryName) const;

  void SetBaseFolder(const RkLib::FidString& folder);
  const RkLib::FidString& BaseFolder() const { return baseFolder_; }
  // Items are written under their names without the folders of the archive.
  void SetJunkPaths(bool junk) { junkPaths_ = junk; }
  bool JunkPaths() const { return junkPaths_; }

  void SetPassword(const RkLib::RkString& password);
  bool HasPassword() const { return hasPassword_; }
  const RkLib::RkString& Password() const { return password_; }

  // An option whose guarding support slot is `filter`.
  void SetOption(uint32_t filter, bool value);
  bool Option(uint32_t filter, bool otherwise = false) const;
  void SetAttributeMode(int mode);
  int AttributeMode() const { return attributeMode_; }

  // Run modes.
  bool toMemory = false;    // the data goes to the caller's memory, one item at a time
  bool singlePipe = false;  // one pipe: items strictly one after the other
  bool listOnly = false;    // only the names of the selected items go to the callback
  bool noCrcCheck = false;  // the data is not checked against its CRC and digests

  ~RkArcSelection();
  RkArcSelection(const RkArcSelection&) = delete;
  RkArcSelection& operator=(const RkArcSelection&) = delete;

  // '*' any run, '?' one character; no regard to case; '/' and '\' equal.
  static bool WildcardMatch(std::u16string_view pattern, std::u16string_view name);

 private:
  bool Supports(uint32_t slot) const;

  std::shared_ptr<const RkArcSupportInfo> support_;
  std::vector<Item> items_;
  RkLib::FidString baseFolder_;
  RkLib::RkString password_;
  std::map<uint32_t, bool> options_;
  int attributeMode_ = 0;
  bool hasPassword_ = false;
  bool junkPaths_ = false;
};

}  // namespace RkArcLib
