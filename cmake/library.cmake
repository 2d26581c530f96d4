# The library, shared and static. The shared one runs on any processor of the architecture; on x86-64 a second build of
# the same sources for processors with AVX2 and FMA lies beside it, which the loader picks by itself (glibc-hwcaps).
# Both give the same bits.

include(${CMAKE_CURRENT_LIST_DIR}/kissfft.cmake)

file(GLOB_RECURSE QVVOICE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)
list(REMOVE_ITEM QVVOICE_SOURCES ${PROJECT_SOURCE_DIR}/src/config/fields.cpp)
set(QVVOICE_SOVERSION 1) # rises when a name or record of the installed headers changes or goes

# The table of fields is no part of the interface: the library, the tool and the tests each link these objects.
add_library(qvvoice_fields OBJECT ${PROJECT_SOURCE_DIR}/src/config/fields.cpp)
set_target_properties(qvvoice_fields PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden)
target_include_directories(qvvoice_fields PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)

# Compiles the sources once: NAME, then the compiler's options for them.
function(qvvoice_compile name)
  qvvoice_add_kissfft(${name}_kissfft ${ARGN})
  qvvoice_add_kissfft_lanes(${name}_kissfft_lanes ${ARGN})
  add_library(${name}_objects OBJECT ${QVVOICE_SOURCES})
  target_include_directories(${name}_objects PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  # No contraction and no reassociation: every build gives the same bits. Neither errno nor trapping
  # exceptions are part of them, and both keep loops from being vectorised.
  target_compile_options(${name}_objects PRIVATE -ffp-contract=off -fno-math-errno -fno-trapping-math -fno-exceptions
    -fno-rtti ${ARGN})
  target_compile_definitions(${name}_objects PRIVATE QVVOICE_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${name}_objects PRIVATE qvvoice_warnings ${name}_kissfft ${name}_kissfft_lanes)
  set_target_properties(${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# Makes a library NAME of TYPE, SHARED or STATIC, from what qvvoice_compile(OBJECTS) has compiled.
function(qvvoice_link name type objects)
  add_library(${name} ${type} $<TARGET_OBJECTS:${objects}_objects> $<TARGET_OBJECTS:${objects}_kissfft_lanes>
    $<TARGET_OBJECTS:qvvoice_fields>)
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(QVVOICE_KISSFFT STREQUAL "source")
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${objects}_kissfft>)
  else()
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:kissfft::kissfft-float>)
  endif()
  target_link_libraries(${name} PRIVATE m)
  set_target_properties(${name} PROPERTIES OUTPUT_NAME qvvoice)
  if(type STREQUAL "STATIC")
    return()
  endif()
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/src/libqvvoice.map -Wl,--as-needed
    -static-libgcc)
  if(NOT QVVOICE_SANITIZE) # clang's sanitizers are in the program only
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${QVVOICE_SOVERSION}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/src/libqvvoice.map)
endfunction()

# The build's shared library NAME with compiler options of its own.
function(qvvoice_add_library name)
  qvvoice_compile(${name} ${ARGN})
  qvvoice_link(${name} SHARED ${name})
endfunction()

if((DEFINED BUILD_SHARED_LIBS AND BUILD_SHARED_LIBS) OR (NOT DEFINED BUILD_SHARED_LIBS AND PROJECT_IS_TOP_LEVEL))
  set(QVVOICE_KIND SHARED)
else()
  set(QVVOICE_KIND STATIC)
endif()
qvvoice_compile(qvvoice)
qvvoice_link(qvvoice ${QVVOICE_KIND} qvvoice)
add_library(qvvoice::qvvoice ALIAS qvvoice)

if(QVVOICE_KIND STREQUAL "STATIC")
  add_library(qvvoice::static ALIAS qvvoice)
elseif(QVVOICE_STATIC)
  qvvoice_link(qvvoice_static STATIC qvvoice)
  set_target_properties(qvvoice_static PROPERTIES EXPORT_NAME static)
  add_library(qvvoice::static ALIAS qvvoice_static)
endif()

if(QVVOICE_V3 AND QVVOICE_KIND STREQUAL "SHARED" AND CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" AND NOT QVVOICE_SANITIZE)
  qvvoice_add_library(qvvoice_v3 -march=x86-64-v3)
  set_target_properties(qvvoice_v3 PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:qvvoice>/glibc-hwcaps/x86-64-v3)
  add_dependencies(qvvoice qvvoice_v3)
endif()
