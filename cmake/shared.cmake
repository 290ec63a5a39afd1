# What the library is called, and what it exports, where it is a shared one.

set_target_properties(qv_base PROPERTIES VERSION ${PROJECT_VERSION}
                                         SOVERSION ${PROJECT_VERSION_MAJOR})
get_target_property(type qv_base TYPE)
if(NOT type STREQUAL SHARED_LIBRARY)
  return()
endif()

# The public functions are those that begin a line of the header.
set(header ${CMAKE_CURRENT_SOURCE_DIR}/src/base/qv_btree.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
file(STRINGS ${header} functions REGEX "^[a-z].*[ *]qv_btree_[a-z_]+\\(")
list(TRANSFORM functions REPLACE ".*(qv_btree_[a-z_]+)\\(.*" "\\1")
if(WIN32)
  list(JOIN functions "\n" exports)
  file(CONFIGURE OUTPUT qv_base.def CONTENT "EXPORTS\n@exports@\n" @ONLY)
  target_sources(qv_base PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/qv_base.def)
elseif(NOT APPLE)
  # Under a version node of their own the functions of two major versions can live in one process.
  list(JOIN functions "; " exports)
  file(CONFIGURE OUTPUT qv_base.map
       CONTENT "QV_BASE_@PROJECT_VERSION_MAJOR@ { global: @exports@; local: *; };\n" @ONLY)
  # As needed: nothing of the C++ runtime is, whatever the compiler adds to every program.
  target_link_options(qv_base PRIVATE LINKER:--as-needed
                      LINKER:--version-script=${CMAKE_CURRENT_BINARY_DIR}/qv_base.map)
  set_target_properties(qv_base PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/qv_base.map)
endif()
