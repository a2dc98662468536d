// RkViewerException: the one failure of the viewer, carried to the host's record. Codes above
// 16000 are the viewer's; smaller ones are system error numbers whose text comes from the
// language module. Severities are the viewer's own small scale, not those of RkError.
#pragma once

#include <cstdint>

#include "RkString.h"

namespace RkImgVwr {

using RkLib::RkString;

// Codes and their usual severity and message.
enum RkViewerCode : uint32_t {
  kCodeInvalidData = 13,        // severity 1: the collection could not be built or has no folder
  kCodeInvalidParameter = 87,   // severity 2: a required text is null or empty
  kCodeUnexpected = 16000,      // severity 4, message 13019: anything a catch-all caught
  kCodeNoStart = 16001,         // severity 5, message 13018
  kCodeNoClass = 16002,         // severity 5, message 13016
  kCodeNoWindow = 16003,        // severity 5, message 13017
  kCodeNoMemory = 16004,        // severity 4, the allocation failure's own text
  kCodeBadPaths = 16005,        // severity 2, message 13020
  kCodeNoCollection = 16007,    // severity 1 or 2, message 13022
  kCodePasswordRefused = 16011, // severity 7, message 13030
  kCodeUnsupported = 16012,     // severity 1, message 13032
  kCodeArchiveOpen = 16015,     // severity 11, message 13070
  kCodeZeroSize = 16202,        // severity 2, message 20003
  kCodeResizeRefused = 16205,   // severity 8, message 13042
  kCodeArchiveWarning = 16300,  // severity 11, message 13071
};

// Message resources of the language module used by the code.
enum RkMessageId : uint32_t {
  kMsgTitle = 13000,
  kMsgCaptionFormat = 13001,
  kMsgNoClass = 13016,
  kMsgNoWindow = 13017,
  kMsgNoStart = 13018,
  kMsgUnexpected = 13019,
  kMsgBadPaths = 13020,
  kMsgNoCollection = 13022,
  kMsgPasswordRefused = 13030,
  kMsgUnsupported = 13032,
  kMsgResizeRefused = 13042,
  kMsgArchiveOpen = 13070,
  kMsgArchiveWarning = 13071,
  kMsgZeroSize = 20003,
  kMsgImageType = 24000,
  kMsgTextType = 24001,
};

class RkViewerException {
 public:
  RkViewerException(uint32_t code, uint32_t severity, RkString description, RkString module, uint32_t line)
      : description_(std::move(description)), module_(std::move(module)), code_(code), severity_(severity),
        line_(line) {}

  const RkString& description() const noexcept { return description_; }
  const RkString& module() const noexcept { return module_; }
  uint32_t code() const noexcept { return code_; }
  uint32_t severity() const noexcept { return severity_; }
  uint32_t line() const noexcept { return line_; }

 private:
  RkString description_;
  RkString module_;
  uint32_t code_;
  uint32_t severity_;
  uint32_t line_;
};

// Builders of the exception at a source location; the text comes from the language module.
RkViewerException RkMakeViewerError(uint32_t code, uint32_t severity, uint32_t messageId, const char* file,
                                    int line);
RkViewerException RkMakeSystemError(uint32_t systemCode, uint32_t severity, const char* file, int line);

}  // namespace RkImgVwr

#define RK_VIEWER_ERROR(code, severity, messageId) \
  ::RkImgVwr::RkMakeViewerError((code), (severity), (messageId), __FILE__, __LINE__)
#define RK_SYSTEM_ERROR(systemCode, severity) ::RkImgVwr::RkMakeSystemError((systemCode), (severity), __FILE__, __LINE__)
