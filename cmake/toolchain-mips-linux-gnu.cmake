# SPDX-License-Identifier: BSD-3-Clause
# Cross-compiles for the switch: 32-bit big-endian MIPS32r2, Linux, glibc,
# with Debian's mips-linux-gnu toolchain (tools/deps.sh installs it).
#
#   cmake -S . -B build-mips -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mips-linux-gnu.cmake
#
# Target programs run on this machine under qemu-mips, which CTest puts in
# front of every test command.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)

set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
# Big-endian is this toolchain's default; -EB says so, and fails loudly if
# someone swaps in a little-endian compiler.
set(CMAKE_C_FLAGS_INIT "-march=mips32r2 -EB")
set(CMAKE_CXX_FLAGS_INIT "-march=mips32r2 -EB")

# hiredis for the target, from tools/build-hiredis-target.sh.
set(DOV_VVLAN_TARGET_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../.deps/mips-linux-gnu"
    CACHE PATH "Prefix holding usr/include/hiredis and usr/lib/libhiredis.a for the target")
get_filename_component(DOV_VVLAN_TARGET_SYSROOT "${DOV_VVLAN_TARGET_SYSROOT}" ABSOLUTE)

# Libraries and headers come only from the target's root; programs (redis-server,
# the test helpers' tools) are the build machine's.
set(CMAKE_FIND_ROOT_PATH /usr/mips-linux-gnu "${DOV_VVLAN_TARGET_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Link hiredis statically: the archive is position-independent, so it goes
# into the target's shared platform library and the switch needs no
# libhiredis.so. find_library() would prefer the .so sitting next to it.
# Pass -DHIREDIS_LIBRARY=<sysroot>/usr/lib/libhiredis.so to link the shared
# one instead; the build RPATH then lets qemu find it.
if(NOT HIREDIS_LIBRARY AND EXISTS "${DOV_VVLAN_TARGET_SYSROOT}/usr/lib/libhiredis.a")
    set(HIREDIS_LIBRARY "${DOV_VVLAN_TARGET_SYSROOT}/usr/lib/libhiredis.a"
        CACHE FILEPATH "hiredis library for the target" FORCE)
endif()

# -L makes qemu load the target's dynamic loader, libc and libstdc++.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips;-L;/usr/mips-linux-gnu)
