#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# The Debian package of the PC build: dpkg-buildpackage -b -us -uc on a copy
# of the source tree, lintian without a single tag (pedantic and
# experimental included), the expected files (the daemon's user, pid file
# and drop-in example too), a postinst that makes the user before the
# service starts, and the packaged daemon unpacked into a temporary root and
# run against a private redis-server.
# The packaged daemon uses the real /run and /var/tmp paths, so it runs in
# a private mount namespace where both are directories of this test.
#
#   debian_package.sh <source dir> <version>
# Environment: WITH_VVLANCTL=1 when the build has vvlanctl.
. "$(dirname "$0")/lib.sh"
source=$1 version=$2

src=$SCRATCH/src
mkdir -p "$src"
tar --exclude=./out --exclude=./.deps --exclude='./build*' --exclude=./.git \
    --exclude='./obj-*' --exclude=./debian/dov-vvlan --exclude=./debian/.debhelper \
    --exclude=./debian/files --exclude='./debian/*.substvars' --exclude=./debian/debhelper-build-stamp \
    -C "$source" -cf - . | tar -C "$src" -xf -
(cd "$src" && DEB_BUILD_OPTIONS="nocheck parallel=2" dpkg-buildpackage -b -us -uc) \
    >"$SCRATCH/build.log" 2>&1 || fail "dpkg-buildpackage failed: $(tail -40 "$SCRATCH/build.log")"
arch=$(dpkg --print-architecture)
deb=$SCRATCH/dov-vvlan_${version}_$arch.deb
[[ -f $deb ]] || fail "no $deb"
echo "built $(basename "$deb")"
# The nspawn test boots this same package rather than building it again.
if [[ -n ${DOV_VVLAN_DEB_OUT:-} ]]; then
    rm -f "$DOV_VVLAN_DEB_OUT"
    cp "$deb" "$DOV_VVLAN_DEB_OUT"
fi

tags=$(lintian --pedantic --display-info --display-experimental \
    "$SCRATCH/dov-vvlan_${version}_$arch.changes" 2>/dev/null) || fail "lintian failed to run"
[[ -z $tags ]] || fail "lintian tags:"$'\n'"$tags"
echo "lintian: no tags"

expected=(./usr/sbin/dov_vvlan ./usr/lib/dov-vvlan/libtukredis.so ./usr/lib/dov-vvlan/libsdm.so
    ./usr/lib/dov-vvlan/libham_agent.so ./lib/systemd/system/dov_vvlan.service
    ./etc/init.d/dov_vvlan ./etc/default/dov_vvlan ./usr/share/man/man8/dov_vvlan.8.gz
    ./usr/share/doc/dov-vvlan/copyright ./usr/lib/sysusers.d/dov_vvlan.conf
    ./usr/lib/tmpfiles.d/dov_vvlan.conf ./usr/share/doc/dov-vvlan/examples/unix-socket-only.conf)
