// RkZipFile: a zip archive, loaded from its central directory.
//
// Load reads the tail of the file and the central directory only; local headers are read when an
// entry is extracted. Names are decoded and made safe to use as relative paths on load, so every
// later step can trust them; what had to be changed is reported once, at the end of the load.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "RkArchive.h"
#include "RkZipEHdr.h"

namespace RkArcLib {

class RkReadBuf;
class RkSpanIn;
class RkZipDirReader;
class RkZipEntry;
class RkZipLHdr;
struct RkZipRecord;

// The encryption of an item as RkArcItem carries it for zip.
enum RkZipEncryption : uint32_t {
  kZipEncryptionNone = 0,
  kZipEncryptionTraditional = 1,
  kZipEncryptionStrong = 2,
  kZipEncryptionAes128 = 3,
  kZipEncryptionAes192 = 4,
  kZipEncryptionAes256 = 5,
  kZipEncryptionAe3 = 6,  // AES-256 with the slow key derivation of version 3
  kZipEncryptionUnknown = 7,
};

// Codes of a single entry's local header; each ends that entry only.
enum RkZipLocalCode : uint32_t {
  kZipErrLocalSeek = 11,
  kZipErrLocalShort = 18,
  kZipErrLocalUnreadable = 187,
  kZipErrLocalSignature = 188,
  kZipErrLocalCrc = 207,
  kZipErrLocalMethod = 208,
  kZipErrLocalPacked = 209,
  kZipErrLocalSize = 210,
  kZipErrLocalFlags = 211,
  kZipErrNoDuplicateTarget = 271,
};

// Message ids of the load besides those of the directory reader.
enum RkZipLoadMessage : uint32_t {
  kZipMsgNotArchive = 50327,
  kZipMsgIsFolder = 50367,
  kZipMsgEmptyFile = 50368,
  kZipMsgCannotOpen = 50370,
  kZipMsgNoAttributes = 50387,
  kZipMsgNameShortened = 50492,
  kZipMsgNameStripped = 50495,
  kZipMsgBrokenReference = 52200,
  kZipMsgDanglingReference = 52201,
  kZipMsgMoreChanged = 52202,
  kZipMsgLocalNotFound = 50384,
  kZipMsgLocalShort = 50385,
  kZipMsgLocalUnreadable = 50386,
  kZipMsgLocalCrc = 50388,
  kZipMsgLocalMethod = 50389,
  kZipMsgLocalPacked = 50390,
  kZipMsgLocalSize = 50391,
  kZipMsgLocalFlags = 50392,
  kZipMsgLocalSeek = 50470,
};

class RkZipFile : public RkArchive {
 public:
  explicit RkZipFile(const RkLib::FidString& fileName);
  ~RkZipFile() override;

  bool IsLoaded() const override { return loaded_; }
  bool IsComplete() const override { return loaded_ && !partial_; }
  bool IsEmpty() const override { return entries_.empty(); }
  int64_t GetItemCount() const override { return static_cast<int64_t>(entries_.size()); }
  bool FileExists() const override { return RkArchive::FileExists(); }
  bool IsReadOnly() const override { return RkArchive::IsReadOnly(); }
  int GetType() const override;
  std::shared_ptr<const RkArcSupportInfo> GetSupportInfo() const override;
  bool Load(int64_t first, int64_t last, const RkLib::RkString* password, RkState& state) override;
  bool Unload() override;
  bool IsEncrypted() const override { return encrypted_; }
  int64_t FindItem(const RkLib::RkString& name, RkState& state) const override;
  bool GetItem(int64_t index, RkArcItem& item, RkState& state) const override;
  bool GetComment(RkLib::RkString& comment, RkState& state) override;
  bool GetItemComment(int64_t index, RkLib::RkString& comment, RkState& state) override;

  // The entry of a slot; null for a slot that a ranged load left empty or an index out of range.
  const RkZipEntry* Entry(int64_t index) const;
  const RkZipEHdr& EndRecord() const { return endRecord_; }
  bool IsDamaged() const { return damaged_; }
  bool IsPartial() const { return partial_; }
  // 0 automatic, 1 OEM, 2 ANSI, 3 UTF-8, for text that does not say how it is written.
  void SetCharsetMode(int mode) { charsetMode_ = mode; }

