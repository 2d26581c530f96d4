/// @file files.h  Audio files, a folder for them, and the command as a user runs it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::tool {

namespace fs = std::filesystem;

inline std::string bytes_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder of its own for every test, removed behind it.
class InFolder : public testing::Test {
protected:
  InFolder() { fs::create_directories(folder); }
  ~InFolder() override { fs::remove_all(folder); }

  std::string at(const std::string &name) const { return (folder / name).string(); }
  std::string put(const std::string &name, const std::string &bytes) const {
    std::ofstream(at(name), std::ios::binary) << bytes;
    return at(name);
  }
  /// @param format  SF_FORMAT_...; values are the integer samples of the format, or a full scale of 1.0 for floats
  template <class Value>
  std::string put_audio(const std::string &name, int format, int rate, int channels,
                        const std::vector<Value> &values) const {
    SF_INFO info{0, rate, channels, format, 0, 0};
    SNDFILE *file = sf_open(at(name).c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
    const auto count = sf_count_t(values.size());
    if constexpr (std::is_same_v<Value, int16_t>)
      EXPECT_EQ(sf_write_short(file, values.data(), count), count);
    else if constexpr (std::is_same_v<Value, int>)
      EXPECT_EQ(sf_write_int(file, values.data(), count), count);
    else
      EXPECT_EQ(sf_write_float(file, values.data(), count), count);
    sf_close(file);
    return at(name);
  }
  std::string put_wav(const std::string &name, int rate, const std::vector<int16_t> &samples, int channels = 1) const {
    return put_audio(name, SF_FORMAT_WAV | SF_FORMAT_PCM_16, rate, channels, samples);
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto &entry : fs::directory_iterator(folder))
      all.push_back(entry.path().filename());
    std::sort(all.begin(), all.end());
    return all;
  }

  const fs::path folder = fs::path(testing::TempDir()) / ("qvvoice-process-" + std::to_string(getpid()));
};

struct CommandResult {
  int status;
  std::string out, err;
};

/// Runs `qvvoice` in a folder. @param words  arguments, without quotes or spaces inside
inline CommandResult run_command(const fs::path &folder, const std::string &words) {
  const fs::path base = folder.string() + "-output";
  const std::string out = base.string() + ".out", err = base.string() + ".err";
  const std::string line = "cd " + folder.string() + " && " + QVVOICE_COMMAND + " " + words + " >" + out + " 2>" + err;
  const int status = std::system(line.c_str());
  const CommandResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, bytes_of(out), bytes_of(err)};
  fs::remove(out);
  fs::remove(err);
  return result;
}

} // namespace qv::tool
