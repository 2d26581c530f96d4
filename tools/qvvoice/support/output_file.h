/// @file output_file.h  A result: a file that is whole or not there, or a pipe.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qv::tool {

/// What a terminating signal has this process say on standard error before it dies; children say nothing.
void say_when_terminated(const std::string &message);

/// In a process that has been forked and goes on: its parent's files are the parent's, and signals end it as they come.
void leave_output_files();

/// Written under another name in the folder of its place and renamed by commit(). Without commit(), and on
/// every signal that ends the process and can be handled, what was written is removed and a file that stood there
/// before stays. A pipe, standard output among them, gets everything at once and keeps it; that its reader closes it
/// is an error of write() and no signal.
class OutputFile {
public:
  /// Creates the file, so that a place that cannot be written is refused before the work begins.
  /// @param path    where the result will stand; a symbolic link is followed; "-" is standard output
  /// @param inputs  files that are read: `path` must be none of them
  /// @throws InputError when `path` is an input, the place of another open OutputFile, a folder or
  ///         a device, or in a folder that is missing or not writable
  explicit OutputFile(const std::string &path, std::span<const std::string> inputs = {});
  ~OutputFile();
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;

  const std::string &path() const { return path_; } ///< as the user named it, for messages
  bool is_pipe() const { return !temporary_; }

  bool is_terminal() const;

  /// Appends. @throws std::runtime_error when the disk refuses
  void write(std::string_view text);

  /// Writes at a place in what was written. @throws std::runtime_error when the disk refuses, or it is a pipe
  void rewrite(size_t at, std::string_view text);

  /// Moves a file to its place; nothing may be written afterwards. @throws std::runtime_error
  void commit();

private:
  void open_pipe();
  void create_beside_place();
  [[noreturn]] void fail(std::string_view doing) const;

  std::string path_;
  std::string place_;
  std::optional<std::string> temporary_; ///< none of a pipe
  size_t slot_ = 0;
  int descriptor_ = -1;
};

} // namespace qv::tool
