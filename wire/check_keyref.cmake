# SPDX-License-Identifier: BSD-3-Clause
# Runs a generator (the key reference's, the ACL's) and fails when the
# committed file differs from what it writes.
execute_process(COMMAND ${KEYREF} OUTPUT_FILE ${OUT} RESULT_VARIABLE rv)
if(NOT rv EQUAL 0)
    message(FATAL_ERROR "${KEYREF} failed: ${rv}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${COMMITTED} ${OUT} RESULT_VARIABLE differs)
if(differs)
    message(FATAL_ERROR "${COMMITTED} is not what ${KEYREF} writes; regenerate it:\n"
                        "  ${KEYREF} > ${COMMITTED}")
endif()
