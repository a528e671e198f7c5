# SPDX-License-Identifier: BSD-3-Clause
# Runs the key reference generator and fails when docs/keys.md differs.
execute_process(COMMAND ${KEYREF} OUTPUT_FILE ${OUT} RESULT_VARIABLE rv)
if(NOT rv EQUAL 0)
    message(FATAL_ERROR "dov_vvlan_keyref failed: ${rv}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${COMMITTED} ${OUT} RESULT_VARIABLE differs)
if(differs)
    message(FATAL_ERROR "docs/keys.md is not what dov_vvlan_keyref writes; regenerate it:\n"
                        "  ${KEYREF} > ${COMMITTED}")
endif()
