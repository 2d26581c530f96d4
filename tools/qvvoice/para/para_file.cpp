#include "para/para_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "para/file_bytes.h"
#include "para/keys.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "support/error.h"

namespace qv::tool::para {

namespace {

constexpr size_t packed_size = 2 * config::word_count;

std::string contents(const std::string &path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    throw InputError("{}: is a folder; right would be a parameter file, packed or as text", path);
  const auto bytes = file_bytes(path);
  if (!bytes)
    throw InputError("{}: parameter file cannot be read: {}", path, std::strerror(errno));
  return *bytes;
}

/// Text has no control characters but white space; packed parameters have zeros at least.
bool is_packed(const std::string &bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](unsigned char byte) {
    return byte < ' ' && std::string_view("\t\n\r\f").find(char(byte)) == std::string_view::npos;
  });
}

uint8_t byte_at(const std::string &bytes, size_t at) { return uint8_t(bytes[at]); }

Image words_of(const std::string &bytes) {
  Image image;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = int16_t(byte_at(bytes, 2 * i) | byte_at(bytes, 2 * i + 1) << 8);
  return image;
}

ParaFile from_text(const std::string &name, std::string_view text, const std::filesystem::path &folder) {
  ReadText read = read_text(text, folder);
  return {name, read.image, false, read.frame_ms, std::move(read.log)};
}

} // namespace

std::string fault_of(const std::string &bytes) {
  if (bytes.empty())
    return fmt::format("is empty; right would be {} bytes of packed words, or a text as `qvvoice para new` writes it",
                       packed_size);
  if (!is_packed(bytes))
    return "";
  if (bytes.size() < packed_size)
    return fmt::format("parameter file holds {} bytes; {} ({} words) are needed", bytes.size(), packed_size,
                       config::word_count);
  if (const int swapped = byte_at(bytes, 0) << 8 | byte_at(bytes, 1); rate_served(swapped))
    return fmt::format("word 0 is {} in big-endian order; the words must be little-endian", swapped);
  return "";
}

ParaFile parse(const std::string &name, const std::string &bytes, const std::filesystem::path &folder) {
  if (!is_packed(bytes))
    return from_text(name, bytes, folder);
  ParaFile file{name, words_of(bytes), true, 0, {}};
  if (bytes.size() > packed_size)
    file.log.warning("", fmt::format("{} bytes follow the {} words; nothing reads them", bytes.size() - packed_size,
                                     config::word_count));
  return file;
}

ParaFile load(const std::string &name) {
  if (const Preset *preset = find_preset(name))
    return from_text(name, preset->text, {});
  if (!std::filesystem::exists(name))
    throw InputError("{}: parameter file cannot be read: there is neither a file nor a preset of that name{}", name,
                     did_you_mean(nearest(name, preset_names())));
  const std::string bytes = contents(name);
  if (const std::string fault = fault_of(bytes); !fault.empty())
    throw InputError("{}: {}", name, fault);
  return parse(name, bytes, std::filesystem::path(name).parent_path());
}

ParaFile load_valid(const std::string &name) {
  ParaFile file = load(name);
  std::vector<std::string> errors;
  for (const Finding &finding : file.log.findings())
    if (finding.severity == Severity::error)
      errors.push_back(to_string(finding, name));
  if (!errors.empty())
    throw InputError("{}", fmt::join(errors, "\n"));
  return file;
}

std::string packed_bytes(const Image &image) {
  std::string bytes;
  for (const int16_t word : image) {
    bytes += char(word & 0xff);
    bytes += char(uint16_t(word) >> 8);
  }
  return bytes;
}

} // namespace qv::tool::para
