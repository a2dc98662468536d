// Helpers of the archive library tests: a scratch folder per test and files written into it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "RkFid.h"

namespace RkArcTest {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "rkarc-XXXXXX").string();
    if (mkdtemp(tmpl.data())) path_ = tmpl;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  RkLib::FidString Fid(const std::string& name) const {
    return RkLib::FidString::FromPosix(path_ + "/" + name);
  }

  RkLib::FidString Write(const std::string& name, std::string_view bytes) const {
    std::ofstream out(path_ + "/" + name, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return Fid(name);
  }

 private:
  std::string path_;
};

inline std::string Bytes(std::initializer_list<int> values) {
  std::string s;
  for (int v : values) s.push_back(static_cast<char>(v));
  return s;
}

}  // namespace RkArcTest
