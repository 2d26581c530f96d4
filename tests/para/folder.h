/// @file folder.h  A folder of its own for a test, removed behind it.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qv::tool::para {

class Folder {
public:
  Folder() : path_(std::filesystem::temp_directory_path() / ("qvvoice-para-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }

  const std::filesystem::path &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ / name; }
  std::string file(const std::string &name, const std::string &bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
    return file(name);
  }

private:
  std::filesystem::path path_;
};

inline std::string bytes_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace qv::tool::para
