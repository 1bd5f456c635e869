# cmake --install: the headers, the library, and how CMake and pkg-config find them.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/Include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/rvkrn
  FILES_MATCHING PATTERN "*.h")
install(TARGETS rvkrn EXPORT rvkrn-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET rvimg)
  # The installed tool finds the installed library wherever the whole tree is put.
  file(RELATIVE_PATH to_library /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(rvimg PROPERTIES INSTALL_RPATH "\$ORIGIN/${to_library}")
  install(TARGETS rvimg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rvkrn)
install(EXPORT rvkrn-targets FILE rvkrnConfig.cmake NAMESPACE rvkrn:: DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rvkrnConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/rvkrnConfigVersion.cmake DESTINATION ${package_dir})

# Paths in rvkrn.pc are relative to the file itself, so that an installed tree can be moved.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_prefix /${pc_dir} /)
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/rvkrn.pc.in ${PROJECT_BINARY_DIR}/rvkrn.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/rvkrn.pc DESTINATION ${pc_dir})
