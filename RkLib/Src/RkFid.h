// File ids: FidString, the libraries' value for a path, and FidList, a list of them.
//
// Inside the libraries a path keeps the `\` form of the archive formats; `/` is accepted as a
// separator everywhere, so names from any source split the same way. Only the POSIX layer turns
// a FidString into a system path (ToPosix).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "RkString.h"

namespace RkLib {

class FidString : public RkString {
 public:
  static constexpr char16_t kSeparator = u'\\';
  // Characters that matter to paths.
  static constexpr std::u16string_view kPathChars = u"\\/:.";
  static constexpr std::u16string_view kLongPathPrefix = u"\\\\?\\";
  static constexpr std::u16string_view kLongUncPrefix = u"\\\\?\\UNC\\";

  FidString() = default;
  FidString(const char16_t* text) : RkString(text) {}  // NOLINT(google-explicit-constructor)
  FidString(std::u16string_view text) : RkString(text) {}  // NOLINT(google-explicit-constructor)
  FidString(const RkString& text) : RkString(text) {}  // NOLINT(google-explicit-constructor)
  FidString(RkString&& text) noexcept : RkString(std::move(text)) {}  // NOLINT
  static FidString FromNarrow(std::string_view text, int selector) {
    return FidString(RkString::FromNarrow(text, selector));
  }
  // A path from the system: UTF-8 with `/` separators.
  static FidString FromPosix(std::string_view utf8);

  static bool IsSeparator(char16_t c) noexcept { return c == u'\\' || c == u'/'; }

  // Length of the root: "\" 1, "C:" 2, "C:\" 3, "\\server\share\" to its end, the long-path
  // prefixes with what they carry; 0 for a relative path.
  size_t RootLength() const noexcept;
  bool HasDrive() const noexcept;
  bool HasLongPathPrefix() const noexcept { return startsWith(kLongPathPrefix); }
  bool IsAbsolute() const noexcept;
  // Only a root, nothing below it: "\", "C:\", "C:", "\\server\share".
  bool IsRoot() const noexcept;
  bool EndsWithSeparator() const noexcept { return !empty() && IsSeparator(back()); }
  // Empty, or names a folder only: ends in a separator or is a root.
  bool IsFolderOnly() const noexcept { return empty() || EndsWithSeparator() || IsRoot(); }

  // "a\b\c.txt": folder "a\b\" (with its separator, so appending a name just concatenates),
  // name "c.txt", base "c", extension "txt". A name that begins with its only dot (".profile"),
  // "." and ".." have no extension.
  FidString GetFolder() const;
  RkString GetName() const;
  RkString GetBaseName() const;
  RkString GetExtension() const;
  bool HasExtension(std::u16string_view ext) const;  // without regard to case

  // Joins with exactly one separator; appending an empty name leaves the id unchanged.
  FidString& Append(std::u16string_view name);
  FidString& AddSeparator();
  // Removes trailing separators but never cuts into the root.
  FidString& RemoveSeparator();
  FidString& ReplaceName(std::u16string_view name);
  FidString& ReplaceExtension(std::u16string_view ext);

  // Same path: separators of either kind are equal, and case does not matter.
  bool SamePath(std::u16string_view other) const;
  // `other` lies inside this folder (or is it).
  bool Contains(std::u16string_view other) const;

  // The system's form: UTF-8, `/` separators, a long-path prefix dropped.
  std::string ToPosix() const;

 private:
  size_t NameStart() const noexcept;
  size_t ExtensionDot() const noexcept;  // npos when none
};

// A singly linked list of file ids in insertion order, owning its members.
class FidList {
 public:
  struct FidMember {
    explicit FidMember(const FidString& id) : fid(id) {}
    virtual ~FidMember() = default;
    FidMember* next = nullptr;
    FidString fid;
  };

  FidList() = default;
  FidList(const FidList&) = delete;
  FidList& operator=(const FidList&) = delete;
  virtual ~FidList();

  void Add(const FidString& id);
  void Clear();
  FidMember* Head() const noexcept { return head_; }
  size_t Count() const noexcept { return count_; }
  bool Empty() const noexcept { return count_ == 0; }

  class Iterator {
   public:
    explicit Iterator(FidMember* m) : m_(m) {}
    const FidString& operator*() const { return m_->fid; }
    Iterator& operator++() {
      m_ = m_->next;
      return *this;
    }
    bool operator!=(const Iterator& o) const { return m_ != o.m_; }

   private:
    FidMember* m_;
  };
  Iterator begin() const { return Iterator(head_); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  FidMember* head_ = nullptr;
  FidMember* tail_ = nullptr;
  size_t count_ = 0;
};

}  // namespace RkLib
