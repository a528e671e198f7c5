# SPDX-License-Identifier: BSD-3-Clause
# Installed layout (GNUInstallDirs): the daemon in sbin, vvlanctl in bin,
# the host platform libraries in lib, found from sbin and bin through a
# relative RPATH so that the tree works wherever it is unpacked.
#
# Included at the end of the top-level CMakeLists.txt, after every
# add_subdirectory, so that targets defined anywhere (vvlanctl) are seen.

# The version text is data in the daemon, and every platform prototype it
# calls is checked against the headers it was compiled with.
target_link_libraries(dov_vvlan PRIVATE dov_vvlan_version dov_vvlan_platform_check)
# Nothing refers to the text: it is a root of the linker's garbage
# collection, so that --gc-sections keeps it.
target_link_options(dov_vvlan PRIVATE -Wl,--undefined=dov_vvlan_version)

set(dov_vvlan_programs dov_vvlan)
if(TARGET vvlanctl)
    list(APPEND dov_vvlan_programs vvlanctl)
    install(TARGETS vvlanctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()

if(DOV_VVLAN_PLATFORM STREQUAL "host")
    foreach(program IN LISTS dov_vvlan_programs)
        if(program STREQUAL "dov_vvlan")
            set(from ${CMAKE_INSTALL_FULL_SBINDIR})
        else()
            set(from ${CMAKE_INSTALL_FULL_BINDIR})
        endif()
        file(RELATIVE_PATH to_lib ${from} ${CMAKE_INSTALL_FULL_LIBDIR})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_lib}")
    endforeach()
endif()

add_subdirectory(${PROJECT_SOURCE_DIR}/packaging ${PROJECT_BINARY_DIR}/packaging)

# The install tree and the packages, tested from the PC tree (label package);
# not from the sanitizer and fuzzer trees, which would only repeat them.
if(DOV_VVLAN_TESTS AND NOT DOV_VVLAN_SYSROOT STREQUAL "" AND NOT CMAKE_CROSSCOMPILING
   AND NOT DOV_VVLAN_SANITIZE AND NOT DOV_VVLAN_FUZZ)
    add_subdirectory(${PROJECT_SOURCE_DIR}/tests/package ${PROJECT_BINARY_DIR}/tests/package)
endif()
