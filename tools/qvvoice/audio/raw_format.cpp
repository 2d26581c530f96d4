#include "audio/raw_format.h"

#include <map>

#include <fmt/ranges.h>

#include "support/error.h"

namespace qv::tool {
namespace {

struct Encoding {
  int format;
  int bytes; ///< per sample
};

const std::map<std::string, Encoding> &encodings() {
  static const std::map<std::string, Encoding> table = {
      {"s8", {SF_FORMAT_PCM_S8, 1}},
      {"u8", {SF_FORMAT_PCM_U8, 1}},
      {"s16le", {SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 2}},
      {"s16be", {SF_FORMAT_PCM_16 | SF_ENDIAN_BIG, 2}},
      {"s24le", {SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE, 3}},
      {"s32le", {SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE, 4}},
      {"f32le", {SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, 4}},
      {"ulaw", {SF_FORMAT_ULAW, 1}},
      {"alaw", {SF_FORMAT_ALAW, 1}},
  };
  return table;
}

} // namespace

const std::vector<std::string> &raw_encodings() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const auto &[name, encoding] : encodings())
      all.push_back(name);
    return all;
  }();
  return names;
}

void check_whole(const RawFormat &raw, const std::string &path, uint64_t bytes) {
  if (bytes % uint64_t(encodings().at(raw.encoding).bytes * raw.channels) != 0)
    throw InputError("{}: {} bytes are not a whole number of {} samples in {} channel(s)", path, bytes, raw.encoding,
                     raw.channels);
}

SF_INFO raw_info(const RawFormat &raw, const InputFile &file) {
  const auto found = encodings().find(raw.encoding);
  if (found == encodings().end())
    throw InputError("{}: raw encoding '{}' is not known; one of {}", file.path(), raw.encoding,
                     fmt::join(raw_encodings(), ", "));
  if (!file.pipe())
    check_whole(raw, file.path(), file.size());
  SF_INFO info{};
  info.samplerate = raw.rate;
  info.channels = raw.channels;
  info.format = SF_FORMAT_RAW | found->second.format;
  return info;
}

} // namespace qv::tool
