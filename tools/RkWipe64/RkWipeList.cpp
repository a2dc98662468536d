#include "RkWipeList.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace RkWipe {

namespace {
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
}  // namespace

RkListReader::RkListReader(int fd) : fd_(fd), buffer_(new char[kChunk]) {}

bool RkListReader::fill() {
  for (;;) {
    ssize_t n = read(fd_, buffer_.get(), kChunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) error_ = errno;
    if (n <= 0) return false;
    pos_ = 0;
    end_ = static_cast<size_t>(n);
    return true;
  }
}

RkListReader::Result RkListReader::next(std::string& line) {
  line.clear();
  bool started = false;
  bool tooLong = false;
  for (;;) {
    if (pos_ == end_ && !fill()) {
      if (error_ != 0) return Result::kError;
      if (!started) return Result::kEnd;
      break;  // the last line had no line end
    }
    started = true;
    const char* begin = buffer_.get() + pos_;
    const auto* stop = static_cast<const char*>(std::memchr(begin, '\n', end_ - pos_));
    size_t piece = stop != nullptr ? static_cast<size_t>(stop - begin) : end_ - pos_;
    if (!tooLong && line.size() + piece > kMaxLine) {
      tooLong = true;
      line.clear();
    }
    if (!tooLong) line.append(begin, piece);
    pos_ += piece;
    if (stop != nullptr) {
      ++pos_;
      break;
    }
  }
  ++line_;
  if (tooLong) return Result::kTooLong;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line_ == 1 && line.starts_with(kUtf8Bom)) line.erase(0, kUtf8Bom.size());
  return Result::kLine;
}

bool RkListReader::rewind() {
  if (lseek(fd_, 0, SEEK_SET) != 0) {
    error_ = errno;
    return false;
  }
  pos_ = end_ = line_ = 0;
  error_ = 0;
  return true;
}

}  // namespace RkWipe
