# What the library is called, and what it exports, where it is a shared one.

set_target_properties(qv_base PROPERTIES VERSION ${PROJECT_VERSION}
                                         SOVERSION ${PROJECT_VERSION_MAJOR}
                                         WINDOWS_EXPORT_ALL_SYMBOLS ON)
get_target_property(type qv_base TYPE)
if(type STREQUAL SHARED_LIBRARY AND UNIX)
  # After all flags of the project, which may hide everything.
  target_compile_options(qv_base PRIVATE -fvisibility=default)
endif()
if(type STREQUAL SHARED_LIBRARY AND UNIX AND NOT APPLE)
  # All that is no function of the interface is static or a memory function of its own. Under a
  # version node of their own the functions of two major versions can be in one process.
  file(CONFIGURE OUTPUT qv_base.map @ONLY
       CONTENT "QV_BASE_@PROJECT_VERSION_MAJOR@ { global: qv_btree_*; local: *; };\n")
  # As needed: nothing of the C++ runtime is, whatever the compiler adds to every program.
  target_link_options(qv_base PRIVATE LINKER:--as-needed
                      LINKER:--version-script=${CMAKE_CURRENT_BINARY_DIR}/qv_base.map)
  set_target_properties(qv_base PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/qv_base.map)
endif()
