#!/usr/bin/env bash
# The files of monitoring/ with the programs that use them.
#
#     monitoring_test.sh generator|rules|rules_needed|routes|credentials|notifications SMI_DIR [BUILD_DIR]
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
smi=$(realpath -m -- "$2") build=$(realpath -m -- "${3-.}")
monitoring=$source/monitoring mib=$source/agent/share/CORVANTA-MIB.txt
cd "$work"

generator() {
    local name
    "$source/scripts/derive" --check snmp zabbix
    # Every object that can be read is named, be it as one that is ignored.
    while read -r name; do
        grep -qw "$name" "$monitoring"/{generator,snmp}.yml || fail "not known: $name"
    done < <(awk '/^cv.* OBJECT-TYPE/ { name = $1 } /MAX-ACCESS *read-/ { print name }' "$mib")
    # A new scalar, and a new column of a table.
    for place in 'corvantaDsl 9' 'cvVlanEntry 9'; do
        { sed '/^END/d' "$mib" && printf '%s\n' 'cvPlanted OBJECT-TYPE' '    SYNTAX Integer32' '    MAX-ACCESS read-only' \
            '    STATUS current' '    DESCRIPTION ""' "    ::= { $place }" END; } >planted
        ! CORVANTA_MIB=$work/planted "$source/scripts/derive" --check snmp >said || fail "a new object in $place goes unseen"
        [[ $(<said) == *cvPlanted*'run scripts/derive'* ]] || fail "a new object in $place: $(cat said)"
    done
}

rules() {
    local what
    cp -r "$monitoring"/{rules,prometheus{,-above}.yml} "$source"/tests/monitoring/{rules,troubles,shards,flapping,week}.yml .
    promtool check config prometheus.yml prometheus-above.yml
    promtool test rules {rules,troubles,shards,flapping,week}.yml
    for what in alert summary action; do grep -c " $what:" rules/corvanta-alerts.yml; done | uniq | wc -l | grep -qx 1 ||
        fail "an alert does not say what to do"
}

# Each of the rules is needed by a test; the quickest comes first.
rules_needed() {
    local name
    cp -r "$monitoring"/rules "$source"/tests/monitoring/{rules,troubles,shards,flapping,week}.yml .
    while read -r name; do
        cp "$monitoring"/rules/* rules
        sed -i -E "s/(alert|record): $name\$/\1: other/" rules/*.yml
        for test in {rules,troubles,shards,flapping,week}.yml; do
            promtool test rules "$test" >/dev/null 2>&1 || continue 2
        done
        fail "no test of $name"
    done < <(sed -n 's/^ *- \(alert\|record\): //p' rules/*.yml | sort -u)
}

# Who is told of each alert, whatever Alertmanager is told about it besides.
routes() {
    local name severity receiver
    amtool check-config "$monitoring/alertmanager.yml"
    while read -r name severity; do
        case $severity in critical) receiver=now ;; warning) receiver=today ;; *) receiver=nobody ;; esac
        amtool config routes test --config.file "$monitoring/alertmanager.yml" --verify.receivers=$receiver \
            alertname="$name" severity="$severity" router=north-1 || fail "$name goes to somebody else"
    done < <(sed -n 's/^ *- alert: //p; s/^ *labels: {severity: \([a-z]*\).*/\1/p' "$monitoring/rules/corvanta-alerts.yml" | paste - -)
    # What is kept back must have its cause among the alerts.
    while read -r name; do
        grep -q "alert: $name\$" "$monitoring/rules/corvanta-alerts.yml" || fail "no alert $name"
        grep -q "symptom_of = $name\]" "$monitoring/alertmanager.yml" || fail "$name keeps nothing back"
    done < <(sed -n 's/.*symptom_of: \([A-Za-z]*\)}/\1/p' "$monitoring/rules/corvanta-alerts.yml")
}

