# The transforms: Debian's kissfft package, or its source compiled into the library with the library's own options.
# The package is built with -ffast-math: its last bits differ from one architecture to the next. The source
# gives the same bits everywhere.

set(QVVOICE_KISSFFT package CACHE STRING "kissfft: package (Debian's) or source (third_party/kissfft, from scripts/fetch-kissfft)")
set_property(CACHE QVVOICE_KISSFFT PROPERTY STRINGS package source)
set(kissfft_folder ${PROJECT_SOURCE_DIR}/third_party/kissfft)

if(QVVOICE_KISSFFT STREQUAL "package")
  find_package(kissfft CONFIG REQUIRED COMPONENTS SHARED float)
elseif(NOT QVVOICE_KISSFFT STREQUAL "source")
  message(FATAL_ERROR "QVVOICE_KISSFFT is '${QVVOICE_KISSFFT}': it must be 'package' or 'source'")
elseif(NOT EXISTS ${kissfft_folder}/kiss_fftr.c)
  message(FATAL_ERROR "QVVOICE_KISSFFT=source needs ${kissfft_folder}: run scripts/fetch-kissfft")
endif()

# Gives kissfft to one build of the library: its NAME, then the compiler's options for it.
function(qvvoice_link_kissfft name)
  if(QVVOICE_KISSFFT STREQUAL "package")
    # An application does not need it to build against the installed library.
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kissfft::kissfft-float>)
    return()
  endif()
  add_library(${name}_kissfft OBJECT ${kissfft_folder}/kiss_fft.c ${kissfft_folder}/kiss_fftr.c)
  set_target_properties(${name}_kissfft PROPERTIES POSITION_INDEPENDENT_CODE ON C_VISIBILITY_PRESET hidden)
  # Without fused instructions: gcc 12 forms some of its complex products in spite of -ffp-contract=off.
  target_compile_options(${name}_kissfft PRIVATE -w -ffp-contract=off -fno-math-errno -fno-trapping-math ${ARGN}
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-mno-fma>)
  target_compile_definitions(${name}_kissfft PRIVATE NDEBUG)
  target_sources(${name} PRIVATE $<TARGET_OBJECTS:${name}_kissfft>)
  target_include_directories(${name} SYSTEM PRIVATE ${PROJECT_SOURCE_DIR}/third_party)
  target_link_libraries(${name} PRIVATE m)
endfunction()
