#!/usr/bin/env bash
# Builds the Debian packages, unpacks them in a throw-away root, looks for what each must have and
# starts the agent from there, on the stand-in device.
#
#     package_test.sh BUILD_DIR VERSION
set -euo pipefail
build=$(realpath -- "$1") version=$2
source=$(dirname -- "$(realpath -- "${BASH_SOURCE[0]}")")/..
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
work=$(mktemp -d)
agent=
trap '[ -z "$agent" ] || kill "$agent"; rm -rf -- "$work"' EXIT
root=$work/root

fail() {
    echo "FAIL: $1" >&2
    exit 1
}

CORVANTA_PACKAGE_BUILD=$build/package "$source/scripts/package"

# Package, section, control files, files. The agent is there where Net-SNMP is.
packages="
libcorvanta1 libs shlibs,triggers /usr/lib/$triplet/libcorvanta.so.1
libcorvanta-dev libdevel md5sums /usr/include/corvanta.h,/usr/include/corvanta/objects/managed_objects.h,/usr/lib/$triplet/libcorvanta.so,/usr/lib/$triplet/pkgconfig/corvanta.pc,/usr/lib/$triplet/cmake/corvanta/corvantaConfig.cmake
corvanta-agent net conffiles,postinst,prerm /usr/sbin/corvantad,/usr/bin/corvanta-set,/usr/lib/systemd/system/corvantad.service,/usr/share/man/man8/corvantad.8.gz,/usr/share/man/man1/corvanta-set.1.gz,/usr/share/snmp/mibs/CORVANTA-MIB.txt,/etc/snmp/snmpd.conf.d/corvanta.conf"
[ -x "$build/agent/corvantad" ] || packages=$(grep -v ^corvanta-agent <<<"$packages")

while read -r name section control files; do
    [ -n "$name" ] || continue
    deb=$(echo "$build/package/${name}_$version-"*.deb)
    [ "$(dpkg-deb -f "$deb" Section)" = "$section" ] || fail "section of $name"
    for file in ${control//,/ }; do
        dpkg-deb -I "$deb" "$file" >"$work/control" || fail "$name has no $file"
        # A configuration file that is listed must be there.
        [ "$file" != conffiles ] || files+=,$(paste -sd, "$work/control")
    done
    dpkg-deb -x "$deb" "$root"
    for file in ${files//,/ } "/usr/share/doc/$name/copyright" "/usr/share/doc/$name/changelog.Debian.gz"; do
        [ -s "$root$file" ] || fail "$name has no $file"
    done
    [ "$name" = libcorvanta1 ] || grep -q "libcorvanta1 (= $version-" <<<"$(dpkg-deb -f "$deb" Depends)" ||
        fail "$name does not depend on its library"
done <<<"$packages"
grep -qi "licence.*owner's to choose" "$root/usr/share/doc/libcorvanta1/copyright" || fail "licence"
[ -x "$root/usr/sbin/corvantad" ] || exit 0

daemon=$root/usr/sbin/corvantad
export LD_LIBRARY_PATH=$root/usr/lib/$triplet
for file in "$daemon" "$LD_LIBRARY_PATH/libcorvanta.so.1"; do
    ! readelf -SW "$file" | grep -E '\.symtab|\.debug' || fail "$file is not stripped"
    ! readelf -dW "$file" | grep -E 'RPATH|RUNPATH' || fail "$file looks for libraries by itself"
done
ldd "$daemon" | grep -F "libcorvanta.so.1 => $root/" || fail "library not found in the root"
[ "$("$daemon" --version)" = "corvantad $version" ] || fail "version"

# It reports that it has started, and ends well when it is told to.
CORVANTA_BUILD=$build "$source/scripts/on-device" "$work/device" "$daemon" --foreground \
    --state "$work/state" --master "unix:$work/agent" 2>"$work/log" &
agent=$!
# shellcheck disable=SC2016 # the inner shell's
timeout 30 sh -c 'until grep "started$" "$0"; do sleep 0.1; done' "$work/log" || fail "no start"
kill "$agent"
wait "$agent" || fail "the agent ended with $?"
agent=
