#include "RkArcSelection.h"

#include "RkArcSupportInfo.h"
#include "RkError.h"
#include "RkState.h"

namespace RkArcLib {

using RkLib::RkString;

namespace {

char16_t Fold(char16_t c) {
  if (c == u'\\') return u'/';
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c - u'A' + u'a');
  return c;
}

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

}  // namespace

RkArcSelection::RkArcSelection(std::shared_ptr<const RkArcSupportInfo> support) : support_(std::move(support)) {}

RkArcSelection::~RkArcSelection() { password_.wipe(); }

void RkArcSelection::AddItem(const RkString& name, bool wildcard) { items_.push_back({name, wildcard}); }

bool RkArcSelection::Matches(const RkString& entryName) const {
  if (items_.empty()) return true;
  for (const Item& item : items_) {
    if (item.wildcard ? WildcardMatch(item.name, entryName) : SameName(item.name, entryName)) return true;
  }
  return false;
}

// Iterative, with one back-track point: the last '*' seen. Linear in practice, and never
// exponential however many stars a pattern holds.
bool RkArcSelection::WildcardMatch(std::u16string_view pattern, std::u16string_view name) {
  size_t p = 0, n = 0;
  size_t starP = std::u16string_view::npos, starN = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == u'*') {
      starP = p++;
      starN = n;
    } else if (p < pattern.size() && (pattern[p] == u'?' || Fold(pattern[p]) == Fold(name[n]))) {
      ++p;
      ++n;
    } else if (starP != std::u16string_view::npos) {
      p = starP + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == u'*') ++p;
  return p == pattern.size();
}

bool RkArcSelection::Supports(uint32_t slot) const {
  if (!support_) return false;
  const RkArcSupportInfo& s = *support_;
  switch (slot) {
    case 47: return s.Slot47();
    case 49: return s.Slot49();
    case 50: return s.Slot50();
    case 54: return s.Slot54();
    case 55: return s.Slot55();
    case 56: return s.Slot56();
    case 58: return s.Slot58();
    case 59: return s.Slot59();
    case kArcSlotAttributeMode: return s.Slot65();
    case kArcSlotBaseFolder: return s.Slot67();
    default: return false;
  }
}

void RkArcSelection::SetBaseFolder(const RkLib::FidString& folder) {
  if (!Supports(kArcSlotBaseFolder)) throw RkLib::RkFatalError(kArcNotSupported);
  baseFolder_ = folder;
}

void RkArcSelection::SetPassword(const RkString& password) {
  password_.wipe();
  password_ = password;
  hasPassword_ = true;
}

void RkArcSelection::SetOption(uint32_t filter, bool value) {
  if (!Supports(filter)) throw RkLib::RkFatalError(kArcNotSupported);
  options_[filter] = value;
}

bool RkArcSelection::Option(uint32_t filter, bool otherwise) const {
  const auto it = options_.find(filter);
  return it == options_.end() ? otherwise : it->second;
}

void RkArcSelection::SetAttributeMode(int mode) {
  if (!Supports(kArcSlotAttributeMode)) throw RkLib::RkFatalError(kArcNotSupported);
  attributeMode_ = mode;
}

}  // namespace RkArcLib
