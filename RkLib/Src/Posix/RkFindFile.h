// RkFindFile: walks the entries of one folder, optionally filtered by a wildcard pattern that
// ignores case ("*.jpg"). "." and ".." are never returned. Symbolic links are reported as such
// and not followed, so a walk that enters sub-folders cannot leave the tree it started in.
#pragma once

#include <cstdint>
#include <memory>

#include "RkFid.h"

namespace RkLib {

class RkTimeStamp;

// Attribute bits in the archive formats' sense, so that they can be stored as they are.
enum RkFileAttribute : uint32_t {
  kAttrReadOnly = 0x01,
  kAttrHidden = 0x02,
  kAttrDirectory = 0x10,
  kAttrArchive = 0x20,
  kAttrReparsePoint = 0x400,
};

class RkFindFile {
 public:
  RkFindFile();
  RkFindFile(const RkFindFile&) = delete;
  RkFindFile& operator=(const RkFindFile&) = delete;
  virtual ~RkFindFile();

  // Opens the folder; false with LastError() when it cannot be read.
  virtual bool Open(const FidString& folder, std::u16string_view pattern = u"*");
  // Moves to the next entry; false at the end or on a failure.
  virtual bool Next();
  virtual void Close();

  virtual RkString GetName() const;
  virtual FidString GetPath() const;
  virtual uint64_t GetSize() const;
  virtual uint32_t GetAttributes() const;
  virtual bool IsFolder() const;
  virtual bool IsLink() const;
  virtual bool IsHidden() const;
  virtual bool IsReadOnly() const;
  virtual RkTimeStamp GetModified() const;
  virtual RkTimeStamp GetAccessed() const;
  virtual RkTimeStamp GetStatusChanged() const;
  // Seconds and nanoseconds since 1970, for callers that need no calendar.
  virtual int64_t GetModifiedNanoseconds() const;
  virtual int LastError() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace RkLib
