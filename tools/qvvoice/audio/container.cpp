#include "audio/container.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "support/error.h"

namespace qv::tool {
namespace {

constexpr size_t most_parts = 65536;          // before the samples
constexpr uint64_t most_format_bytes = 65536; // of the part that tells the format
constexpr uint64_t unknown_size = 0x7fff0000; // recorders that write to a pipe put 2^31 or 2^32 or nearly so
constexpr uint64_t unknown_long_size = uint64_t(1) << 62;
constexpr uint64_t most_riff_bytes = 0xfff00000; // leaves its head room below 2^32
constexpr uint64_t most_short_size = 0xffffffff;

enum class Order { little, big };

uint64_t number(std::string_view bytes, Order order) {
  uint64_t value = 0;
  for (size_t i = 0; i < bytes.size(); ++i)
    value = value << 8 | uint8_t(bytes[order == Order::big ? i : bytes.size() - 1 - i]);
  return value;
}

std::string bytes_of(uint64_t value, size_t count, Order order) {
  std::string bytes;
  for (size_t i = 0; i < count; ++i)
    bytes += char(value >> 8 * (order == Order::big ? count - 1 - i : i));
  return bytes;
}

/// How a kind of file is made of parts, each with a name and a size before it.
struct Layout {
  const char *kind;
  std::string_view format_name, samples_name;
  uint64_t first; ///< byte where the parts begin
  size_t name_bytes, size_bytes;
  Order order;
  uint64_t alignment; ///< of every part, bytes
  bool size_counts_head;
};

struct Part {
  uint64_t at;              ///< of its name
  uint64_t begin;           ///< of what it holds
  uint64_t promised, there; ///< bytes
};

struct Parts {
  std::optional<Part> format, samples;
};

/// The part at a place. Its size is a promise, except that a Wave64 part counts its own head.
std::optional<std::pair<std::string, Part>> part_at(const InputFile &file, const Layout &layout, uint64_t at) {
  const size_t head_bytes = layout.name_bytes + layout.size_bytes;
  const std::string head = file.bytes(at, head_bytes);
  if (head.size() < head_bytes)
    return std::nullopt;
  const uint64_t begin = at + head_bytes, there = file.size() - std::min(file.size(), begin);
  uint64_t promised = number(std::string_view(head).substr(layout.name_bytes), layout.order);
  if (layout.size_counts_head)
    promised -= std::min<uint64_t>(promised, head_bytes);
  return std::pair(head.substr(0, 4), Part{at, begin, promised, there});
}

/// Up to where both are known. Nothing behind that matters, however untrue it is.
Parts find_parts(const InputFile &file, const Layout &layout, uint64_t base) {
  Parts parts;
  uint64_t at = base + layout.first;
  for (size_t count = 0; !parts.format || !parts.samples; ++count) {
    if (count == most_parts)
      throw InputError("{}: broken: {} parts and no samples among them", file.path(), most_parts);
    const auto next = part_at(file, layout, at);
    if (!next)
      break;
    const auto &[name, part] = *next;
    if (name == layout.samples_name && !parts.samples)
      parts.samples = part;
    else if (part.promised > part.there)
      throw InputError("{}: broken: its part at byte {} promises {} bytes, {} are there", file.path(), part.at,
                       part.promised, part.there);
    else if (name == layout.format_name && !parts.format)
      parts.format = part;
    if (part.promised > part.there)
      break;
    const uint64_t end = part.begin + part.promised - base;
    at = base + (end + layout.alignment - 1) / layout.alignment * layout.alignment;
  }
  for (const auto &[part, name] : {std::pair(&parts.format, layout.format_name), {&parts.samples, layout.samples_name}})
    if (!*part)
      throw InputError("{}: broken: a {} file without its part '{}'", file.path(), layout.kind, name);
  if (parts.format->promised < 16 || parts.format->promised > most_format_bytes)
    throw InputError("{}: broken: its part '{}' holds {} bytes; 16 to {} would be right", file.path(),
                     layout.format_name, parts.format->promised, most_format_bytes);
  return parts;
}

/// Bytes of samples.
struct Length {
  uint64_t bytes;
  bool known;
};

/// A size that is unknown, or 0 in a file that nobody closed, promises nothing: what is there counts.
/// @param closed  the size of the whole file, in its head, is true
Length sample_bytes(const InputFile &file, const Part &samples, uint64_t unknown_from, bool closed) {
  const bool promises = samples.promised < unknown_from && (samples.promised > 0 || closed);
  if (!promises && (file.pipe() || samples.promised > samples.there || samples.promised == 0))
    return {samples.there, !file.pipe()};
  if (samples.promised <= samples.there)
    return {samples.promised, true};
  refuse_cut(file.path(), samples.promised, samples.there);
}

std::string part(std::string_view name, const std::string &content, Order order) {
  return std::string(name) + bytes_of(content.size(), 4, order) + content + std::string(content.size() % 2, '\0');
}

/// A WAV head before `length` bytes of samples.
std::string wav_head(const std::string &format, uint64_t length, Order order) {
  const bool long_sizes = length > most_riff_bytes && order == Order::little;
  const std::string format_part = part("fmt ", format, order);
  if (!long_sizes) {
    const uint64_t all = std::min(4 + format_part.size() + 8 + length, most_short_size);
    return (order == Order::big ? "RIFX" : "RIFF") + bytes_of(all, 4, order) + "WAVE" + format_part + "data" +
           bytes_of(length, 4, order);
  }
  const std::string sizes = bytes_of(4 + 36 + format_part.size() + 8 + length, 8, order) + bytes_of(length, 8, order) +
                            bytes_of(0, 8, order) + bytes_of(0, 4, order);
  return "RF64" + bytes_of(0xffffffff, 4, order) + "WAVE" + part("ds64", sizes, order) + format_part + "data" +
         bytes_of(0xffffffff, 4, order);
}

/// RIFF, RIFX, RF64, BW64.
View wav_view(const InputFile &file, uint64_t base, std::string_view magic, std::string_view form, uint64_t whole) {
  if (form != "WAVE")
    throw InputError("{}: is a {} file of the form '{}'; WAVE would be audio", file.path(), magic, form);
  const Order order = magic == "RIFX" ? Order::big : Order::little;
  const Layout layout{"WAV", "fmt ", "data", 12, 4, 4, order, 2, false};
  Parts parts = find_parts(file, layout, base);
  uint64_t unknown_from = unknown_size;
  if (magic == "RF64" || magic == "BW64") {
    // ds64 comes first: the sizes of the file and of the samples, 64 bits each
    const std::string sizes = file.bytes(base + 12, 24);
    if (!sizes.starts_with("ds64"))
      throw InputError("{}: broken: a {} file without its part 'ds64'", file.path(), magic);
    whole = number(std::string_view(sizes).substr(8, 8), order);
    if (parts.samples->promised == 0xffffffff) {
      parts.samples->promised = number(std::string_view(sizes).substr(16, 8), order);
      unknown_from = unknown_long_size;
    }
  }
  auto [length, known] = sample_bytes(file, *parts.samples, unknown_from, whole == file.size() - base - 8);
  if (order == Order::big)
    length = std::min(length, most_short_size);
  return {wav_head(file.bytes(parts.format->begin, parts.format->promised), length, order), parts.samples->begin,
          length, known};
}

/// Sony Wave64: a WAV file with names of 16 bytes and sizes of 8.
View wave64_view(const InputFile &file, uint64_t base) {
  const Parts parts = find_parts(file, {"Wave64", "fmt ", "data", 40, 16, 8, Order::little, 8, true}, base);
  const uint64_t whole = number(file.bytes(base + 16, 8), Order::little);
  const auto [length, known] = sample_bytes(file, *parts.samples, unknown_long_size, whole == file.size() - base);
  return {wav_head(file.bytes(parts.format->begin, parts.format->promised), length, Order::little),
          parts.samples->begin, length, known};
}

View aiff_view(const InputFile &file, uint64_t base, std::string_view form, uint64_t whole) {
  constexpr Order order = Order::big;
  const Parts parts = find_parts(file, {"AIFF", "COMM", "SSND", 12, 4, 4, order, 2, false}, base);
  auto [length, known] = sample_bytes(file, *parts.samples, unknown_size, whole == file.size() - base - 8);
  length = std::min(length, most_short_size);
  const std::string common = part("COMM", file.bytes(parts.format->begin, parts.format->promised), order);
  const uint64_t all = std::min(4 + common.size() + 8 + length, most_short_size);
  return {"FORM" + bytes_of(all, 4, order) + std::string(form) + common + "SSND" + bytes_of(length, 4, order),
          parts.samples->begin, length, known};
}

/// Sun's format tells where the samples begin and, mostly, how many bytes they have.
void check_au(const InputFile &file, uint64_t base, Order order) {
  const std::string sizes = file.bytes(base + 4, 8);
  const uint64_t begin = base + number(std::string_view(sizes).substr(0, 4), order);
  const uint64_t promised = number(std::string_view(sizes).substr(4), order);
  const uint64_t there = file.size() - std::min(file.size(), begin);
  if (promised > there && promised < unknown_size)
    refuse_cut(file.path(), promised, there);
}

/// Bytes of the ID3v2 tag that begins at a place; 0 when none does.
uint64_t tag_bytes(const InputFile &file, uint64_t at) {
  const std::string head = file.bytes(at, 10);
  if (head.size() < 10 || !head.starts_with("ID3"))
    return 0;
  uint64_t size = 0;
  for (size_t i = 6; i < 10; ++i)
    size = size << 7 | (uint8_t(head[i]) & 0x7f);
  if (10 + size >= file.size() - at)
    throw InputError("{}: broken: its tag at byte {} promises {} bytes, {} are there", file.path(), at, size,
                     file.size() - at - 10);
  return 10 + size;
}

} // namespace

void refuse_cut(const std::string &path, uint64_t promised, uint64_t there) {
  throw InputError("{}: cut short: its header promises {} bytes of samples, {} are there", path, promised, there);
}

View view_of(const InputFile &file) {
  uint64_t base = 0;
  while (const uint64_t tag = tag_bytes(file, base))
    base += tag;
  const std::string head = file.bytes(base, 12);
  const std::string_view magic = std::string_view(head).substr(0, 4);
  if (head.size() == 12) {
    const std::string_view form = std::string_view(head).substr(8);
    const auto whole = [&](Order order) { return number(std::string_view(head).substr(4, 4), order); };
    if (magic == "RIFF" || magic == "RF64" || magic == "BW64")
      return wav_view(file, base, magic, form, whole(Order::little));
    if (magic == "RIFX")
      return wav_view(file, base, magic, form, whole(Order::big));
    if (magic == "riff")
      return wave64_view(file, base);
    if (magic == "FORM" && (form == "AIFF" || form == "AIFC"))
      return aiff_view(file, base, form, whole(Order::big));
    if (magic == ".snd" || magic == "dns.")
      check_au(file, base, magic == ".snd" ? Order::big : Order::little);
  }
  if (file.pipe() && head.empty())
    throw InputError("{}: is empty; what should write into it has ended without a byte", file.path());
  if (file.pipe())
    throw InputError("{}: is not WAV, Wave64 or AIFF, which are what is read from a pipe; let the program before "
                     "write WAV (ffmpeg -f wav -, sox -t wav -, arecord -t wav), or say with --raw how its samples are "
                     "encoded",
                     file.path());
  return {"", base, file.size() - base};
}

} // namespace qv::tool
