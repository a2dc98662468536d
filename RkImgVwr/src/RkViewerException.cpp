#include "RkViewerException.h"

#include "RkLangModule.h"
#include "RkSystemError.h"

namespace RkImgVwr {

RkViewerException RkMakeViewerError(uint32_t code, uint32_t severity, uint32_t messageId, const char* file,
                                    int line) {
  return RkViewerException(code, severity, RkLangModule::Get().Text(messageId), RkString::FromUtf8(file),
                           static_cast<uint32_t>(line));
}

RkViewerException RkMakeSystemError(uint32_t systemCode, uint32_t severity, const char* file, int line) {
  return RkViewerException(systemCode, severity, RkLangModule::Get().SystemText(systemCode),
                           RkString::FromUtf8(file), static_cast<uint32_t>(line));
}

}  // namespace RkImgVwr
