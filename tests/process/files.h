/// @file files.h  Audio files, a folder for them, and the command as a user runs it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/error.h"

namespace qv::tool {

namespace fs = std::filesystem;

inline std::string bytes_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

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
  /// @param format  SF_FORMAT_...; values are 16-bit samples or floats of full scale 1.0
  template <class Value>
  std::string put_audio(const std::string &name, int format, int rate, int channels,
                        const std::vector<Value> &values) const {
    SF_INFO info{0, rate, channels, format, 0, 0};
    SNDFILE *file = sf_open(at(name).c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
    if constexpr (std::is_same_v<Value, int16_t>)
      sf_write_short(file, values.data(), sf_count_t(values.size()));
    else
      sf_write_float(file, values.data(), sf_count_t(values.size()));
    EXPECT_EQ(sf_close(file), 0);
    return at(name);
  }
  std::string put_wav(const std::string &name, int rate, const std::vector<int16_t> &samples, int channels = 1) const {
    return put_audio(name, SF_FORMAT_WAV | SF_FORMAT_PCM_16, rate, channels, samples);
  }
  /// A shell line in the folder, $QV the tool, after programs of put_program().
  int shell(const std::string &line) const {
    const std::string in =
        "cd " + folder.string() + " && QV=" + QVVOICE_COMMAND + " && PATH=" + at("bin") + ":$PATH && ";
    const int status = std::system((in + line).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void put_program(const std::string &name, const std::string &text) const {
    fs::create_directories(at("bin"));
    fs::permissions(put("bin/" + name, "#!/bin/sh\n" + text), fs::perms::owner_all);
  }
  std::set<fs::path> paths() const { return {fs::directory_iterator(folder), fs::directory_iterator()}; }
  /// Each line of words behind `command` is refused: status 2, a message with this reason, no result, no file.
  void expect_refused(const std::string &command, const std::vector<std::pair<std::string, std::string>> &cases) const {
    const auto before = paths();
    for (const auto &[words, reason] : cases) {
      const CommandResult result = run_command(folder, command + words);
      EXPECT_EQ(result.status, 2) << words;
      EXPECT_EQ(result.out, "") << words;
      EXPECT_TRUE(result.err.starts_with("qvvoice: ")) << words << ": " << result.err;
      EXPECT_NE(result.err.find(reason), std::string::npos) << words << ": " << result.err;
      EXPECT_EQ(paths(), before) << words;
    }
  }

  const fs::path folder = fs::path(testing::TempDir()) / ("qvvoice-process-" + std::to_string(getpid()));
};

/// The reason for which something is refused; empty when it is not.
template <class Doing> std::string refusal(const Doing &doing) {
  try {
    doing();
  } catch (const InputError &error) {
    return error.what();
  }
  return "";
}

} // namespace qv::tool
