// rkarc: lists, tests and extracts archives through the archive library.
//
//   rkarc l [--json] ARCHIVE
//   rkarc t [-p PASSWORD] ARCHIVE                          (RkArcExtract.cpp)
//   rkarc x [-p PASSWORD] [-o DIR] [-y] ARCHIVE [NAME...]  (RkArcExtract.cpp)
//
// The type is found the way the viewer finds it (extension, then content), the archive is loaded
// whole and every item is printed. Exit status 0 on success, 1 for a usage error, 2 when the
// archive cannot be read; the reason, with the place of the damage where the loader knows it,
// goes to standard error.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcCli.h"
#include "RkArcItem.h"
#include "RkArchive.h"
#include "RkArchiveFactory.h"
#include "RkArchiveType.h"
#include "RkFid.h"
#include "RkString.h"

namespace {

using RkArcLib::RkArcItem;
using RkArcLib::RkArchive;
using RkArcLib::RkState;

using rkarc::kExitOk;
using rkarc::kExitUnreadable;
using rkarc::kExitUsage;

const char kHelp[] =
    "Usage: rkarc COMMAND [OPTIONS] ARCHIVE\n"
    "\n"
    "Shows what the archive library reads from an archive.\n"
    "\n"
    "Commands:\n"
    "  l        list the items of ARCHIVE\n"
    "  t        test the items of ARCHIVE\n"
    "  x        extract the items of ARCHIVE\n"
    "\n"
    "Run 'rkarc l --help' for the options of a command.\n";

const char kListHelp[] =
    "Usage: rkarc l [--json] ARCHIVE\n"
    "\n"
    "Lists every item of ARCHIVE: name, size, packed size, ratio, method, date and a '*' for an\n"
    "encrypted item, then a total line.\n"
    "\n"
    "  --json   print one JSON object instead:\n"
    "           {\"format\": \"zip\", \"entries\": [{\"name\", \"size\", \"packed\", \"method\",\n"
    "            \"crc32\", \"mtime\", \"encrypted\", \"dir\"}]}\n"
    "           names in UTF-8 with '/' between the parts, crc32 as 8 hex digits, mtime as\n"
    "           ISO-8601 local time or null.\n"
    "  --help   show this text.\n"
    "\n"
    "Exit status: 0 listed, 1 wrong usage, 2 the archive cannot be read.\n";

// Keeps what the loader says, to explain a failure; information is not worth a line.
class MessageLog : public RkArcLib::RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkLib::RkString& message) override {
    if (level > 0) lines.push_back(message.toUtf8());
    return true;
  }
  std::vector<std::string> lines;
};

std::string SlashName(const RkLib::RkString& name) {
  std::string utf8 = name.toUtf8();
  for (char& c : utf8)
    if (c == '\\') c = '/';
  return utf8;
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string IsoTime(const RkLib::RkTimeStamp& t) {
  if (!t.isSet || !t.isValid()) return {};
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute,
                t.second);
  return text;
}

const char* MethodName(RkArcLib::RkArcMethod method) {
  using M = RkArcLib::RkArcMethod;
  switch (method) {
    case M::kStored:
      return "stored";
    case M::kBzip2:
      return "bzip2";
    case M::kDeflate:
      return "deflate";
    case M::kDeflate64:
      return "deflate64";
    case M::kJpeg:
      return "jpeg";
    case M::kLzma:
      return "lzma";
    case M::kPpmd:
      return "ppmd";
    case M::kWavPack:
      return "wavpack";
    case M::kShrink:
      return "shrink";
    case M::kReduce1:
      return "reduce1";
    case M::kReduce2:
      return "reduce2";
    case M::kReduce3:
      return "reduce3";
    case M::kReduce4:
      return "reduce4";
    case M::kImplode:
      return "implode";
    case M::kTokenize:
      return "tokenize";
    case M::kDclImplode:
      return "dcl-implode";
    case M::kXz:
      return "xz";
    case M::kMp3:
      return "mp3";
    case M::kZstd:
      return "zstd";
    case M::kDuplicate:
      return "duplicate";
    default:
      return "unknown";
  }
}

const char* FormatName(int type) {
  using namespace RkArcLib;
  switch (type) {
    case kArcTypeZip:
      return "zip";
    default:
      return "unknown";
  }
}

void PrintTable(const std::vector<RkArcItem>& items) {
  std::printf("%12s %12s %6s %-10s %-19s  %s\n", "Size", "Packed", "Ratio", "Method", "Modified", "Name");
  uint64_t size = 0;
  uint64_t packed = 0;
  for (const RkArcItem& item : items) {
    const uint64_t s = item.originalSize == RkArcLib::kArcUnknownSize ? 0 : item.originalSize;
    const uint64_t p = item.compressedSize == RkArcLib::kArcUnknownSize ? 0 : item.compressedSize;
    size += s;
    packed += p;
    const double ratio = s == 0 ? 0.0 : 100.0 * (1.0 - static_cast<double>(p) / static_cast<double>(s));
    const std::string when = IsoTime(item.modified);
    std::printf("%12" PRIu64 " %12" PRIu64 " %5.1f%% %-10s %-19s %c%s\n", s, p, ratio, MethodName(item.method),
                when.empty() ? "-" : when.c_str(), item.encryption != 0 ? '*' : ' ', SlashName(item.name).c_str());
  }
  const double ratio = size == 0 ? 0.0 : 100.0 * (1.0 - static_cast<double>(packed) / static_cast<double>(size));
  std::printf("%12" PRIu64 " %12" PRIu64 " %5.1f%% %-10s %-19s  %zu item%s\n", size, packed, ratio, "", "",
              items.size(), items.size() == 1 ? "" : "s");
}

