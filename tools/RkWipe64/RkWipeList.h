// RkListReader: the lines of a list file, read through a fixed buffer so that a list of any size
// costs the same memory.
//
// The list is UTF-8 text that may start with a byte order mark, one path per line, each line
// ended by CR LF or a bare LF; the last line may lack its end.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace RkWipe {

class RkListReader {
 public:
  // Sixteen times the longest path the system accepts (PATH_MAX, 4096): no real entry comes near,
  // and a damaged list of a single endless line costs no more than this.
  static constexpr size_t kMaxLine = size_t{64} << 10;

  enum class Result {
    kLine,     // `line` holds the next line, without its line end or the byte order mark
    kTooLong,  // a line longer than kMaxLine was skipped
    kEnd,
    kError,  // reading failed with error()
  };

  explicit RkListReader(int fd);
  RkListReader(const RkListReader&) = delete;
  RkListReader& operator=(const RkListReader&) = delete;

  Result next(std::string& line);
  // Back to the first line; false with error() when the file cannot seek.
  bool rewind();
  // One-based number of the line that next() returned last.
  size_t lineNumber() const noexcept { return line_; }
  int error() const noexcept { return error_; }

 private:
  static constexpr size_t kChunk = size_t{64} << 10;
  bool fill();

  int fd_;
  std::unique_ptr<char[]> buffer_;
  size_t pos_ = 0;
  size_t end_ = 0;
  size_t line_ = 0;
  int error_ = 0;
};

}  // namespace RkWipe
