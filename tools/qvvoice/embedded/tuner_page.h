/// @file tuner_page.h  The page that tunes by ear, as the build for the browser has made it: web/.
#pragma once

#include <string_view>

namespace qv::tool::embedded {

/// The page; empty in a build without the compiler for WebAssembly.
std::string_view tuner_page();

/// The same without its built-in call, gzipped, to stand in other pages; empty likewise.
std::string_view packed_tuner_page();

} // namespace qv::tool::embedded
