# SPDX-License-Identifier: BSD-3-Clause
# Fails when a source file of the project does not carry the licence's SPDX
# identifier in its first three lines: C and C++ sources and headers, CMake
# files, shell scripts and manual pages. Run with -DROOT=<source dir>.
set(tag "SPDX-License-Identifier: BSD-3-Clause")
# The project's own folders only: build trees and fetched sources are not ours.
set(candidates CMakeLists.txt .ci/run)
foreach(dir src wire platform tests bench fuzz vvlanctl version packaging cmake)
    file(GLOB_RECURSE found RELATIVE ${ROOT}
         ${ROOT}/${dir}/*.cpp ${ROOT}/${dir}/*.h ${ROOT}/${dir}/*.c ${ROOT}/${dir}/*.cmake
         ${ROOT}/${dir}/*.cmake.in ${ROOT}/${dir}/*.pc.in ${ROOT}/${dir}/CMakeLists.txt
         ${ROOT}/${dir}/*.sh)
    list(APPEND candidates ${found})
endforeach()
file(GLOB tools RELATIVE ${ROOT} ${ROOT}/tools/* ${ROOT}/man/*.1 ${ROOT}/man/*.8)
list(APPEND candidates ${tools})
set(missing "")
set(checked 0)
foreach(f IN LISTS candidates)
    if(f MATCHES "(^|/)README")
        continue()
    endif()
    math(EXPR checked "${checked} + 1")
    file(STRINGS ${ROOT}/${f} head LIMIT_COUNT 3)
    string(FIND "${head}" "${tag}" at)
    if(at EQUAL -1)
        list(APPEND missing ${f})
    endif()
endforeach()
if(missing)
    list(JOIN missing "\n  " text)
    message(FATAL_ERROR "no \"${tag}\" in the first lines of:\n  ${text}")
endif()
message(STATUS "${checked} files carry the SPDX identifier")
