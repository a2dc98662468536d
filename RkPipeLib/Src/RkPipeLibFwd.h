// Forward declarations of the pipe library's types, for headers that only pass them along.
#pragma once

namespace RkPipeLib {

class RkPipeBuffer;
struct RkStreamSettings;
class RkDStream;
class RkBStrm;
class RkNode;
class RkSourceNode;
class RkLinkNode;
class RkTargetNode;
class RkUICallBack;
class RkErrorCallBack;
class RkPipeErrorHandler;
class RkPipeThread;
class RkPipe;

}  // namespace RkPipeLib