void PrintJson(int type, const std::vector<RkArcItem>& items) {
  std::printf("{\"format\": \"%s\", \"entries\": [", FormatName(type));
  for (size_t i = 0; i < items.size(); ++i) {
    const RkArcItem& item = items[i];
    const std::string when = IsoTime(item.modified);
    std::printf("%s\n  {\"name\": %s, \"size\": %" PRIu64 ", \"packed\": %" PRIu64
                ", \"method\": \"%s\", \"crc32\": \"%08x\", \"mtime\": %s, \"encrypted\": %s, \"dir\": %s}",
                i == 0 ? "" : ",", JsonString(SlashName(item.name)).c_str(), item.originalSize, item.compressedSize,
                MethodName(item.method), item.crc, when.empty() ? "null" : ("\"" + when + "\"").c_str(),
                item.encryption != 0 ? "true" : "false", item.attributes.directory ? "true" : "false");
  }
  std::printf("%s]}\n", items.empty() ? "" : "\n");
}

int Fail(const std::string& path, const std::string& what, const MessageLog& log) {
  std::fprintf(stderr, "rkarc: %s: %s\n", path.c_str(), what.c_str());
  for (const std::string& line : log.lines) std::fprintf(stderr, "rkarc: %s: %s\n", path.c_str(), line.c_str());
  return kExitUnreadable;
}

}  // namespace

std::unique_ptr<RkArchive> rkarc::OpenArchive(const std::string& path, RkArcLib::RkArcCallback& callback,
                                              std::string& reason) {
  const RkLib::FidString fid = RkLib::FidString::FromPosix(path);
  RkArcLib::RkArchiveFactory factory;
  const int type = factory.GetArchiveType(fid, true);
  if (type == RkArcLib::kArcTypeNone) {
    reason = "not an archive of a known type";
    return nullptr;
  }
  std::unique_ptr<RkArchive> archive = factory.CreateArchive(type, fid);
  if (!archive) {
    reason = std::string("reading this type is not supported yet: ") + FormatName(type);
    return nullptr;
  }
  archive->SetCallback(&callback);
  RkState state;
  if (!archive->Load(0, -1, nullptr, state) || !archive->IsLoaded()) {
    RkLib::RkString text;
    reason = (archive->GetErrorMessage(state, text) ? text.toUtf8() : "cannot be read") + " (code " +
             std::to_string(state.code) + ")";
    return nullptr;
  }
  return archive;
}

namespace {

int List(const std::string& path, bool json) {
  MessageLog log;
  std::string reason;
  std::unique_ptr<RkArchive> archive = rkarc::OpenArchive(path, log, reason);
  if (!archive) return Fail(path, reason, log);
  RkState state;
  std::vector<RkArcItem> items;
  items.reserve(static_cast<size_t>(archive->GetItemCount()));
  for (int64_t i = 0; i < archive->GetItemCount(); ++i) {
    RkArcItem item;
    if (!archive->GetItem(i, item, state)) return Fail(path, "item " + std::to_string(i + 1) + " cannot be read", log);
    items.push_back(std::move(item));
  }
  for (const std::string& line : log.lines) std::fprintf(stderr, "rkarc: %s: %s\n", path.c_str(), line.c_str());
  if (json) {
    PrintJson(archive->GetType(), items);
  } else {
    PrintTable(items);
  }
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::fputs(kHelp, argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  if (std::strcmp(argv[1], "t") == 0) return rkarc::TestCommand(argc - 2, argv + 2);
  if (std::strcmp(argv[1], "x") == 0) return rkarc::ExtractCommand(argc - 2, argv + 2);
  if (std::strcmp(argv[1], "l") != 0) {
    std::fprintf(stderr, "rkarc: unknown command '%s'\n\n%s", argv[1], kHelp);
    return kExitUsage;
  }
  bool json = false;
  std::string path;
  for (int i = 2; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      std::fputs(kListHelp, stdout);
      return kExitOk;
    }
    if (std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      std::fprintf(stderr, "rkarc: unknown option '%s'\n\n%s", argv[i], kListHelp);
      return kExitUsage;
    } else if (path.empty()) {
      path = argv[i];
    } else {
      std::fprintf(stderr, "rkarc: one archive at a time\n");
      return kExitUsage;
    }
  }
  if (path.empty()) {
    std::fputs(kListHelp, stderr);
    return kExitUsage;
  }
  return List(path, json);
}
