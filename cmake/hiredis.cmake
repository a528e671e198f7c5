# SPDX-License-Identifier: BSD-3-Clause
# The hiredis every tree builds with, found once: its version is read from
# its header and checked against the versions the bus library and vvlanctl
# were verified with (the compatibility matrix of tools/compat-hiredis), so
# that an unverified one stops the configure with the list instead of
# failing later, or worse, compiling. TLS needs hiredis_ssl, which hiredis
# has since 1.0, and OpenSSL.
#
#   HIREDIS_INCLUDE_DIR, HIREDIS_LIBRARY   where it is (a prefix on
#                                          CMAKE_PREFIX_PATH finds both)
#   DOV_VVLAN_TLS       AUTO (default): TLS when hiredis_ssl is there; ON:
#                       fail without it; OFF: never
#   DOV_VVLAN_HIREDIS_UNVERIFIED
#                       ON to try a 1.x minor version not in the list
set(DOV_VVLAN_HIREDIS_VERIFIED "0.14;1.2;1.3")

# A tree reconfigured with another CMAKE_PREFIX_PATH looks again, instead of
# keeping the hiredis its cache found before.
if(DEFINED DOV_VVLAN_HIREDIS_PREFIX_SEEN AND NOT "${CMAKE_PREFIX_PATH}" STREQUAL "${DOV_VVLAN_HIREDIS_PREFIX_SEEN}")
    unset(HIREDIS_INCLUDE_DIR CACHE)
    unset(HIREDIS_LIBRARY CACHE)
    unset(HIREDIS_SSL_LIBRARY CACHE)
endif()
set(DOV_VVLAN_HIREDIS_PREFIX_SEEN "${CMAKE_PREFIX_PATH}" CACHE INTERNAL "")
find_path(HIREDIS_INCLUDE_DIR hiredis/hiredis.h REQUIRED)
find_library(HIREDIS_LIBRARY NAMES hiredis REQUIRED)

file(STRINGS "${HIREDIS_INCLUDE_DIR}/hiredis/hiredis.h" _hiredis_version_lines
     REGEX "^#define HIREDIS_(MAJOR|MINOR|PATCH) [0-9]+")
foreach(_part MAJOR MINOR PATCH)
    string(REGEX REPLACE ".*#define HIREDIS_${_part} ([0-9]+).*" "\\1" _hiredis_${_part}
                         "${_hiredis_version_lines}")
endforeach()
set(DOV_VVLAN_HIREDIS_VERSION "${_hiredis_MAJOR}.${_hiredis_MINOR}.${_hiredis_PATCH}")
if(NOT _hiredis_MAJOR MATCHES "^[0-9]+$" OR NOT _hiredis_MINOR MATCHES "^[0-9]+$")
    message(FATAL_ERROR "${HIREDIS_INCLUDE_DIR}/hiredis/hiredis.h does not say its version")
endif()
option(DOV_VVLAN_HIREDIS_UNVERIFIED "Accept a hiredis 1.x minor version that was not verified" OFF)
if(NOT "${_hiredis_MAJOR}.${_hiredis_MINOR}" IN_LIST DOV_VVLAN_HIREDIS_VERIFIED)
    string(REPLACE ";" ", " _verified "${DOV_VVLAN_HIREDIS_VERIFIED}")
    if(_hiredis_MAJOR EQUAL 1 AND DOV_VVLAN_HIREDIS_UNVERIFIED)
        message(WARNING "hiredis ${DOV_VVLAN_HIREDIS_VERSION} was not verified (verified: ${_verified})")
    else()
        message(FATAL_ERROR
            "hiredis ${DOV_VVLAN_HIREDIS_VERSION} (${HIREDIS_INCLUDE_DIR}) is not supported. "
            "Supported: ${_verified}. tools/compat-hiredis builds 1.2 and 1.3; point "
            "CMAKE_PREFIX_PATH at one, or pass -DDOV_VVLAN_HIREDIS_UNVERIFIED=ON to try another 1.x.")
    endif()
endif()

set(DOV_VVLAN_TLS AUTO CACHE STRING "TLS to the server through hiredis_ssl: AUTO, ON or OFF")
set_property(CACHE DOV_VVLAN_TLS PROPERTY STRINGS AUTO ON OFF)
set(DOV_VVLAN_HAVE_TLS OFF)
if(NOT DOV_VVLAN_TLS STREQUAL "OFF" AND _hiredis_MAJOR GREATER_EQUAL 1)
    get_filename_component(_hiredis_libdir "${HIREDIS_LIBRARY}" DIRECTORY)
    find_library(HIREDIS_SSL_LIBRARY NAMES hiredis_ssl HINTS "${_hiredis_libdir}" NO_DEFAULT_PATH)
    find_package(OpenSSL QUIET)
    if(HIREDIS_SSL_LIBRARY AND OPENSSL_FOUND
       AND EXISTS "${HIREDIS_INCLUDE_DIR}/hiredis/hiredis_ssl.h")
        set(DOV_VVLAN_HAVE_TLS ON)
    endif()
endif()
if(DOV_VVLAN_TLS STREQUAL "ON" AND NOT DOV_VVLAN_HAVE_TLS)
    message(FATAL_ERROR "DOV_VVLAN_TLS=ON, but hiredis ${DOV_VVLAN_HIREDIS_VERSION} here has no "
                        "hiredis_ssl or OpenSSL was not found (hiredis 1.0+ built with "
                        "USE_SSL=1, and libssl-dev, are needed)")
endif()
message(STATUS "hiredis ${DOV_VVLAN_HIREDIS_VERSION} (${HIREDIS_LIBRARY}), TLS: ${DOV_VVLAN_HAVE_TLS}")

# Everything that includes a hiredis header links this, so that no target
# compiles against another hiredis (Debian's in /usr/include) than the one
# it links.
add_library(dov_vvlan_hiredis INTERFACE)
target_include_directories(dov_vvlan_hiredis SYSTEM BEFORE INTERFACE ${HIREDIS_INCLUDE_DIR})
target_link_libraries(dov_vvlan_hiredis INTERFACE ${HIREDIS_LIBRARY})