if [[ ${WITH_VVLANCTL:-0} == 1 ]]; then
    expected+=(./usr/bin/vvlanctl ./usr/share/man/man1/vvlanctl.1.gz
        ./usr/share/bash-completion/completions/vvlanctl)
    for schema in "$source"/vvlanctl/schema/*.schema.json; do
        expected+=("./usr/share/dov_vvlan/schema/$(basename "$schema")")
    done
fi
listing=$(dpkg-deb -c "$deb" | awk '{print $6}')
for f in "${expected[@]}"; do
    grep -qx -- "$f" <<<"$listing" || fail "the package lacks $f"
done
if grep -E '^\./usr/(include|lib/dov-vvlan/(pkgconfig|cmake))' <<<"$listing"; then
    fail "the package carries the platform SDK files"
fi

# The daemon's user is made on configure, before anything starts the
# service, and its pid file then; the unit runs it as that user.
control=$SCRATCH/control
dpkg-deb -e "$deb" "$control"
postinst=$control/postinst
[[ -f $postinst ]] || fail "the package has no postinst"
users=$(grep -n 'systemd-sysusers .*dov_vvlan\.conf' "$postinst" | cut -d: -f1 | head -1)
pidf=$(grep -n 'systemd-tmpfiles .*--create .*dov_vvlan\.conf' "$postinst" | cut -d: -f1 | head -1)
start=$(grep -nE 'invoke-rc\.d|deb-systemd-invoke' "$postinst" | cut -d: -f1 | head -1)
[[ -n $users ]] || fail "the postinst does not make the user (systemd-sysusers dov_vvlan.conf)"
[[ -n $pidf ]] || fail "the postinst does not create the pid file (systemd-tmpfiles dov_vvlan.conf)"
[[ -z $start || $users -lt $start ]] ||
    fail "the postinst starts the service (line $start) before making its user (line $users)"
dpkg-deb -f "$deb" Depends | grep -q 'systemd-sysusers' ||
    fail "the package does not depend on a systemd-sysusers: $(dpkg-deb -f "$deb" Depends)"
echo "postinst: user at line $users, pid file at line $pidf, first start at line ${start:-none}"

root=$SCRATCH/root
dpkg-deb -x "$deb" "$root"
grep -qx 'User=dov_vvlan' "$root/lib/systemd/system/dov_vvlan.service" ||
    fail "the packaged unit does not run the daemon as dov_vvlan"
grep -qx 'ReadWritePaths=/var/run/dov_vvlan.pid' "$root/lib/systemd/system/dov_vvlan.service" ||
    fail "the packaged unit does not leave the daemon its real pid file"
grep -qx 'f /run/dov_vvlan.pid 0644 dov_vvlan dov_vvlan -' "$root/usr/lib/tmpfiles.d/dov_vvlan.conf" ||
    fail "the packaged tmpfiles.d file does not make /run/dov_vvlan.pid for dov_vvlan"
text=$(strings "$root/usr/sbin/dov_vvlan" | grep -E "^dov_vvlan $version( \(.+\))?\$") ||
    fail "no version text in the packaged daemon"
echo "version text: $text"
if [[ -x $root/usr/bin/vvlanctl ]]; then
    [[ $("$root/usr/bin/vvlanctl" --version) == *"$text"* ]] ||
        fail "vvlanctl --version does not print '$text'"
fi

# The packaged daemon uses the real /run and /var/tmp. Where user namespaces
# are allowed it runs in a private mount namespace with both bound to
# directories of this test; otherwise (a container), as root, chrooted in the
# unpacked root with the C and C++ runtime libraries it needs copied in.
if unshare --user --map-root-user --mount true 2>/dev/null; then
    start_redis "$SCRATCH/redis"
    run=$SCRATCH/run
    mkdir -p "$run" "$SCRATCH/var-tmp"
    unshare --user --map-root-user --mount sh -c '
        mount --bind "$1" /run && mount --bind "$2" /var/tmp && shift 2 && exec "$@"' sh \
        "$run" "$SCRATCH/var-tmp" env -i TUKREDIS_SOCKET="$REDIS_SOCK" \
        "$root/usr/sbin/dov_vvlan" >"$SCRATCH/daemon.out" 2>&1 &
elif ((EUID == 0)); then
    ldd "$root/usr/sbin/dov_vvlan" | grep -o '/[^ ]*' | grep -v "^$root/" >"$SCRATCH/runtime" || true
    while read -r lib; do
        mkdir -p "$root$(dirname "$lib")"
        cp -L "$lib" "$root$lib"
    done <"$SCRATCH/runtime"
    mkdir -p "$root/run" "$root/var/tmp"
    ln -sfn /run "$root/var/run"
    start_redis "$root/redis"
    run=$root/run
    chroot=$(PATH=$PATH:/usr/sbin:/sbin command -v chroot) || fail "no chroot"
    # No /proc in there: the loader takes the $ORIGIN of the package's RUNPATH
    # from LD_ORIGIN_PATH instead of /proc/self/exe.
    env -i TUKREDIS_SOCKET=/redis/redis.sock LD_ORIGIN_PATH=/usr/sbin \
        "$chroot" "$root" /usr/sbin/dov_vvlan \
        >"$SCRATCH/daemon.out" 2>&1 &
else
    fail "neither a user namespace nor root: no way to run the packaged daemon off the real paths"
fi
daemon=$!
CLEANUP_PIDS+=($daemon)
expect_serving "packaged daemon"
[[ $(cat "$run/dov_vvlan.pid") == "$daemon" ]] ||
    fail "the packaged daemon's pid file is not in its private /run"
for lib in libtukredis.so libsdm.so libham_agent.so; do
    grep -q " $root/usr/lib/dov-vvlan/$lib\$" "/proc/$daemon/maps" ||
        fail "the packaged daemon did not load its private $lib"
done
echo "packaged daemon serves the bus with its private libraries"

# The packaged tool drives and reads the packaged daemon: a voice VLAN set
# through it is applied (its marker copied), shown and found healthy.
if [[ -x $root/usr/bin/vvlanctl ]]; then
    ctl=("$root/usr/bin/vvlanctl" -s "$REDIS_SOCK")
    "${ctl[@]}" set vid 100 || fail "packaged vvlanctl: set vid 100"
    "${ctl[@]}" sync || fail "packaged vvlanctl: sync (the daemon did not copy the marker)"
    show=$("${ctl[@]}" show --json) || fail "packaged vvlanctl: show --json"
    tr -d ' \n' <<<"$show" | grep -q '"vid":{"configured":100,"applied":100}' ||
        fail "packaged vvlanctl: the daemon's applied VLAN is not shown as 100: $show"
    "${ctl[@]}" check >"$SCRATCH/check.out" ||
        fail "packaged vvlanctl: check found something on a healthy system: $(cat "$SCRATCH/check.out")"
    echo "packaged vvlanctl drives and reads the packaged daemon"
fi