credentials() {
    local said
    cp "$monitoring/credentials.example.yml" mine.yml
    chmod 644 mine.yml
    ! said=$("$monitoring/with-auth" mine.yml out.yml 2>&1) || fail "credentials that others read are taken"
    chmod 640 mine.yml
    "$monitoring/with-auth" mine.yml out.yml
    [ "$(stat -c %a out.yml)" = 600 ] || fail "others can read the joined file"
    grep -q "AUTHENTICATION PASS" out.yml || fail "the joined file has no credentials"
    sed -i 's/priv_password:.*/priv_password: [sesame]/' mine.yml
    ! said=$("$monitoring/with-auth" mine.yml out.yml 2>&1) || fail "a list is taken for a passphrase"
    [[ $said == *"line 17"* && $said != *sesame* ]] || fail "the message: $said"
    grep -q "PRIVACY PASS" out.yml || fail "the last good file is gone"
}

# The agent's informs and those that it does not send yet, with and without the MIB's names.
notifications() {
    local port said=0
    port=$(perl -MIO::Socket::INET -e 'print IO::Socket::INET->new(Proto => "udp", LocalAddr => "127.0.0.1")->sockport')
    user corvantaNotifier
    mkdir counted
    sed "s|/usr/share/corvanta-monitoring|$monitoring|; s|/var/lib/.*|$work/counted $work/log|" "$monitoring/snmptrapd-corvanta.conf" >trapd.conf
    grep createUser agent.conf >>trapd.conf
    echo "trapsess -Ci -t 60 -v3 -l authPriv -u corvantaNotifier -a SHA -A $secret -x AES -X $secret 127.0.0.1:$port" >>agent.conf
    export CORVANTA_BUILD=$build MIBDIRS=$smi:$source/agent/share
    "$source/scripts/on-device" device true
    told() { [ -e log ] && [ "$(wc -l <log)" -gt "$said" ]; }
    refreshed() { snmpget -r 0 -Oqv "unix:$work/agent" "$root.1.1.1.0" 2>/dev/null | grep -q '^[1-9]'; }
    for MIBS in '' CORVANTA-MIB; do
        SNMP_PERSISTENT_DIR=$work/trapd snmptrapd -f -Le -C -c trapd.conf "udp:127.0.0.1:$port" &
        started=($!)
        if [ -z "$MIBS" ]; then
            "$source/scripts/on-device" device "$build/agent/corvantad" -f -n -i 1 -m "unix:$work/agent" -c agent.conf -s state &
            started+=($!)
            soon refreshed
            sed -i '/^ *0 *8 /d' device/pvc
        else
            sleep 1
            for reason in 1 4; do
                snmpinform -t 180 -r 0 "127.0.0.1:$port" '' "$root.0.3" "$root.1.8.5.0" i $reason || fail "an inform is not acknowledged"
            done
        fi
        soon told
        said=$(wc -l <log)
        stop
    done
    cat log
    sed 's/^[-0-9]* [:0-9]* //; s/: .*(.*): /: /' log | diff - <(printf '%s\n' 'warning: circuit VC8 is down' \
        'warning: a change was taken back: nobody confirmed it in time' 'warning: a change was taken back: a further request failed')
    # Many at once, of a name that would end a label.
    for _ in {1..20}; do
        printf '%s\n' h 'UDP: [192.0.2.1]:161' '.1.3.6.1.6.3.1.1.4.1.0 x.2' 'x.1.1.4.1.2.1 "V"C}1' | "$monitoring/log-notification" --count counted log &
    done
    for series in 'kind="cvCircuitDown",interface="VC1"} 20' 'kind="cvCircuitDown",interface="VC8"} 1' 'kind="cvChangeReverted",interface=""} 2'; do
        soon grep -q "_total.*$series\$" counted/notifications.prom
    done
    promtool check metrics <counted/notifications.prom
}
root=.1.3.6.1.4.1.$(sed -n 's/.*enterprises.*(\([0-9]*\)).*/\1/p' "$mib").1
"$1"
