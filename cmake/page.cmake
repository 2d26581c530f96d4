# The page that tunes by ear, built beside the tool by the compiler for WebAssembly, and put into the tool: without that
# compiler the tool does without.
find_program(QVVOICE_WASM_COMPILER clang++-19)
find_program(QVVOICE_WASM_LINKER wasm-ld-19)
find_file(QVVOICE_WASM_LIBRARY libc++.a PATHS /usr/lib/llvm-19/lib/wasm32-wasi NO_DEFAULT_PATH)
find_file(QVVOICE_WASM_C_LIBRARY libc.a PATHS /usr/lib/wasm32-wasi NO_DEFAULT_PATH)
if(NOT QVVOICE_WASM_COMPILER OR NOT QVVOICE_WASM_LINKER OR NOT QVVOICE_WASM_LIBRARY OR NOT QVVOICE_WASM_C_LIBRARY)
  message(STATUS "The tuner's page is left out: install clang-19, lld-19, wasi-libc, libc++-19-dev-wasm32, libc++abi-19-dev-wasm32 and libclang-rt-19-dev-wasm32")
  return()
endif()

include(ExternalProject)
set(QVVOICE_PAGE_FOLDER ${PROJECT_BINARY_DIR}/page)
ExternalProject_Add(qvvoice_page
  SOURCE_DIR ${PROJECT_SOURCE_DIR}
  BINARY_DIR ${QVVOICE_PAGE_FOLDER}
  CMAKE_ARGS --preset web -B ${QVVOICE_PAGE_FOLDER} -DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}
    -DCMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER}
  BUILD_ALWAYS ON
  USES_TERMINAL_BUILD ON
  INSTALL_COMMAND ""
  BUILD_BYPRODUCTS ${QVVOICE_PAGE_FOLDER}/tuner.html ${QVVOICE_PAGE_FOLDER}/tuner-without-call.html.gz)
