# The shared library: for any processor of the architecture, and on x86-64 a second build of the same
# sources for processors with AVX2 and FMA, which the loader picks by itself (glibc-hwcaps). Both give the
# same bits.

include(${CMAKE_CURRENT_LIST_DIR}/kissfft.cmake)

file(GLOB_RECURSE QVVOICE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)
set(QVVOICE_SOVERSION 1) # rises when a name or record of the installed headers changes or goes

# Adds one build of the library: NAME, then the compiler's options for it.
function(qvvoice_add_library name)
  add_library(${name} SHARED ${QVVOICE_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # No contraction and no reassociation: every build gives the same bits. Neither errno nor trapping
  # exceptions are part of them, and both keep loops from being vectorised.
  target_compile_options(${name} PRIVATE -ffp-contract=off -fno-math-errno -fno-trapping-math -fno-exceptions -fno-rtti ${ARGN})
  target_compile_definitions(${name} PRIVATE QVVOICE_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:qvvoice_warnings>)
  qvvoice_link_kissfft(${name} ${ARGN})
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/src/libqvvoice.map -Wl,--as-needed -static-libgcc)
  if(NOT QVVOICE_SANITIZE) # clang's sanitizers are in the program only
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES OUTPUT_NAME qvvoice VERSION ${PROJECT_VERSION} SOVERSION ${QVVOICE_SOVERSION}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/src/libqvvoice.map)
endfunction()

qvvoice_add_library(qvvoice)
add_library(qvvoice::qvvoice ALIAS qvvoice)

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" AND NOT QVVOICE_SANITIZE)
  qvvoice_add_library(qvvoice_v3 -march=x86-64-v3)
  set_target_properties(qvvoice_v3 PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/glibc-hwcaps/x86-64-v3)
  add_dependencies(qvvoice qvvoice_v3)
endif()
