include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The folders below include/clastool are those of the repository, so that an include line reads the same everywhere.
set(clastool_include_root "${CMAKE_INSTALL_INCLUDEDIR}/clastool")
set(clastool_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/clastool")

install(TARGETS clastool
  EXPORT clastoolTargets
  FILE_SET HEADERS DESTINATION "${clastool_include_root}")
install(EXPORT clastoolTargets
  NAMESPACE clastool::
  DESTINATION "${clastool_package_dir}")

configure_package_config_file(cmake/clastoolConfig.cmake.in clastoolConfig.cmake
  INSTALL_DESTINATION "${clastool_package_dir}")
write_basic_package_version_file(clastoolConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/clastoolConfig.cmake"
  "${PROJECT_BINARY_DIR}/clastoolConfigVersion.cmake"
  DESTINATION "${clastool_package_dir}")

# The prefix is named relative to the .pc file, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" OUTPUT_VARIABLE clastool_prefix_from_pc)
cmake_path(APPEND clastool_pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND clastool_pc_includedir "\${prefix}" "${clastool_include_root}")
if(clastool_type STREQUAL "STATIC_LIBRARY")
  set(clastool_pc_definitions " -DCLASTOOL_STATIC")
else()
  set(clastool_pc_definitions "")
endif()
configure_file(cmake/clastool.pc.in clastool.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/clastool.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")
