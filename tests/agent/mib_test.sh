#!/usr/bin/env bash
# CORVANTA-MIB with the standard modules: clean, and what the SNMP tools make of it is the same with
# those of agent/share/modules, which give way to the others.
#
#     mib_test.sh DIR    where the standard modules are, or are put
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
"$source/agent/share/smi-modules" "$1"
standard=$(realpath -- "$1") ours=$source/agent/share/modules mib=$source/agent/share/CORVANTA-MIB.txt
cd "$work"
SMIPATH=$standard smilint -m -s -l 6 -i namelength-32 "$mib" |& tee lint
[ ! -s lint ] || fail "the MIB is not clean"

# Every object with its number, type, enumeration, range and display, and the tree of them.
mapfile -t names < <(sed -nE 's/^([a-z][A-Za-z0-9]+) +(OBJECT|MODULE|NOTIF).*/CORVANTA-MIB::\1/p' "$mib")
[ ${#names[@]} -gt 50 ] || fail "only ${#names[@]} names"
shown() { # with the directories of modules as snmp.conf names them
    printf '%s\n' 'mibs CORVANTA-MIB' "mibdirs $source/agent/share" "$@" >snmp.conf
    SNMPCONFPATH=$work snmptranslate -Td "${names[@]}" 2>&1
    SNMPCONFPATH=$work snmptranslate -Tp .1.3.6.1.4.1 2>&1
}
shown "mibdirs +$standard" >real
shown "mibdirs -$ours" >own
grep -q 'cvVlanDiscardTag(3)' real || fail "$(head -n 3 real)"
diff real own >&2 || fail "own and standard modules differ"

# A module of the same name that is installed wins.
mkdir installed
sed 's/{ private 1 }/{ private 77 }/' "$ours/SNMPv2-SMI" >installed/SNMPv2-SMI
shown "mibdirs +$work/installed" "mibdirs -$ours" | grep 'private(4) enterprises(77)' >/dev/null || fail "own modules win"
