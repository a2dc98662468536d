// RkExtractPoolGroup: one extraction or test run of a zip: the work pool with what its items
// share: the archive, the request, the password that last passed, the output folder, the names
// given out so far, and the counts.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_set>

#include "RkCallBack.h"
#include "RkOutputFolder.h"
#include "RkProgress.h"
#include "RkString.h"
#include "RkWorkPoolGroup.h"

namespace RkArcLib {

class RkArcSelection;
class RkZipFile;

// Codes of the run.
enum RkZipExtractCode : uint32_t {
  kZipErrOutput = 13,
  kZipErrNoPassword = 221,
  kZipErrCrc = 247,
  kZipErrSameName = 267,
};

// Its messages.
enum RkZipExtractMessage : uint32_t {
  kZipMsgNoPassword = 50336,
  kZipMsgSizeMismatch = 50352,
  kZipMsgNothingSelected = 50407,
  kZipMsgOutput = 50433,
  kZipMsgExtracting = 50474,
  kZipMsgTesting = 50475,
  kZipMsgWrongPassword = 50497,
  kZipMsgTestsDone = 50587,
  kZipMsgTestedOk = 50594,
  kZipMsgCrc = 50596,
  kZipMsgDataError = 50598,
  kZipMsgNoDecoder = 50599,
  kZipMsgSameName = 50600,
};

class RkExtractPoolGroup : public RkWorkPoolGroup, private RkPipeLib::RkUICallBack {
 public:
  RkExtractPoolGroup(RkZipFile& archive, const RkArcSelection& selection, bool testOnly);
  ~RkExtractPoolGroup() override;

  RkZipFile& archive;
  const RkArcSelection& selection;
  const bool testOnly;
  RkOutputFolder output;

  // Under Lock(): the password that last passed, shared by all items.
  RkLib::RkString password;

  // Reserves `name` (in the archive's form) as a file of this run: 0, or kZipErrSameName when an
  // earlier item has it already, or kZipErrOutput when one of its folders is a file of an
  // earlier item (a link written as a file, say). Names differing only in case or separator are
  // the same. A folder is checked (`folder` true) but not reserved.
  uint32_t ClaimName(std::u16string_view name, bool folder);

  // What the pipes poll after each buffer: false once the run has ended or the host cancels.
  RkPipeLib::RkUICallBack* Poller() { return this; }

  // Bytes through the pipes, against the sizes of the selected entries.
  RkLib::RkThreadedProgress progress;
  uint64_t total = 0;            // entries selected
  std::atomic<uint64_t> done{0};  // entries handed out

 private:
  bool Poll(RkLib::RkMsgQueue* queue) override;

  std::unordered_set<std::u16string> names_;  // guarded by Lock()
  std::atomic<uint32_t> polls_{0};
};

}  // namespace RkArcLib