  // Reads an entry's local header (and, for a duplicate, its target's) and checks it against the
  // central record. A failure ends that entry only: severe, with its message given first.
  bool ReadLocalHeader(int64_t index, RkState& state);
  // The same through a reader of the caller's, which is left at the start of the entry's data;
  // throws as CheckLocalHeader does. Extraction reads each entry through its own reader.
  void ReadLocalHeader(RkZipEntry& entry, RkReadBuf& in);
  // The comparison alone. Sizes are not compared when the sizes follow the data, and the packed
  // size not when `ignoreCompressedSize`. Throws RkSevereError with the code of the mismatch.
  void CheckLocalHeader(const RkZipEntry& entry, bool ignoreCompressedSize);

  // A name made fit to stand as a relative path: cut to what a file system holds, without drive,
  // root or "." and ".." parts, with '\' between the parts. `shortened` and `stripped` tell which
  // of the two kinds of change were made.
  static RkLib::RkString FixName(RkLib::RkString name, bool& shortened, bool& stripped);
  // A message text with "%1", "%2", ... replaced by the arguments. Texts may come from a host's
  // resource file, so they are never used as printf formats.
  static RkLib::RkString MessageText(uint32_t id, std::initializer_list<RkLib::RkString> args);

  // The archive's file, opened when it is not, for readers of several threads; null when it
  // cannot be opened.
  std::shared_ptr<RkSpanIn> SharedSpan();

  // Runs `ask` on the host's callback under the archive-wide lock: extraction asks from several
  // threads, and a host is never asked two things at once.
  template <typename Ask>
  auto AskHost(Ask&& ask) {
    std::lock_guard<std::mutex> lock(callbackLock_);
    return ask(*GetCallback());
  }
  // Reports at once; false from the host is its cancel, RkFatalError(8).
  void Report(uint32_t level, const RkLib::RkString& text);

  // In memory mode (RkArcSelection::toMemory): the bytes of the entry extracted last, kept until
  // the next run. KeepMemoryOutput is the run's own way in.
  const std::vector<uint8_t>& MemoryOutput() const { return memoryOutput_; }
  void KeepMemoryOutput(std::vector<uint8_t>&& data) { memoryOutput_ = std::move(data); }

  // Entries leave through pipes, several at once, in the order they lie in the file.
  bool Extract(const RkArcSelection& selection, RkState& state) override;
  bool Test(const RkArcSelection& selection, RkState& state) override;

 protected:
  void OpenAndLocate();
  void ReadCentralDirectory(int64_t first, int64_t last);
  void ReadEntry(uint64_t index, const RkZipRecord& record);
  void IndexEntry(uint64_t index);
  void CheckReferences();
  void FlushMessages();
  // The entries that a request names, in the order their data lies in the file.
  std::vector<int64_t> SelectEntries(const RkArcSelection& selection);
  bool Run(const RkArcSelection& selection, bool testOnly, RkState& state);

 private:
  using ReferenceId = std::array<uint8_t, 16>;

  void ReportReader(uint32_t level, uint32_t messageId, int64_t number);
  // Warnings about single entries wait for the end of the load; the first two are shown.
  void Delay(uint32_t messageId, const RkLib::RkString& name);
  void CloseFiles();
  // Reads the local header at the reader's position into `header` and `extra`; the name is skipped.
  void ReadLocalRecord(const RkZipEntry& entry, RkReadBuf& in, RkZipLHdr& header, std::string& extra);
  [[noreturn]] void FailLocal(const RkZipEntry& entry, uint32_t code);
  // Name lookups are rare next to listings, so the order is built by the first of them.
  void BuildNameOrder() const;

  std::vector<std::unique_ptr<RkZipEntry>> entries_;
  // Entry indexes in name order; among equal names the lowest index comes first.
  mutable std::vector<uint32_t> nameOrder_;
  mutable bool nameOrderBuilt_ = false;
  mutable std::mutex nameOrderLock_;
  std::mutex callbackLock_;
  std::vector<uint8_t> memoryOutput_;
  std::map<ReferenceId, uint64_t> referenceTargets_;
  std::multimap<ReferenceId, uint64_t> references_;
  RkZipEHdr endRecord_;
  std::shared_ptr<RkSpanIn> spanIn_;
  std::unique_ptr<RkZipDirReader> reader_;
  struct DelayedMessage {
    uint32_t id;
    RkLib::RkString name;
  };
  std::vector<DelayedMessage> delayed_;
  uint64_t fileSize_ = 0;
  int charsetMode_ = 0;
  bool loaded_ = false;
  bool partial_ = false;
  bool encrypted_ = false;
  bool damaged_ = false;
};

}  // namespace RkArcLib
