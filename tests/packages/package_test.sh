#!/usr/bin/env bash
# Builds the Debian packages and leads them through their life in a throw-away root: installed and
# purged, then 1.0.0 upgraded, debian/tests run on what is there, removed, purged.
#
#     package_test.sh BUILD_DIR VERSION
[ "$(id -u)" -eq 0 ] || exec fakeroot -- "$0" "$@"
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
build=$(realpath -- "$1") version=$2
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
root=$work/root conffile=$work/root/etc/snmp/snmpd.conf.d/corvanta.conf state=$work/root/var/lib/corvanta

CORVANTA_PACKAGE_BUILD=$build/package "$source/scripts/package"
mapfile -t debs < <(find "$build/package" -maxdepth 1 -name "*_$version-*.deb" ! -name '*-dbgsym_*')
names=("${debs[@]##*/}")
names=("${names[@]%%_*}")

# Each function of the public header has a man page. The other names are variables.
mapfile -t functions < <("$source/scripts/abi" names "$source/debian/libcorvanta1.symbols" |
    grep -v '::' | grep -vxE 'CORVANTA_1|debug_level|m_bVerbose|m_iLogHandle|mgmt_o' |
    sed -E 's/(\[.*|\(.*)//; s|^|usr/share/man/man3/|' | sort -u)

# A root of merged folders where the packages of this machine answer for dependencies.
db=$root/var/lib/dpkg
mkdir -p "$db/info" "$root/usr/lib" "$root/etc"
ln -s usr/lib "$root/lib"
awk -v RS= -v ORS='\n\n' '!/^Package: (lib)?corvanta/' /var/lib/dpkg/status >"$db/status"
find /var/lib/dpkg/info -name '*.list' ! -name '*corvanta*' -exec cp -t "$db/info" {} +
cp /var/lib/dpkg/info/format "$db/info"
in_root() {
    dpkg --root="$root" --log="$work/dpkg.log" --force-script-chrootless --force-confold "$@" || fail "dpkg $*"
}

# Everything is there, and the state folder is the agent's alone, with what was in it.
installed() {
    local file user
    for file in "${names[@]/#/usr/share/doc/}" etc/snmp/snmpd.conf.d/corvanta.conf \
        usr/include/corvanta{.h,/objects/managed_objects.h} usr/share/doc/libcorvanta-doc/html/index.html \
        "${functions[@]/%/.3.gz}" usr/{bin/on-device,share/man/man1/on-device.1.gz} \
        usr/lib/"$triplet"/{libcorvanta.so.1,libcorvanta.so,pkgconfig/corvanta.pc,cmake/corvanta/corvantaConfig.cmake} \
        usr/lib/systemd/system/corvantad.service usr/sbin/corvantad usr/bin/corvanta-set \
        usr/share/{man/man8/corvantad.8.gz,man/man1/corvanta-set.1.gz,snmp/mibs/CORVANTA-MIB.txt,corvanta/mibs/SNMPv2-SMI} \
        usr/share/bash-completion/completions/corvanta-set \
        usr/share/corvanta-monitoring/{snmp.yml,snmptrapd-corvanta.conf} usr/share/doc/corvanta-agent/NEWS.Debian.gz; do
        [ -e "$root/$file" ] || fail "no /$file"
    done
    user=$(sed -n 's/^corvanta:[^:]*:\([0-9]*\):.*/\1/p' "$root/etc/passwd")
    [ "$(stat -c '%a %u' "$state")" = "700 ${user:-none}" ] || fail "the state folder is not the user's"
    [ -z "$(find "$state" ! -uid "$user")" ] || fail "the state is not the user's"
    [ ! -e "$root/etc/systemd/system/multi-user.target.wants" ] || fail "the agent is enabled"
}
purged() {
    local left
    in_root --purge "${names[@]}"
    left=$(find "$root" -path "$db" -prune -o -iname '*corvanta*' -print)
    [ -z "$left" ] || fail "left behind: $left"
}

in_root --install "${debs[@]}"
installed
grep -q 'libcorvanta1 (>= 1\.1\.0)' <<<"$(dpkg-query --admindir="$db" -f '${Depends}' -W corvanta-agent)" ||
    fail "the agent doesn't depend on a library that has all it calls"
purged

# As 1.0.0 was packaged, its unit elsewhere; then used for a while.
old=$work/old
install -D /dev/null "$old/usr/lib/systemd/system/corvantad.service"
install -D /dev/null "$old/etc/snmp/snmpd.conf.d/corvanta.conf"
mkdir -p "$old/DEBIAN"
echo /etc/snmp/snmpd.conf.d/corvanta.conf >"$old/DEBIAN/conffiles"
printf '%s\n' 'Package: corvanta-agent' 'Version: 1.0.0-1' "Architecture: $(dpkg --print-architecture)" \
    'Maintainer: none' 'Description: none' >"$old/DEBIAN/control"
dpkg-deb --build "$old" "$old.deb" >/dev/null
in_root --install "$old.deb"
echo '# mine' >"$conffile"
install -D -m 600 /dev/null "$state/snmpd.conf"
in_root --install "${debs[@]}"
installed
grep -qx '# mine' "$conffile" || fail "the upgrade took the configuration file"
[ -e "$state/snmpd.conf" ] || fail "the upgrade took the state"

daemon=$root/usr/sbin/corvantad libraries=$root/usr/lib/$triplet
export LD_LIBRARY_PATH=$libraries${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
ldd "$daemon" | grep -F "libcorvanta.so.1 => $root/" || fail "library not found in the root"
[ "$("$daemon" --version)" = "corvantad $version" ] || fail "version"
# Not under fakeroot, which would ask for system calls that the agent refuses itself.
CORVANTA_ROOT=$root PKG_CONFIG_PATH=$libraries/pkgconfig env -u LD_PRELOAD "$source/debian/tests/standin"

in_root --remove "${names[@]}"
[ ! -e "$daemon" ] || fail "the agent is still there"
for file in "$conffile" "$state/snmpd.conf"; do
    [ -e "$file" ] || fail "removal took $file"
done
purged
