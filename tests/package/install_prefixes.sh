#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# cmake --install of the PC tree with the prefixes an image or a PC uses
# (/usr, /usr/local, /opt/dov_vvlan, each into a DESTDIR): every file lands
# where the others look for it. The start scripts read their defaults file
# from GNUInstallDirs' configuration directory, which is /etc for /usr and
# /etc/opt/<name> for /opt/<name>, so that is where it must be installed;
# every path the unit and the init script name must exist in the tree.
#
# One scratch tree is configured and built once, without tests; a new prefix
# is only a reconfigure, which rebuilds nothing but the start scripts.
#
#   install_prefixes.sh <source dir> <C++ compiler>
. "$(dirname "$0")/lib.sh"
source=$1 cxx=$2

build=$SCRATCH/build
configure() {
    cmake -S "$source" -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_INSTALL_PREFIX="$1" \
        -DDOV_VVLAN_TESTS=OFF -DDOV_VVLAN_BENCH=OFF >"$SCRATCH/configure.log" 2>&1 ||
        fail "configure with prefix $1: $(tail -20 "$SCRATCH/configure.log")"
    cmake --build "$build" -j"${JOBS:-2}" >"$SCRATCH/build.log" 2>&1 ||
        fail "build with prefix $1: $(grep -E 'error' "$SCRATCH/build.log" | head -20)"
}

# value_of <file> <assignment regex>: the value after the first match, e.g.
# 'ExecStart=' in a unit or '^DAEMON=' in a shell script.
value_of() {
    sed -n "s/$2//p" "$1" | head -1
}

# check_prefix <prefix> <configuration directory expected for it>
check_prefix() {
    local prefix=$1 sysconf=$2
    local root=$SCRATCH/root${prefix//\//_}
    configure "$prefix"
    DESTDIR=$root cmake --install "$build" >"$SCRATCH/install.log" 2>&1 ||
        fail "cmake --install with prefix $prefix: $(cat "$SCRATCH/install.log")"

    # GNUInstallDirs gives Debian's multiarch library directory for /usr.
    local libdir
    libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")
    local f
    for f in "$prefix/sbin/dov_vvlan" "$prefix/bin/vvlanctl" "$prefix/$libdir/libtukredis.so" \
        "$prefix/lib/systemd/system/dov_vvlan.service" \
        "$sysconf/init.d/dov_vvlan" "$sysconf/default/dov_vvlan" \
        "$prefix/share/man/man8/dov_vvlan.8" "$prefix/share/man/man1/vvlanctl.1"; do
        [[ -f $root$f ]] || fail "prefix $prefix: $f is not installed; the tree holds:
$(cd "$root" && find . -type f | sort)"
    done
    [[ -x $root$sysconf/init.d/dov_vvlan ]] || fail "prefix $prefix: the init script is not executable"
    # Nothing may land in a configuration directory the scripts do not read.
    if [[ $sysconf != "$prefix/etc" && -e $root$prefix/etc ]]; then
        fail "prefix $prefix: files under $prefix/etc, which nothing reads: $(find "$root$prefix/etc")"
    fi

    local unit=$root$prefix/lib/systemd/system/dov_vvlan.service
    local init=$root$sysconf/init.d/dov_vvlan
    local named=(
        "$(value_of "$unit" '^ExecStart=')"
        "$(value_of "$unit" '^EnvironmentFile=-\{0,1\}')"
        "$(value_of "$init" '^DAEMON=\$ROOT')"
        "$(value_of "$init" '^DEFAULTS=\$ROOT')"
    )
    for f in "${named[@]}"; do
        [[ $f == /* ]] || fail "prefix $prefix: a start script names '$f', not an absolute path"
        [[ -e $root$f ]] || fail "prefix $prefix: a start script names $f, which is not installed"
    done
    # The installed daemon finds its libraries from where it is.
    local found
    found=$(ldd "$root$prefix/sbin/dov_vvlan" | sed -n 's/.*libtukredis.so => \(.*\) (0x.*/\1/p')
    [[ -n $found && $(realpath "$found") == $(realpath "$root$prefix/$libdir/libtukredis.so") ]] ||
        fail "prefix $prefix: the installed daemon does not find $prefix/$libdir/libtukredis.so:
$(ldd "$root$prefix/sbin/dov_vvlan")"
    echo "prefix $prefix: libraries in $libdir, scripts in $sysconf; the unit and the init script" \
        "name ${named[*]}"
}

check_prefix /usr /etc
check_prefix /usr/local /usr/local/etc
check_prefix /opt/dov_vvlan /etc/opt/dov_vvlan
