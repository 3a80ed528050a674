# `cmake --install` copies libraries, headers, tables, the CMake package and the pkg-config file into a
# prefix. tools/zstz installs the tool.

include(CMakePackageConfigHelpers)

set(z_include ${CMAKE_INSTALL_INCLUDEDIR}/zfoundation-6.0)
set(z_package ${CMAKE_INSTALL_LIBDIR}/cmake/ZFoundation)

# The two libraries lie side by side and find each other there.
set_target_properties(Z PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS Z qvr EXPORT ZFoundationTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

get_target_property(z_headers Z Z_PUBLIC_HEADERS)
install(FILES ${z_headers} DESTINATION ${z_include}/Z)
install(FILES src/qvr/qvr.h DESTINATION ${z_include})
install(DIRECTORY src/qvr/tables/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qvr)

install(EXPORT ZFoundationTargets NAMESPACE ZFoundation:: DESTINATION ${z_package})
configure_package_config_file(cmake/ZFoundationConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZFoundationConfig.cmake
    INSTALL_DESTINATION ${z_package} PATH_VARS CMAKE_INSTALL_DATADIR)
# Another generation is a separate package, never a newer version of this one.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZFoundationConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZFoundationConfig.cmake
              ${PROJECT_BINARY_DIR}/ZFoundationConfigVersion.cmake
        DESTINATION ${z_package})

# The prefix is relative to this file, so that an installed tree can be moved.
file(RELATIVE_PATH z_up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" z_up "${z_up}")
configure_file(cmake/zfoundation-6.0.pc.in ${PROJECT_BINARY_DIR}/zfoundation-6.0.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zfoundation-6.0.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# ./dev package
set(CPACK_PACKAGE_NAME zfoundation-6.0)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "General-purpose foundation library, generation 6.0")
set(CPACK_PACKAGE_CONTACT "The zfoundation developers <zfoundation@localhost>")
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The Debian package installs below /usr; a tar archive can be extracted anywhere.
set(CPACK_SET_DESTDIR OFF)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(Z_FLEET)
    # Archives of libzfleet only. The archives of the foundation come from a build without this option.
    set(CPACK_PACKAGE_NAME zfleet-6.0)
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
        "Configurations and locks in a cluster, for the foundation library 6.0")
    set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/docs/fleet.md)
    set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};zfleet;fleet;/")
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "zfoundation-6.0 (= ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        ${PROJECT_BINARY_DIR}/src/Z ${PROJECT_BINARY_DIR}/src/qvr)
endif()
include(CPack)
