# Headers, libraries, a CMake package, pkg-config files and debugger support. Relocatable, except with
# absolute folders, which are where they were configured to be.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qv_base)

# Of the headers in src/base users need: qv_btree.h, which includes basictypes.h; hal/hal_memory.h, to
# define its two functions; qv_version.h, to compile for one version or another. Left out is
# qv_memory.h, a helper of the library's own source.
foreach(header IN LISTS public_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES src/base/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qv/base/${folder})
endforeach()
install(TARGETS ${libraries} EXPORT qv_base-targets)
install(EXPORT qv_base-targets NAMESPACE qv:: DESTINATION ${package_dir}
        FILE qv_base-config.cmake)
write_basic_package_version_file(qv_base-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qv_base-config-version.cmake
        DESTINATION ${package_dir})

# The prefix is relative to the file, as many folders up as its own place is deep.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  string(REPLACE " " "\\ " pc_prefix ${CMAKE_INSTALL_PREFIX}) # pkg-config passes that on to the shell.
else()
  string(REGEX REPLACE "[^/]+" ".." pc_prefix ${pc_dir})
  string(PREPEND pc_prefix "\${pcfiledir}/")
endif()
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  set(PC_${dir} "\${prefix}")
  string(REPLACE " " "\\ " folder ${CMAKE_INSTALL_${dir}})
  cmake_path(APPEND PC_${dir} ${folder}) # An absolute folder replaces what it follows.
endforeach()
foreach(library IN LISTS libraries)
  configure_file(cmake/library.pc.in ${library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${library}.pc DESTINATION ${pc_dir})
endforeach()

# For GDB and LLDB. GDB loads its part by itself with a shared library, if the folder of that library
# is on its safe path.
install(FILES debuggers/qv_btree_gdb.py debuggers/qv_btree_lldb.py debuggers/qv_btree_walk.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/qv_base)
if(BUILD_SHARED_LIBS)
  file(RELATIVE_PATH debuggers_from_library ${CMAKE_INSTALL_FULL_LIBDIR}
       ${CMAKE_INSTALL_FULL_DATADIR}/qv_base)
  configure_file(debuggers/autoload-gdb.py.in autoload-gdb.py @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/autoload-gdb.py DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RENAME libqv_base.so.${PROJECT_VERSION}-gdb.py)
endif()
