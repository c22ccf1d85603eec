# GoogleTest for a machine that Debian has no packages of here: built from the sources in its package googletest.
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
