// The text form of a parameter file. Whatever it says: findings or words, and words that are written as text and read
// again are the same words.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "inspect/check.h"
#include "para/text_reader.h"
#include "para/text_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using namespace qv::tool::para;
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const ReadText read = read_text(text, "/nowhere");
  if (has_errors(read.log.findings()))
    return 0;
  qv::tool::inspect::check(read.image);
  const ReadText again = read_text(write_text(read.image), "/nowhere");
  if (has_errors(again.log.findings()) || again.image != read.image)
    std::abort();
  return 0;
}
