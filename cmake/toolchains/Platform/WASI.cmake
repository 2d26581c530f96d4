# CMake knows no such platform: nothing is shared, a program ends in .wasm.
set_property(GLOBAL PROPERTY TARGET_SUPPORTS_SHARED_LIBS FALSE)
set(CMAKE_EXECUTABLE_SUFFIX .wasm)
