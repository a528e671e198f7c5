#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Installs what building and testing dov_vvlan needs on Debian bookworm, then
# builds hiredis for the MIPS target (tools/build-hiredis-target.sh).
#
#   tools/deps.sh              host packages and the target sysroot (default)
#   tools/deps.sh --target     the same, spelled out
#   tools/deps.sh --no-target  the packages only, no target sysroot
#
# Safe to run again: when every package is installed it does not touch apt,
# and the target sysroot is rebuilt only when Debian's hiredis source changed.
set -euo pipefail
trap 'echo "deps.sh: failed at line $LINENO" >&2' ERR

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

target=1
for arg in "$@"; do
    case $arg in
        --target) target=1 ;;
        --no-target) target=0 ;;
        *) echo "usage: $0 [--target|--no-target]" >&2; exit 2 ;;
    esac
done

packages=(
    # host build and tests
    cmake g++ g++-12 make pkg-config file
    libhiredis-dev redis-server
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    clang-format valgrind
    # the documentation check (tests/docs); vvlanctl's JSON against its
    # schema, its metrics against promtool, its completion and vendor names
    python3 python3-jsonschema prometheus bash-completion ieee-data
    # TLS: hiredis_ssl of the hiredis 1.x trees, and the test certificates
    libssl-dev openssl
    # the bus benchmark's plot (bench/bus)
    gnuplot-nox
    # the handler fuzzer (tools/fuzz): clang with its libFuzzer runtime
    clang libclang-rt-14-dev
    # target build: MIPS32r2 big-endian toolchain, its libc/libstdc++, and
    # qemu to run the target's tests on this machine
    g++-mips-linux-gnu binutils-mips-linux-gnu qemu-user
    # apt-get source, for hiredis built from Debian's own source
    dpkg-dev
    # package tests (ctest -L package): the Debian package and lintian, the
    # init script under BusyBox, systemd-analyze, groff for the manual pages,
    # redis-cli
    build-essential debhelper fakeroot lintian busybox systemd groff-base redis-tools
    # the Debian package under a real systemd (ctest -L nspawn): a bookworm
    # root made once, booted in a container
    debootstrap systemd-container
)

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$p" 2>/dev/null || true)
    [[ $status == ii* ]] || missing+=("$p")
done

if ((${#missing[@]})); then
    sudo=()
    if ((EUID != 0)); then
        if command -v sudo >/dev/null; then
            sudo=(sudo)
        else
            echo "deps.sh: not root and no sudo; as root, run:" >&2
            echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
            exit 1
        fi
    fi

    log=$(mktemp)
    policy=/usr/sbin/policy-rc.d
    cleanup() {
        rm -f "$log"
        if [[ -n ${made_policy:-} ]]; then "${sudo[@]}" rm -f "$policy"; fi
    }
    trap cleanup EXIT
    # redis-server's maintainer scripts start the system service. Tests run
    # private servers and many machines (containers, chroots) have no init to
    # start it with, so forbid service starts while installing.
    if [[ ! -e $policy ]]; then
        printf '#!/bin/sh\nexit 101\n' | "${sudo[@]}" tee "$policy" >/dev/null
        "${sudo[@]}" chmod 755 "$policy"
        made_policy=1
    fi

    apt_get() {
        if ! "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300 "$@" >"$log" 2>&1; then
            cat "$log" >&2
            echo "deps.sh: apt-get $* failed" >&2
            exit 1
        fi
    }
    apt_get update
    apt_get install --no-install-recommends "${missing[@]}"
fi

if ((target)); then
    "$here/build-hiredis-target.sh" >/dev/null
fi
