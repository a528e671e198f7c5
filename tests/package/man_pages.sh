#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Every manual page under man/ formats without a single warning
# (groff -man -ww -z), and there is at least dov_vvlan(8).
#
#   man_pages.sh <man dir>
. "$(dirname "$0")/lib.sh"
dir=$1
[[ -f $dir/dov_vvlan.8 ]] || fail "no dov_vvlan.8 in $dir"
n=0
for page in "$dir"/*.[1-9]; do
    out=$(groff -man -ww -z "$page" 2>&1) || fail "$page: groff failed: $out"
    [[ -z $out ]] || fail "$page: groff warns:"$'\n'"$out"
    n=$((n + 1))
done
echo "$n pages clean"
