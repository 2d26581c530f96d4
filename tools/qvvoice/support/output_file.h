/// @file output_file.h  A result file that is whole or not there.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace qv::tool {

/// What a terminating signal has this process say on standard error before it dies; children say nothing.
void say_when_terminated(const std::string &message);

/// Written under another name in the folder of its place and renamed by commit(). Without commit(), and on
/// every signal that ends the process and can be handled, what was written is removed and a file that stood there
/// before stays.
class OutputFile {
public:
  /// Creates the file, so that a place that cannot be written is refused before the work begins.
  /// @param path    where the result will stand; a symbolic link is followed
  /// @param inputs  files that are read: `path` must be none of them
  /// @throws InputError when `path` is an input, the place of another open OutputFile, not a regular file,
  ///         or in a folder that is missing or not writable
  explicit OutputFile(const std::string &path, std::span<const std::string> inputs = {});
  ~OutputFile();
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;

  const std::string &path() const { return path_; } ///< as the user named it, for messages

  /// Open for writing, at the end of what was written; stays owned by this object.
  int descriptor() const { return descriptor_; }

  /// Appends. @throws std::runtime_error when the disk refuses
  void write(std::string_view text);

  /// Moves the file to its place; nothing may be written afterwards. @throws std::runtime_error
  void commit();

private:
  void create_beside_place();
  [[noreturn]] void fail(std::string_view doing) const;

  std::string path_;
  std::string place_;
  std::string temporary_;
  size_t slot_;
  int descriptor_ = -1;
};

} // namespace qv::tool
