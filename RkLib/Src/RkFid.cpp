#include "RkFid.h"

#include "RkError.h"

namespace RkLib {

namespace {

bool IsDriveLetter(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'); }

// End of the next component that starts at `from`, past its separator if there is one.
size_t PastComponent(std::u16string_view s, size_t from) {
  while (from < s.size() && !FidString::IsSeparator(s[from])) ++from;
  return from < s.size() ? from + 1 : from;
}

}  // namespace

FidString FidString::FromPosix(std::string_view utf8) {
  RkString s = RkString::FromUtf8(utf8);
  std::u16string body(s.view());
  for (char16_t& c : body)
    if (c == u'/') c = kSeparator;
  return FidString(RkString(std::move(body)));
}

bool FidString::HasDrive() const noexcept {
  std::u16string_view s = view();
  if (HasLongPathPrefix() && !startsWith(kLongUncPrefix)) s.remove_prefix(kLongPathPrefix.size());
  return s.size() >= 2 && IsDriveLetter(s[0]) && s[1] == u':';
}

size_t FidString::RootLength() const noexcept {
  std::u16string_view s = view();
  if (startsWith(kLongUncPrefix)) {  // \\?\UNC\server\share\ .
    size_t p = PastComponent(s, kLongUncPrefix.size());
    return PastComponent(s, p);
  }
  size_t base = 0;
  if (HasLongPathPrefix()) base = kLongPathPrefix.size();
  std::u16string_view rest = s.substr(base);
  if (rest.size() >= 2 && IsDriveLetter(rest[0]) && rest[1] == u':')
    return base + ((rest.size() >= 3 && IsSeparator(rest[2])) ? 3 : 2);
  if (base == 0 && s.size() >= 2 && IsSeparator(s[0]) && IsSeparator(s[1])) {  // \\server\share\ .
    size_t p = PastComponent(s, 2);
    return PastComponent(s, p);
  }
  if (!rest.empty() && IsSeparator(rest[0])) return base + 1;
  return base;
}

bool FidString::IsAbsolute() const noexcept {
  size_t root = RootLength();
  // "C:" alone is relative to the drive's current folder.
  return root > 0 && (IsSeparator(view()[root - 1]) || !HasDrive());
}

bool FidString::IsRoot() const noexcept {
  if (empty()) return false;
  size_t root = RootLength();
  if (root == 0) return false;
  std::u16string_view s = view().substr(root);
  for (char16_t c : s)
    if (!IsSeparator(c)) return false;
  return true;
}

size_t FidString::NameStart() const noexcept {
  size_t root = RootLength();
  size_t sep = findLastOf(u"\\/");
  size_t start = sep == npos ? 0 : sep + 1;
  return start < root ? root : start;
}

size_t FidString::ExtensionDot() const noexcept {
  size_t start = NameStart();
  size_t dot = rfind(u'.');
  if (dot == npos || dot <= start) return npos;  // none, or the name's leading dot
  std::u16string_view name = view().substr(start);
  if (name == u"." || name == u"..") return npos;
  return dot;
}

FidString FidString::GetFolder() const { return FidString(substr(0, NameStart())); }

RkString FidString::GetName() const { return substr(NameStart()); }

RkString FidString::GetBaseName() const {
  size_t start = NameStart();
  size_t dot = ExtensionDot();
  return substr(start, dot == npos ? npos : dot - start);
}

RkString FidString::GetExtension() const {
  size_t dot = ExtensionDot();
  return dot == npos ? RkString() : substr(dot + 1);
}

bool FidString::HasExtension(std::u16string_view ext) const { return GetExtension().equalsNoCase(ext); }

FidString& FidString::AddSeparator() {
  if (!empty() && !EndsWithSeparator() && !(HasDrive() && RootLength() == size())) append(kSeparator);
  return *this;
}

FidString& FidString::RemoveSeparator() {
  size_t root = RootLength();
  size_t n = size();
  while (n > root && IsSeparator(view()[n - 1])) --n;
  resize(n);
  return *this;
}

FidString& FidString::Append(std::u16string_view name) {
  while (!name.empty() && IsSeparator(name.front()) && !empty()) name.remove_prefix(1);
  if (name.empty()) return *this;
  AddSeparator();
  append(name);
  return *this;
}

FidString& FidString::ReplaceName(std::u16string_view name) {
  resize(NameStart());
  append(name);
  return *this;
}

FidString& FidString::ReplaceExtension(std::u16string_view ext) {
  size_t dot = ExtensionDot();
  if (dot != npos) resize(dot);
  if (!ext.empty()) {
    append(u'.');
    append(ext);
  }
  return *this;
}

bool FidString::SamePath(std::u16string_view other) const {
  std::u16string_view a = view();
  if (a.size() != other.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (IsSeparator(a[i]) && IsSeparator(other[i])) continue;
    if (RkFoldCase(a[i]) != RkFoldCase(other[i])) return false;
  }
  return true;
}

bool FidString::Contains(std::u16string_view other) const {
  FidString folder(*this);
  folder.RemoveSeparator();
  if (other.size() < folder.size()) return false;
  if (!folder.SamePath(other.substr(0, folder.size()))) return false;
  return other.size() == folder.size() || folder.EndsWithSeparator() || IsSeparator(other[folder.size()]);
}

std::string FidString::ToPosix() const {
  std::u16string_view s = view();
  std::u16string body;
  if (startsWith(kLongUncPrefix)) {
    body = u"//";
    s.remove_prefix(kLongUncPrefix.size());
  } else if (HasLongPathPrefix()) {
    s.remove_prefix(kLongPathPrefix.size());
  }
  body.append(s);
  for (char16_t& c : body)
    if (c == u'\\') c = u'/';
  return RkString(std::move(body)).toUtf8();
}

FidList::~FidList() { Clear(); }

void FidList::Add(const FidString& id) {
  auto* member = new FidMember(id);
  if (count_ != 0) {
    RK_ASSERT(tail_ != nullptr);
    tail_->next = member;
  } else {
    head_ = member;
  }
  tail_ = member;
  ++count_;
}

void FidList::Clear() {
  for (FidMember* m = head_; m;) {
    FidMember* next = m->next;
    delete m;
    m = next;
  }
  head_ = tail_ = nullptr;
  count_ = 0;
}

}  // namespace RkLib
