// RkExtractItem: one entry on its way out of a zip: its output name and file, its reader, its
// pipe and the thread that runs the pipe. Items are reused for the entries of a run.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread_only.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "RkError.h"
#include "RkExtractPipe.h"
#include "RkFileIO.h"
#include "RkReadBuf.h"
#include "RkWorkPoolGroup.h"

namespace RkArcLib {

class RkExtractPoolGroup;
class RkFolderHandle;
class RkZipEntry;

class RkExtractItem : public RkWorkItem {
 public:
  explicit RkExtractItem(RkExtractPoolGroup& pool);
  ~RkExtractItem() override;

  // Before the item is queued: the entry and whether it is the run's last.
  void SetEntry(int64_t index, bool lastOfRun);

  void Prepare() override;
  bool Open() override;
  void Finish() override;
  void Announce() override;
  void Reset() override;
  void Abort() override;

 private:
  // The item's worker thread: made with the item, it runs each entry's pipe to its end,
  // keeps the outcome and waits for the next, so that thousands of small entries cost no thread
  // each.
  void Work() noexcept;
  void StartPipe();
  bool OpenOutput();
  void WaitPipe();
  // Reports `messageId` with the entry's name (and `more`) at `level`.
  void Report(uint32_t level, uint32_t messageId, std::initializer_list<RkLib::RkString> more = {});
  // An entry that failed: its partial file goes, its failure is reported and noted for the run;
  // a fatal failure is raised, ending the run.
  void Fail(RkLib::RkErrorInfo failure);
  void RemoveOutput();
  void CloseOutput();
  void CheckData();

  RkExtractPoolGroup& pool_;
  RkExtractPipe pipe_;
  RkReadBuf reader_;
  RkLib::RkFileIO file_;

  int64_t index_ = -1;
  RkZipEntry* entry_ = nullptr;
  bool lastOfRun_ = false;
  bool isFolder_ = false;
  bool replace_ = false;  // a plain file stands at the output name and is to be replaced
  bool created_ = false;  // the output file is this item's own, to remove if the entry fails
  std::shared_ptr<RkFolderHandle> folder_;  // holds the output file
  std::string fileName_;                    // its last part, in the system's form

  boost::thread worker_;
  boost::mutex workLock_;
  boost::condition_variable workWake_;
  bool workQueued_ = false;  // guarded by workLock_, as the two below
  bool workRunning_ = false;
  bool workQuit_ = false;
  bool workerGone_ = false;
  bool inline_ = false;
  bool openFile_ = false;  // the worker makes the output file first  // the entry's data fits the pipe's buffers: no thread per node
  RkLib::RkErrorInfo pipeError_;
};

}  // namespace RkArcLib
