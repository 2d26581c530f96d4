# WebAssembly by Debian's clang and wasi-libc, with vectors: packages clang-19 lld-19 wasi-libc libc++-19-dev-wasm32
# libc++abi-19-dev-wasm32 libclang-rt-19-dev-wasm32.
set(CMAKE_SYSTEM_NAME WASI)
set(CMAKE_SYSTEM_PROCESSOR wasm32)
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET wasm32-wasi)
  set(CMAKE_${language}_FLAGS_INIT -msimd128)
endforeach()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
