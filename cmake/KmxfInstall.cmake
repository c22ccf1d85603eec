# What `cmake --install` puts in place: library, headers, program, man page, JSON schema, CMake package, pkg-config file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kmxf)
install(TARGETS kmxf EXPORT kmxfTargets FILE_SET HEADERS)
install(EXPORT kmxfTargets NAMESPACE kmxf:: DESTINATION ${package_dir})

configure_package_config_file(cmake/kmxfConfig.cmake.in kmxfConfig.cmake INSTALL_DESTINATION ${package_dir}
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# The same rule as the SONAME's: before 1.0 every minor version may differ.
write_basic_package_version_file(kmxfConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kmxfConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kmxfConfigVersion.cmake
    DESTINATION ${package_dir})

# The prefix is found from the place of the file, so that an installed tree may be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
    OUTPUT_VARIABLE prefix_from_pc)
configure_file(cmake/kmxf.pc.in kmxf.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kmxf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET kmxf_app)
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR}
        OUTPUT_VARIABLE lib_from_bin)
    set_target_properties(kmxf_app PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
    install(TARGETS kmxf_app)
    install(FILES docs/kmxf.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES docs/kmxf-1.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/kmxf)
endif()
