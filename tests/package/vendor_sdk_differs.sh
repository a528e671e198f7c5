#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# A vendor build against an SDK whose libsdm.h changes one prototype
# (fake_sdk/libsdm.h, found before the other two headers) fails to compile,
# and the error names the function.
#
#   vendor_sdk_differs.sh <source dir>
. "$(dirname "$0")/lib.sh"
source=$1
here=$(cd "$(dirname "$0")" && pwd)

cmake -S "$source" -B "$SCRATCH/vendor" -DDOV_VVLAN_PLATFORM=vendor \
    -DDOV_VVLAN_VENDOR_INCLUDEDIR="$here/fake_sdk;$source/platform/include" \
    -DDOV_VVLAN_TESTS=OFF -DDOV_VVLAN_BENCH=OFF >"$SCRATCH/configure.log" 2>&1 ||
    fail "configure failed: $(cat "$SCRATCH/configure.log")"
rc=0
cmake --build "$SCRATCH/vendor" --target dov_vvlan_platform_check >"$SCRATCH/build.log" 2>&1 || rc=$?
cat "$SCRATCH/build.log"
[[ $rc != 0 ]] || fail "the daemon's platform check compiled against a differing libsdm.h"
grep -q 'static assertion failed: libsdm_get_ifx_by_phyid: ' "$SCRATCH/build.log" ||
    fail "the build failed, but not naming libsdm_get_ifx_by_phyid"
n=$(grep -c 'static assertion failed' "$SCRATCH/build.log")
[[ $n == 1 ]] || fail "$n assertions failed; only libsdm_get_ifx_by_phyid differs"
echo "the build failed naming libsdm_get_ifx_by_phyid, and nothing else"
