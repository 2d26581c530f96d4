/// @file para_file.h  A parameter file, packed or as text, or a preset.
#pragma once

#include <filesystem>
#include <string>

#include "para/finding.h"
#include "para/words.h"

namespace qv::tool::para {

struct ParaFile {
  std::string name; ///< as the user gave it
  Image image;
  bool packed = false; ///< the file held words, not text
  int frame_ms = 0;    ///< that the values are meant for; 0 when nothing says
  FindingLog log;      ///< what reading a text found; the image counts only when this has no error
};

/// What keeps the bytes of a file from being read as parameters; empty when nothing does.
std::string fault_of(const std::string &bytes);

/// Reads bytes without such a fault. @param folder  where coefficient files lie
ParaFile parse(const std::string &name, const std::string &bytes, const std::filesystem::path &folder);

/// Reads the preset of that name, else a file of packed words or of text.
/// @throws InputError when there is neither, the words are too few or in the other byte order
ParaFile load(const std::string &name);

/// The same for who needs the words. @throws InputError with every error that a text has
ParaFile load_valid(const std::string &name);

/// 1000 bytes: the words in little-endian order.
std::string packed_bytes(const Image &image);

} // namespace qv::tool::para
