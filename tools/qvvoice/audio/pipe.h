/// @file pipe.h  Bytes that come once, by their place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qv::tool {

/// What a pipe gives, from its first byte on. A little of what was read is kept, for a decoder that looks twice.
class PipeBytes {
public:
  /// @param descriptor  open for reading; not owned
  /// @param name        for messages
  PipeBytes(int descriptor, std::string name) : descriptor_(descriptor), name_(std::move(name)) {}

  /// Waits for no more bytes than are asked for, so that a live source is heard at once.
  /// @return bytes read, fewer than `count` at the end
  /// @throws InputError when the system refuses, or the place is too far back
  size_t read(uint64_t at, char *to, size_t count);

  uint64_t received() const { return begin_ + kept_.size(); } ///< bytes, so far

private:
  bool receive(size_t count);

  int descriptor_;
  std::string name_;
  std::string kept_;   ///< the last bytes
  uint64_t begin_ = 0; ///< place of the first of them
};

} // namespace qv::tool
