// RkMultiPipeOut: the end of an extraction pipe. It holds the last buffer it took, so the last
// stretch of output stays at hand, and stops the pipe the moment more bytes arrive than the
// entry declares: an entry that claims a small size cannot fill the disk or the memory.
#pragma once

#include <cstdint>
#include <vector>

#include "RkFileIO.h"
#include "RkNode.h"

namespace RkArcLib {

class RkZipFile;

// Codes of the outputs.
inline constexpr uint32_t kZipErrSizeMismatch = 223;

class RkMultiPipeOut : public RkPipeLib::RkTargetNode {
 public:
  static constexpr uint64_t kBufferBytes = 0x80000;
  static constexpr uint64_t kNoLimit = UINT64_MAX;

  RkMultiPipeOut();
  ~RkMultiPipeOut() override;

  // Before each run: the most the entry may deliver.
  void Begin(uint64_t limit);
  void Run() override;
  uint64_t Written() const { return written_; }
  // The buffer last taken: the output's last stretch, until the next run.
  const RkPipeLib::RkPipeBuffer& Last() const { return *spare_; }

 protected:
  virtual void Consume(const uint8_t* data, size_t size) = 0;

 private:
  RkPipeLib::RkPipeBuffer* spare_;  // owned
  uint64_t limit_ = kNoLimit;
  uint64_t written_ = 0;
};

// Normal extraction, into the item's open file.
class RkExtractOut : public RkMultiPipeOut {
 public:
  void SetFile(RkLib::RkFileIO* file) { file_ = file; }

 protected:
  void Consume(const uint8_t* data, size_t size) override;

 private:
  RkLib::RkFileIO* file_ = nullptr;
};

// A test: the bytes are checked on the way and dropped here.
class RkTestOut : public RkMultiPipeOut {
 protected:
  void Consume(const uint8_t*, size_t) override {}
};

// Extraction into memory for the caller.
class RkInMemoryOut : public RkMultiPipeOut {
 public:
  explicit RkInMemoryOut(const RkZipFile* archive = nullptr) : archive_(archive) {}
  std::vector<uint8_t>& Data() { return data_; }
  void Clear() { data_.clear(); }
  const RkZipFile* Archive() const { return archive_; }

 protected:
  void Consume(const uint8_t* data, size_t size) override { data_.insert(data_.end(), data, data + size); }

 private:
  const RkZipFile* archive_;
  std::vector<uint8_t> data_;
};

// An output that also carries a name, for the comment flag: what the data becomes is decided by
// the caller from the name and the bytes kept.
class RkCFlagTarget : public RkInMemoryOut {
 public:
  void SetName(const RkLib::RkString& name) { name_ = name; }
  const RkLib::RkString& Name() const { return name_; }

 private:
  RkLib::RkString name_;
};

}  // namespace RkArcLib
