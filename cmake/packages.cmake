# Debian packages, one per component: libqvvoice1, libqvvoice-dev, qvvoice. `scripts/package` builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qvvoice)
set(CPACK_PACKAGE_VENDOR "QV Voice developers")
set(CPACK_PACKAGE_CONTACT "QV Voice developers <maintainers@qvvoice.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_COMPONENTS_ALL runtime development tools)
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
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "speech processing for voice calls, headers\n${library_text}\n.\nHeaders, pkg-config file and CMake package.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qvvoice)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libqvvoice${QVVOICE_SOVERSION} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "speech processing for voice calls, command-line tool\n${library_text}\n.\nRuns recordings through the library, writes and checks its parameter files,\nmeasures and shows what it does.")

# What Debian wants beside every package: the licence, and a changelog in its own form.
set(changelog ${PROJECT_BINARY_DIR}/changelog)
file(WRITE ${changelog} "qvvoice (${PROJECT_VERSION}) unstable; urgency=medium

  * See CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  Sun, 22 Nov 2026 00:00:00 +0000
")
execute_process(COMMAND gzip -9nf ${changelog})
foreach(component RUNTIME DEVELOPMENT TOOLS)
  string(TOLOWER ${component} name)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${doc} RENAME copyright COMPONENT ${name})
  install(FILES ${changelog}.gz DESTINATION ${doc} COMPONENT ${name})
endforeach()

include(CPack)
