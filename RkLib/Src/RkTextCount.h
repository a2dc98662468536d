// Counting the bytes of a block that look like text, for the text flag of an archive item.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RkLib {

// The number of bytes with a value from 7 to 127: tabs, line ends and printable ASCII, and the
// few control codes that plain text files carry in practice.
uint64_t RkCountTextBytes(const uint8_t* data, size_t length) noexcept;

}  // namespace RkLib
