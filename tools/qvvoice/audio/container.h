/// @file container.h  What a decoder needs of an audio file, without the parts that it would only skip.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "audio/pipe.h"

namespace qv::tool {

/// Standard input is named "-".
inline bool is_standard_stream(const std::string &path) { return path == "-"; }

/// For messages.
std::string input_name(const std::string &path);

/// Size of what has no end that is known, bytes.
inline constexpr uint64_t endless = uint64_t(1) << 62;

/// A regular file, open for reading at any place, or a pipe, read from its beginning on.
class InputFile {
public:
  /// @param path  "-" is standard input, which is read as a pipe whatever it is
  /// @throws InputError when there is no such file, or it is a folder, a terminal, another device or empty
  explicit InputFile(const std::string &path);
  ~InputFile();
  InputFile(const InputFile &) = delete;
  InputFile &operator=(const InputFile &) = delete;

  const std::string &path() const { return path_; } ///< for messages
  uint64_t size() const { return size_; }           ///< bytes, when it was opened; endless of a pipe
  const PipeBytes *pipe() const { return pipe_.get(); }

  /// @return bytes read, fewer than `count` at the end
  /// @throws InputError when the disk refuses, or the place is one that a pipe has left behind
  size_t read(uint64_t at, char *to, size_t count) const;

  /// The bytes from `at` on, fewer than `count` at the end.
  std::string bytes(uint64_t at, size_t count) const;

private:
  void open_pipe();

  std::string path_;
  uint64_t size_ = 0;
  int descriptor_;
  std::unique_ptr<PipeBytes> pipe_;
};

/// @throws InputError always: a header promises more bytes of samples than there are
[[noreturn]] void refuse_cut(const std::string &path, uint64_t promised, uint64_t there);

/// A file as its decoder gets it: `head`, then `length` bytes of the file from `begin` on.
struct View {
  std::string head;
  uint64_t begin, length;
  bool sized = true; ///< whether `length` is what the header promises; else it is an upper bound
};

/// Of WAV files (RIFF, RIFX, RF64, BW64), Wave64 and AIFF: the format and the samples alone, under sizes that are true.
/// Of any other file everything behind an ID3v2 tag.
/// @throws InputError when a part before the samples promises more than the file holds or is missing, the samples are
///         cut short, or a pipe holds another kind of file
View view_of(const InputFile &file);

} // namespace qv::tool
