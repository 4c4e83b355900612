#!/bin/sh
# The report of the layer-2 interfaces as a shell script: the library's client runs, in its order.
set -eu
open=' '
while read -r _ vpi _; do open="$open$vpi "; done </proc/net/atm/pvc
report=
row=0
rows=$(quorlet "size Atm;")
while [ "$row" -lt "$rows" ]; do
    rows=$(quorlet "size Atm;")
    line=$(quorlet "selectrow Atm $row;")
    rest=${line#*|*|}
    vpi=${rest%%|*}
    case $open in *" $vpi "*) state=1 ;; *) state=2 ;; esac
    report="$report|VC$vpi=$state"
    case $vpi in
    1 | 2) report="$report|PPPoE$vpi=$state" ;;
    3) report="$report|DHCP$vpi=$state" ;;
    esac
    row=$((row + 1))
done
echo "${report#|}"
