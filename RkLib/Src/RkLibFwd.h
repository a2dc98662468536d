// Forward declarations of the foundation's types, for headers that only pass them along.
#pragma once

#include <cstdint>

namespace RkLib {

class RkError;
class RkErrorInfo;
class RkString;
class FidString;
class FidList;
class RkBuffer;
class RkSecureBuffer;
class RkParam;
class RkMsg;
class RkMsgQueue;
class RkThreadedMsgQueue;
class RkProgress;
class RkThreadedProgress;
class RkTimeStamp;
class RkFileIO;
class RkFindFile;
class RkEvent;
class RkDigestFunction;
struct RkDigestValue;
struct RkGuid;
struct RkRegValue;

}  // namespace RkLib
