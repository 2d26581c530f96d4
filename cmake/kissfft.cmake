# The transforms: kissfft, its pinned source in third_party/ compiled into the library, or the system's package for the
# transforms of one signal. Debian builds its package with -ffast-math, so its last bits differ from one architecture to
# the next. The source gives the same bits everywhere, and tests/vectors has their hashes.

set(QVVOICE_KISSFFT source CACHE STRING "kissfft: source (third_party/kissfft) or system (the installed package)")
set_property(CACHE QVVOICE_KISSFFT PROPERTY STRINGS source system)
set(kissfft_folder ${PROJECT_SOURCE_DIR}/third_party/kissfft)

if(QVVOICE_KISSFFT STREQUAL "system")
  find_package(kissfft CONFIG REQUIRED COMPONENTS SHARED float)
elseif(NOT QVVOICE_KISSFFT STREQUAL "source")
  message(FATAL_ERROR "QVVOICE_KISSFFT is '${QVVOICE_KISSFFT}': it must be 'source' or 'system'")
endif()

foreach(pin
    kiss_fft.c=84154815c4e734bdc986fae5f2301212b1ed4dd91e005bc88680218d4bc3bae3
    kiss_fftr.c=128b651120725e8d55f6b9edf5d44b06dc022b260894eac078c6ff8aa7159561
    _kiss_fft_guts.h=dd1731891d0fff0e297198847de39216c5c8b9677ea4fe53160d1f6c74218d40
    kiss_fft.h=9d6c7ddf520932c0aad669c86c064a24e571e594681be9f1491c14c9c9c75693
    kiss_fft_log.h=f954cb6890ec999f7fbc80cdd1c8c0194bbaeb0f1c27e11bd23450f53871cf8c
    kiss_fftr.h=a0f72c1bddc3126d7a51ad80e965b58f6af77e4419aa882a0b11951e783632a8
)
  string(REGEX MATCH "^(.+)=(.+)$" pin ${pin})
  file(SHA256 ${kissfft_folder}/${CMAKE_MATCH_1} found)
  if(NOT found STREQUAL CMAKE_MATCH_2)
    message(FATAL_ERROR "${kissfft_folder}/${CMAKE_MATCH_1} has SHA-256 ${found}: kissfft 131.1.0 has ${CMAKE_MATCH_2}")
  endif()
endforeach()

# Compiles the pinned source: NAME, then files and the compiler's options. Who links NAME finds <kissfft/kiss_fftr.h>.
function(qvvoice_compile_kissfft name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FILES;OPTIONS")
  add_library(${name} OBJECT ${arg_FILES})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON C_VISIBILITY_PRESET hidden)
  # Without fused instructions: gcc 12 forms some of its complex products in spite of -ffp-contract=off.
  target_compile_options(${name} PRIVATE -w -O2 -ffp-contract=off -fno-math-errno -fno-trapping-math ${arg_OPTIONS}
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-mno-fma>)
  target_compile_definitions(${name} PRIVATE NDEBUG)
  target_include_directories(${name} SYSTEM PUBLIC ${PROJECT_SOURCE_DIR}/third_party)
endfunction()

# The transforms of one signal from the pinned source: NAME, then the compiler's options for them.
function(qvvoice_add_kissfft_source name)
  qvvoice_compile_kissfft(${name} FILES ${kissfft_folder}/kiss_fft.c ${kissfft_folder}/kiss_fftr.c OPTIONS ${ARGN})
  # In the static library under names of our own: an application may link another kissfft beside it.
  set(names kf_work kf_factor kiss_fft_alloc kiss_fft kiss_fft_stride kiss_fft_cleanup kiss_fft_next_fast_size
    kiss_fftr_alloc kiss_fftr kiss_fftri)
  list(TRANSFORM names REPLACE "(.+)" "\\1=qvvoice_\\1")
  target_compile_definitions(${name} PUBLIC ${names})
endfunction()

# The transforms of one signal as QVVOICE_KISSFFT says: NAME, then the compiler's options for them.
function(qvvoice_add_kissfft name)
  if(QVVOICE_KISSFFT STREQUAL "system")
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE kissfft::kissfft-float)
  else()
    qvvoice_add_kissfft_source(${name} ${ARGN})
  endif()
endfunction()

# The transforms of four signals at once, always from the pinned source: NAME, then the compiler's options for them.
function(qvvoice_add_kissfft_lanes name)
  qvvoice_compile_kissfft(${name} FILES ${PROJECT_SOURCE_DIR}/src/dsp/kissfft_lanes.c OPTIONS ${ARGN})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
endfunction()
