// RkArchive: the one interface through which the viewer works on any container.
//
// Operations return false on failure with RkState filled; loaders throw RkError internally and
// translate at the operation's boundary, so no ordinary failure reaches a caller as an exception.
// The base answers every write, test, repair and certificate operation with "not supported".
#pragma once

#include <cstdint>
#include <memory>

#include "RkFid.h"
#include "RkState.h"

namespace RkArcLib {

class RkArcCallback;
class RkArcItem;
class RkArcSelection;
class RkArcSupportInfo;
class RkArcTypeSettings;

class RkArchive {
 public:
  explicit RkArchive(const RkLib::FidString& fileName);
  RkArchive(const RkArchive&) = delete;
  RkArchive& operator=(const RkArchive&) = delete;
  virtual ~RkArchive();

  virtual bool IsLoaded() const = 0;
  virtual bool IsComplete() const = 0;
  virtual bool IsEmpty() const = 0;
  virtual int64_t GetItemCount() const = 0;
  virtual uint32_t GetPartCount() const;
  // Pure, with the foundation's answers as definitions a format may call.
  virtual bool FileExists() const = 0;
  virtual bool IsReadOnly() const = 0;
  virtual int GetType() const = 0;
  // first and last both -1: only prove that the file is of this type. last -1: to the end;
  // first -1: from 0. `password` may be null.
  virtual bool Load(int64_t first, int64_t last, const RkLib::RkString* password, RkState& state) = 0;
  virtual bool Unload() = 0;
  virtual bool IsEncrypted() const = 0;
  virtual int64_t FindItem(const RkLib::RkString& name, RkState& state) const = 0;
  virtual bool GetItem(int64_t index, RkArcItem& item, RkState& state) const = 0;

  virtual bool AddItems(const RkArcSelection& selection, RkState& state);
  virtual bool UpdateItems(const RkArcSelection& selection, RkState& state);
  virtual bool FreshenItems(const RkArcSelection& selection, RkState& state);
  virtual bool MoveItems(const RkArcSelection& selection, RkState& state);
  virtual bool DeleteItems(const RkArcSelection& selection, RkState& state);
  virtual bool RenameItem(int64_t index, const RkLib::RkString& newName, RkState& state);
  virtual bool CreateFolder(const RkLib::RkString& name, RkState& state);
  virtual bool Commit(RkState& state);
  virtual bool Extract(const RkArcSelection& selection, RkState& state);
  virtual bool Test(const RkArcSelection& selection, RkState& state);
  virtual bool TestPart(uint32_t part, RkState& state);
  virtual bool Fix(RkState& state);
  virtual bool Split(RkState& state);
  virtual bool Encrypt(const RkLib::RkString& password, RkState& state);
  virtual bool EncryptItems(const RkArcSelection& selection, const RkLib::RkString& password, RkState& state);
  virtual bool SetComment(const RkLib::RkString& comment, RkState& state);
  virtual bool GetComment(RkLib::RkString& comment, RkState& state);
  virtual bool SetItemComment(int64_t index, const RkLib::RkString& comment, RkState& state);
  virtual bool GetItemComment(int64_t index, RkLib::RkString& comment, RkState& state);
  virtual bool SetPartSize(uint64_t size, RkState& state);
  virtual bool SetCompressionLevel(int level, RkState& state);
  virtual bool Sign(const RkLib::RkString& certificate, RkState& state);
  virtual bool VerifySignature(RkState& state);
  virtual bool GetSigner(RkLib::RkString& signer, RkState& state);
  virtual bool RemoveSignature(RkState& state);

  // false when the code has no text.
  virtual bool GetErrorMessage(const RkState& state, RkLib::RkString& message) const;
  virtual std::shared_ptr<const RkArcSupportInfo> GetSupportInfo() const;
  // Returns the callback it replaces, so that the caller can put it back.
  virtual RkArcCallback* SetCallback(RkArcCallback* callback);
  virtual RkArcCallback* GetCallback() const;
  virtual void SetTypeSettingsObject(RkArcTypeSettings* settings);
  virtual RkArcTypeSettings* GetTypeSettingsObject() const;
  virtual void SetFileName(const RkLib::FidString& fileName);
  virtual const RkLib::FidString& GetFileName() const;
  virtual void SetCryptoMode(uint32_t mode);
  virtual uint32_t GetCryptoMode() const;

  // Resource id of a code in the range shared by all formats; 0 for none.
  static uint32_t CommonMessageResource(uint32_t code) noexcept;

 protected:
  static bool Unsupported(RkState& state);

 private:
  RkLib::FidString fileName_;
  uint32_t cryptoMode_ = 0;
  RkArcCallback* callback_;  // not owned; never null
  RkArcTypeSettings* typeSettings_ = nullptr;
};

}  // namespace RkArcLib
