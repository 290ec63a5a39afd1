# Headers, libraries, a CMake package and pkg-config files, all relocatable.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qv_base)

install(DIRECTORY src/base/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qv/base
        FILES_MATCHING PATTERN "*.h")
install(TARGETS ${libraries} EXPORT qv_base-targets)
install(EXPORT qv_base-targets NAMESPACE qv:: DESTINATION ${package_dir}
        FILE qv_base-config.cmake)
write_basic_package_version_file(qv_base-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qv_base-config-version.cmake
        DESTINATION ${package_dir})

# The prefix is wherever the file lies, as many folders up as its own place is deep.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
string(REGEX REPLACE "[^/]+" ".." pc_to_prefix ${pc_dir})
foreach(library IN LISTS libraries)
  configure_file(cmake/library.pc.in ${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc DESTINATION ${pc_dir})
endforeach()

# GDB loads the extension by itself with a shared library that it lies beside, if that folder is on
# its safe path; otherwise: source share/qv_base/qv_btree_gdb.py
install(FILES tools/gdb/qv_btree_gdb.py DESTINATION ${CMAKE_INSTALL_DATADIR}/qv_base)
if(BUILD_SHARED_LIBS)
  install(FILES tools/gdb/qv_btree_gdb.py DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RENAME libqv_base.so.${PROJECT_VERSION}-gdb.py)
endif()
