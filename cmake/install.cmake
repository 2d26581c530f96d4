# Installation in components: runtime (the library), development (headers, pkg-config, CMake package), tools.
include(CMakePackageConfigHelpers)

set(libraries qvvoice)
if(TARGET qvvoice_static)
  list(APPEND libraries qvvoice_static)
endif()
install(TARGETS ${libraries} EXPORT qvvoiceTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET qvvoice_v3)
  install(TARGETS qvvoice_v3
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/x86-64-v3 COMPONENT runtime NAMELINK_SKIP)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qvvoice DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# Both packages find themselves from where they lie, so an installed tree may be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pkgconfig_to_prefix /${pkgconfig_dir} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/qvvoice.pc.in ${PROJECT_BINARY_DIR}/qvvoice.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qvvoice.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qvvoice)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qvvoiceConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT qvvoiceTargets NAMESPACE qvvoice:: DESTINATION ${package_dir} COMPONENT development)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/qvvoiceConfig.cmake ${PROJECT_BINARY_DIR}/qvvoiceConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# Outside the loader's own folders the tool looks for the library beside itself.
if(TARGET qvvoice_cli AND NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(qvvoice_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
endif()
