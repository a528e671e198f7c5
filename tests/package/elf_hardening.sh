#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The installed daemon, tool and platform libraries of each tree named (the
# PC's, the target's) carry every protection the build promises, read from
# their ELF headers as a distribution's checker reads them:
#
#   PIE         programs are position-independent (type DYN)
#   RELRO       a GNU_RELRO segment
#   BIND_NOW    relocations bound at start (BIND_NOW or FLAGS NOW)
#   NX stack    GNU_STACK without the execute flag
#   canary      the stack protector's __stack_chk_fail is called
#   FORTIFY     glibc's checked functions (__*_chk) are called
#
# A table of what was found is printed; any missing protection fails.
#
#   elf_hardening.sh <readelf> <build dir>...
. "$(dirname "$0")/lib.sh"
readelf=$1
shift

problems=0
n=0
printf '%-44s %-4s %-5s %-8s %-8s %-6s %-7s\n' file PIE RELRO BIND_NOW NX-stack canary FORTIFY
for build in "$@"; do
    root=$SCRATCH/root$((++n))
    DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" 2>&1 ||
        fail "cmake --install $build: $(cat "$SCRATCH/install.log")"
    prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
    top=$root$prefix
    files=("$top/sbin/dov_vvlan" "$top/lib/libtukredis.so" "$top/lib/libsdm.so"
        "$top/lib/libham_agent.so")
    [[ -f $top/bin/vvlanctl ]] && files+=("$top/bin/vvlanctl")
    for f in "${files[@]}"; do
        [[ -f $f ]] || fail "not installed: $f"
        header=$("$readelf" -h "$f")
        segments=$("$readelf" -lW "$f")
        dynamic=$("$readelf" -dW "$f")
        symbols=$("$readelf" --dyn-syms -W "$f")
        yes() { if "$@" >/dev/null; then echo yes; else echo NO; fi; }
        pie=$(yes grep -E 'Type: +DYN' <<<"$header")
        relro=$(yes grep -E '^ +GNU_RELRO' <<<"$segments")
        now=$(yes grep -E '\(BIND_NOW\)|\(FLAGS(_1)?\).*NOW' <<<"$dynamic")
        nx=$(yes grep -E '^ +GNU_STACK .* RW +0x' <<<"$segments")
        canary=$(yes grep -E ' __stack_chk_fail(@|$)' <<<"$symbols")
        fortify=$(yes grep -E ' __[a-z]+_chk(@|$)' <<<"$symbols")
        # Every library keeps a canary; a library may well call no string
        # function that glibc checks, so FORTIFY is asked of the programs.
        [[ $f == *.so ]] && [[ $fortify == NO ]] && fortify=n/a
        label=${build##*/}/${f#"$top"/}
        printf '%-44s %-4s %-5s %-8s %-8s %-6s %-7s\n' "$label" "$pie" "$relro" "$now" "$nx" \
            "$canary" "$fortify"
        if [[ "$pie $relro $now $nx $canary $fortify" == *NO* ]]; then
            problems=$((problems + 1))
        fi
    done
done
((problems == 0)) || fail "$problems file(s) lack a protection (NO above)"
echo "every file carries every protection"
