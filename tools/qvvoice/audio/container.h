/// @file container.h  What a decoder needs of an audio file, without the parts that it would only skip.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::tool {

/// A regular file, open for reading at any place.
class InputFile {
public:
  /// @throws InputError when there is no such file, or it is a folder, a pipe, a device or empty
  explicit InputFile(const std::string &path);
  ~InputFile();
  InputFile(const InputFile &) = delete;
  InputFile &operator=(const InputFile &) = delete;

  const std::string &path() const { return path_; }
  uint64_t size() const { return size_; } ///< bytes, when it was opened

  /// @return bytes read, fewer than `count` at the end. @throws InputError when the disk refuses
  size_t read(uint64_t at, char *to, size_t count) const;

  /// The bytes from `at` on, fewer than `count` at the end.
  std::string bytes(uint64_t at, size_t count) const;

private:
  std::string path_;
  uint64_t size_ = 0;
  int descriptor_;
};

/// A file as its decoder gets it: `head`, then `length` bytes of the file from `begin` on.
struct View {
  std::string head;
  uint64_t begin, length;
};

/// Of WAV files (RIFF, RIFX, RF64, BW64), Wave64 and AIFF: the format and the samples alone, under sizes that are true.
/// Of any other file everything behind an ID3v2 tag.
/// @throws InputError when a part before the samples promises more than the file holds or is missing, or the samples
///         are cut short
View view_of(const InputFile &file);

} // namespace qv::tool
