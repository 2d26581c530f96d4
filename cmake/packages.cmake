# Debian packages, one per component: libqvvoice1, libqvvoice-dev, qvvoice, and one per binding or plugin that is built.
# `scripts/package` builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qvvoice)
set(CPACK_PACKAGE_VENDOR "QV Voice developers")
# Who builds packages answers for them: DEBFULLNAME and DEBEMAIL, as Debian's own tools read them, else git's identity.
set(maintainer "$ENV{DEBFULLNAME}")
set(address "$ENV{DEBEMAIL}")
if(NOT maintainer)
  execute_process(COMMAND git config user.name WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE maintainer
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT address)
  execute_process(COMMAND git config user.email WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE address
    OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT maintainer)
  set(maintainer "QV Voice developers")
endif()
if(NOT address)
  cmake_host_system_information(RESULT address QUERY FQDN)
  string(PREPEND address root@)
endif()
set(CPACK_PACKAGE_CONTACT "${maintainer} <${address}>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(library_text "Echo canceller, noise reducer, gain control, equaliser and comfort noise for\ntwo-way voice calls, one function call per frame and direction.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqvvoice${QVVOICE_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Written here: CPack's own would name the library twice, once per build for a kind of processor.
set(control ${PROJECT_BINARY_DIR}/control)
set(runtime ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME})
file(WRITE ${control}/shlibs "libqvvoice ${QVVOICE_SOVERSION} ${runtime} (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "speech processing for voice calls, shared library\n${library_text}")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqvvoice-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "speech processing for voice calls, headers\n${library_text}\n.\nHeaders, static library, pkg-config file, CMake package, texts\nand examples.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qvvoice)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "asterisk-core-sounds-en-g722, ffmpeg") # voices of `qvvoice scene`
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "speech processing for voice calls, command-line tool\n${library_text}\n.\nRuns recordings through the library, writes and checks its parameter files,\nmeasures and shows what it does.")

# Where their systems are there: the Python module, the GStreamer plugin and the PipeWire plugin.
set(components RUNTIME DEVELOPMENT TOOLS)
if(TARGET qvvoice_python)
  list(APPEND components PYTHON)
  math(EXPR next_minor "${Python3_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-qvvoice)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (= ${PROJECT_VERSION}), python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}~), python3 (<< ${Python3_VERSION_MAJOR}.${next_minor}), python3-numpy")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "speech processing for voice calls, Python module\n${library_text}\n.\nCalls, whole recordings, parameter files and measures, on numpy arrays.")
  # Compiled when it is installed, as Debian does it.
  file(WRITE ${control}/python/postinst "#!/bin/sh\nset -e\nif [ \"$1\" = configure ]; then\n  py3compile -p python3-qvvoice\nfi\n")
  file(WRITE ${control}/python/prerm "#!/bin/sh\nset -e\npy3clean -p python3-qvvoice\n")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${control}/python/postinst ${control}/python/prerm)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/python.md ${PROJECT_SOURCE_DIR}/examples/python/look_at_a_call.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/python3-qvvoice COMPONENT python)
endif()
if(TARGET qvvoice_gstreamer)
  list(APPEND components GSTREAMER)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-qvvoice)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION sound)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_GSTREAMER_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (= ${PROJECT_VERSION})")
  set(CPACK_COMPONENT_GSTREAMER_DESCRIPTION "speech processing for voice calls, GStreamer plugin\n${library_text}\n.\nThe elements qvvoice, for the microphone, and qvvoiceprobe, for what is played.")
  install(FILES ${PROJECT_SOURCE_DIR}/docs/gstreamer.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/gstreamer1.0-qvvoice
    COMPONENT gstreamer)
endif()
if(TARGET qvvoice_pipewire)
  list(APPEND components PIPEWIRE)
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_NAME libspa-0.2-qvvoice)
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_SECTION sound)
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (>= ${PROJECT_VERSION})")
  # As Debian's own plugins: what loads it is not pulled in. Methods of version 2 came with 0.3.58.
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_RECOMMENDS "pipewire (>= 0.3.58)")
  set(CPACK_DEBIAN_PIPEWIRE_PACKAGE_SUGGESTS qvvoice)
  set(CPACK_COMPONENT_PIPEWIRE_DESCRIPTION "speech processing for voice calls, PipeWire plugin\n${library_text}\n.\nFor libpipewire-module-echo-cancel, with a configuration to drop in.")
endif()
string(TOLOWER "${components}" CPACK_COMPONENTS_ALL)

# What Debian wants beside every package: the licence, and a changelog in its own form.
set(changelog ${PROJECT_BINARY_DIR}/changelog)
file(WRITE ${changelog} "qvvoice (${PROJECT_VERSION}) unstable; urgency=medium

  * See CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  Sun, 22 Nov 2026 00:00:00 +0000
")
execute_process(COMMAND gzip -9nf ${changelog})
file(READ ${PROJECT_SOURCE_DIR}/LICENSE own_licence)
file(READ ${PROJECT_SOURCE_DIR}/third_party/kissfft/LICENSES/BSD-3-Clause kissfft_licence)
string(REGEX REPLACE ".*All rights reserved." "Copyright (c) 2003-2010 Mark Borgerding. All rights reserved." kissfft_licence
  "${kissfft_licence}")
file(WRITE ${PROJECT_BINARY_DIR}/copyright "QV Voice

${own_licence}
The library and the tool contain kissfft 131.1.0:

${kissfft_licence}
The tuner's page, which the tool contains, lists what it is made with, with the licences, at its end.
")
foreach(component IN LISTS components)
  string(TOLOWER ${component} name)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  install(FILES ${PROJECT_BINARY_DIR}/copyright DESTINATION ${doc} COMPONENT ${name})
  install(FILES ${changelog}.gz DESTINATION ${doc} COMPONENT ${name})
endforeach()

# The texts keep their folders, so that what they and the manual pages call docs/ and examples/ is found.
set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${doc} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/docs/building.md ${PROJECT_SOURCE_DIR}/docs/integration.md
  ${PROJECT_SOURCE_DIR}/docs/algorithm.md DESTINATION ${doc}/docs COMPONENT development)
set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_TOOLS_PACKAGE_NAME})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${doc} COMPONENT tools)
if(TARGET qvvoice_pipewire)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/pipewire.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_PIPEWIRE_PACKAGE_NAME} COMPONENT pipewire)
endif()

include(CPack)
