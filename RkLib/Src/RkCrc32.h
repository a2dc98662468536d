// CRC-32 of ZIP (reflected polynomial 0xEDB88320), with the calling convention of zlib's crc32:
// the value passed in and returned is the finished CRC, so a running CRC can be fed back in, and
// RkCrc32(0, nullptr, 0) gives the start value 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RkLib {

// A null data pointer gives the start value, whatever crc and length are. The routine is chosen
// once, at the first call, from the processor's features.
uint32_t RkCrc32(uint32_t crc, const void* data, size_t length) noexcept;

// Slice-by-16 tables; runs on any processor.
uint32_t RkCrc32Table(uint32_t crc, const void* data, size_t length) noexcept;

// Folding with carry-less multiplication. Only for a processor on which RkCrc32ClmulUsable holds
// (elsewhere it faults on an illegal instruction); off x86 it is the table routine.
uint32_t RkCrc32Clmul(uint32_t crc, const void* data, size_t length) noexcept;

// The same folding on 256-bit registers, twice the bytes per instruction. Only for a processor on
// which RkCrc32VclmulUsable holds; short inputs go the way of RkCrc32Clmul, and off x86 it is the
// table routine.
uint32_t RkCrc32Vclmul(uint32_t crc, const void* data, size_t length) noexcept;

// RkCrc32 that also adds to `textBytes` the number of bytes with a value from 7 to 127 (see
// RkCountTextBytes), in one pass over the data where the processor allows.
uint32_t RkCrc32CountText(uint32_t crc, const void* data, size_t length, uint64_t& textBytes) noexcept;

// Whether RkCrc32 runs one of the folding routines on this processor.
bool RkCrc32HasClmul() noexcept;

// The name of the routine RkCrc32 runs, "RkCrc32Vclmul", "RkCrc32Clmul" or "RkCrc32Table", for
// reports and logs.
const char* RkCrc32RoutineName() noexcept;

}  // namespace RkLib
