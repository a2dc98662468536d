// Small helpers shared by the suites.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// Names a parameterised case by its row's `name` field.
struct RkCaseName {
  template <typename T>
  std::string operator()(const testing::TestParamInfo<T>& row) const {
    return row.param.name;
  }
};

// A fresh folder under the system's temporary folder, removed with all it holds, even where a
// test took the owner's rights on it away.
class RkScratchDir {
 public:
  explicit RkScratchDir(const std::string& prefix) {
    std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~RkScratchDir() {
    if (path_.empty()) return;
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                 ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  RkScratchDir(const RkScratchDir&) = delete;
  RkScratchDir& operator=(const RkScratchDir&) = delete;

  // Empty when the folder could not be made.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline std::string RkReadFile(const std::filesystem::path& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

// Whether anything, a dangling link included, stands at `path`.
inline bool RkPathPresent(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::symlink_status(path, ignored).type() != std::filesystem::file_type::not_found;
}

// Makes the folders on the way.
inline void RkWriteFile(const std::filesystem::path& path, const std::string& bytes) {
  std::error_code ignored;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ignored);
  std::ofstream(path, std::ios::binary) << bytes;
}
