// The parser's code. It is compiled here rather than linked: the library that is installed reports errors by
// exceptions, which the build for the browser does not have.

#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
