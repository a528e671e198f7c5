#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Cross-builds hiredis for the switch (MIPS32r2, big-endian) from Debian's own
# source package, with Debian's patches, so the target links the same hiredis
# as the host build does.
#
#   tools/build-hiredis-target.sh [<sysroot-dir>]   default: <repo>/.deps/mips-linux-gnu
#
# Installs <sysroot>/usr/include/hiredis and <sysroot>/usr/lib/libhiredis.{a,so}.
# Does nothing when that copy was built from the source version apt offers.
set -euo pipefail
trap 'echo "build-hiredis-target.sh: failed at line $LINENO" >&2' ERR

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
sysroot=${1:-$repo/.deps/mips-linux-gnu}
mkdir -p "$sysroot/usr/lib"
sysroot=$(cd "$sysroot" && pwd)
scratch=$repo/.deps/src/hiredis
stamp=$sysroot/usr/lib/libhiredis.source-version
cross=mips-linux-gnu
# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")

log=$(mktemp)
trap 'rm -f "$log"' EXIT
die() { echo "build-hiredis-target.sh: $*" >&2; exit 1; }
# Runs a command with its output kept back unless it fails.
quiet() { "$@" >"$log" 2>&1 || { cat "$log" >&2; die "failed: $*"; }; }
as_root() {
    if ((EUID == 0)); then "$@"
    elif command -v sudo >/dev/null; then sudo "$@"
    else die "needs root (or sudo) for: $*"
    fi
}

for tool in "$cross-gcc" dpkg-source; do
    command -v "$tool" >/dev/null || die "$tool not found; run tools/deps.sh --no-target first"
done
# Output is captured before grep -q sees it: piped, the writer now and then
# dies of SIGPIPE when grep quits early, and pipefail turns that into failure.
macros=$("$cross-gcc" -dM -E - </dev/null)
grep -q '__MIPSEB__' <<<"$macros" || die "$cross-gcc does not build big-endian code"

# The version apt-get source would fetch; empty when apt knows no source.
source_version() {
    local uris
    uris=$(apt-get source --print-uris -qq hiredis 2>/dev/null) || return 0
    sed -n 's/^[^ ]* hiredis_\(.*\)\.dsc .*/\1/p' <<<"$uris"
}
version=$(source_version)
if [[ -z $version ]]; then
    # apt-get source needs a deb-src line for the release's main component.
    # Mirror the machine's own Debian sources (same mirror and key) if none.
    # shellcheck disable=SC2016 # apt's own $(FIELD) placeholders
    targets=$(apt-get indextargets --no-release-info --format '$(TARGET_OF) $(RELEASE) $(COMPONENT)')
    if ! grep -qx "deb-src $codename main" <<<"$targets"; then
        if [[ -r /etc/apt/sources.list.d/debian.sources ]]; then
            entry=$(sed -e '/^#/d' -e 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources)
        else
            entry="Types: deb-src
URIs: http://deb.debian.org/debian
Suites: $codename $codename-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg"
        fi
        printf '# Source packages, for tools/build-hiredis-target.sh.\n%s\n' "$entry" |
            as_root tee /etc/apt/sources.list.d/dov-vvlan-src.sources >/dev/null
    fi
    quiet as_root apt-get -q update
    version=$(source_version)
    [[ -n $version ]] || die "apt offers no source package for hiredis"
fi
host_version=$(dpkg-query -W -f='${source:Version}' libhiredis-dev 2>/dev/null || true)
if [[ -n $host_version && ${host_version#*:} != "$version" ]]; then
    echo "build-hiredis-target.sh: warning: host libhiredis-dev is $host_version," \
         "target gets $version" >&2
fi

if [[ -f $sysroot/usr/lib/libhiredis.a && $(cat "$stamp" 2>/dev/null) == "$version" ]]; then
    echo "hiredis $version for $cross is up to date in $sysroot"
    exit 0
fi

rm -rf "$scratch"
mkdir -p "$scratch"
# apt downloads as the unprivileged _apt user when it can write the directory,
# and warns (then downloads as root) when it cannot.
if ((EUID == 0)) && id _apt >/dev/null 2>&1; then chown _apt "$scratch"; fi
(cd "$scratch" && quiet apt-get -q source "hiredis=$version")
src=$(find "$scratch" -mindepth 1 -maxdepth 1 -type d -name 'hiredis-*')

# hiredis's Makefile compiles with -fPIC, so the archive can be linked into
# the target's shared platform library. Its archive rule calls the host's ar.
make_vars=(
    CC="$cross-gcc" STLIB_MAKE_CMD="$cross-ar rcs libhiredis.a"
    OPTIMIZATION=-O2 CFLAGS=-march=mips32r2 DEBUG_FLAGS=-g
    PREFIX="$sysroot/usr" LIBRARY_PATH=lib
)
quiet make -C "$src" -j2 "${make_vars[@]}" dynamic static
flags=$("$cross-readelf" -h "$src/libhiredis.a" | grep 'Flags:')
if grep -qv ' pic,' <<<"$flags"; then
    die "libhiredis.a has code that is not position-independent"
fi

rm -rf "$sysroot/usr/include/hiredis" "$sysroot/usr/lib/cmake/Hiredis" \
       "$sysroot"/usr/lib/libhiredis.* "$sysroot/usr/lib/pkgconfig/hiredis.pc"
quiet make -C "$src" "${make_vars[@]}" install
echo "$version" >"$stamp"

echo "hiredis $version (Debian source, $cross, mips32r2) installed in $sysroot:"
echo "  headers   $sysroot/usr/include/hiredis"
echo "  libraries $sysroot/usr/lib/libhiredis.a, libhiredis.so"
