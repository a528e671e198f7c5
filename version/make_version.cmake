# SPDX-License-Identifier: BSD-3-Clause
# Writes the version source file at build time, so the commit in it is the
# one being built, not the one of the last configure. The file is rewritten
# only when its text changes, so an unchanged tree relinks nothing.
#
#   cmake -DSOURCE_DIR=<tree> -DVERSION=<x.y.z> -DTEMPLATE=<in> -DOUTPUT=<cpp> -P make_version.cmake
set(describe "")
find_program(GIT_BIN git)
if(GIT_BIN AND EXISTS "${SOURCE_DIR}/.git")
    # Tags are vX.Y.Z; without one, describe gives the bare abbreviated
    # commit, which is written "g<hash>" as describe itself does after a tag.
    execute_process(
        COMMAND ${GIT_BIN} describe --tags --always --dirty --abbrev=7 --match "v[0-9]*"
        WORKING_DIRECTORY "${SOURCE_DIR}"
        OUTPUT_VARIABLE describe OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE rc ERROR_QUIET)
    if(NOT rc EQUAL 0)
        set(describe "")
    elseif(describe MATCHES "^[0-9a-f]+(-dirty)?$")
        set(describe "g${describe}")
    endif()
endif()
if(describe STREQUAL "")
    set(DOV_VVLAN_VERSION_TEXT "dov_vvlan ${VERSION}")
else()
    set(DOV_VVLAN_VERSION_TEXT "dov_vvlan ${VERSION} (${describe})")
endif()
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
