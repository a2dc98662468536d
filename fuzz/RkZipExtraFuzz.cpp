// Arbitrary bytes as a zip extra field, read, applied to an entry and written back. The first byte
// shapes the entry so that the records whose Apply depends on method and flags get to act. What a
// read keeps must write back to bytes that read back the same: a second round trip that differs,
// a read past the field, a crash or a hang is the fault looked for.
#include <cstddef>
#include <cstdint>
#include <string>

#include "RkZipEntry.h"
#include "RkZipExtra.h"

using namespace RkArcLib;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t shape = data[0];
  ++data;
  --size;

  RkZipEntry entry;
  entry.method = (shape & 1) ? kZipMethodAes : kZipMethodDeflate;
  entry.flags = static_cast<uint16_t>(((shape & 2) ? kZipFlagEncrypted : 0) | ((shape & 4) ? kZipFlagStrongEncryption : 0));
  const uint64_t overflow = (shape & 8) ? 0xFFFFFFFF : 1234;
  entry.originalSize64 = entry.compressedSize64 = entry.localOffset64 = overflow;
  entry.name = u"abc";

  RkExtra extra;
  extra.Parse(data, size);
  std::string info;
  for (const RkExtraType* record = extra.First(); record != nullptr; record = extra.Next()) {
    if (record->Size() + size_t{4} > size) __builtin_trap();
    record->Dump(info);
  }
  extra.ApplyAll(entry, RkExtraContext{"abc", "abc"});

  const std::string once = extra.Serialize();
  if (once.size() > size) __builtin_trap();
  RkExtra again;
  again.Parse(once);
  if (again.Count() != extra.Count() || again.Serialize() != once) __builtin_trap();
  const RkExtra copy(again);
  if (copy.Serialize() != once) __builtin_trap();
  return 0;
}
