/// @file manifest.h  Sets as a file: a line per recording.
#pragma once

#include <string>
#include <vector>

#include "sets/entry.h"

namespace qv::tool::sets {

/// CSV (RFC 4180, no line breaks within a field) with a line of column names, of which those that are no key of
/// entry_of() are tags; or JSON lines, when the first character is "{". Paths are relative to the file's folder.
/// @param faults  gets what is wrong with single lines, those that entry_of() returns nothing for
/// @throws InputError when it cannot be read, holds no recording, or is neither
std::vector<Entry> read_manifest(const std::string &path, Faults &faults);

} // namespace qv::tool::sets
