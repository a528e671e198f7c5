# SPDX-License-Identifier: BSD-3-Clause
# Installs the host platform libraries as an SDK of their own: the shared
# libraries in lib, their C headers in include, one pkg-config file each and
# a CMake package (dov_vvlan_platform) with the imported targets
# dov_vvlan::tukredis, dov_vvlan::sdm and dov_vvlan::ham_agent.
set(headers include/tukredis.h include/libsdm.h include/ham_agent.h)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

install(TARGETS platform_api tukredis sdm ham_agent
        EXPORT dov_vvlan_platform
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/dov_vvlan_platform)
install(EXPORT dov_vvlan_platform NAMESPACE dov_vvlan:: DESTINATION ${cmake_dir}
        FILE dov_vvlan_platform-targets.cmake COMPONENT dev)
include(CMakePackageConfigHelpers)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/dov_vvlan_platform-config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/dov_vvlan_platform-config.cmake INSTALL_DESTINATION ${cmake_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/dov_vvlan_platform-config-version.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dov_vvlan_platform-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/dov_vvlan_platform-config-version.cmake
        DESTINATION ${cmake_dir} COMPONENT dev)

# pkg-config: <module>.pc names the library to link.
foreach(pc IN ITEMS tukredis:tukredis libsdm:sdm ham_agent:ham_agent)
    string(REPLACE ":" ";" pc "${pc}")
    list(GET pc 0 DOV_VVLAN_PC_MODULE)
    list(GET pc 1 DOV_VVLAN_PC_LIB)
    configure_file(${CMAKE_CURRENT_SOURCE_DIR}/platform.pc.in
                   ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${DOV_VVLAN_PC_MODULE}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${DOV_VVLAN_PC_MODULE}.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
