#!/usr/bin/env bash
# corvanta-set against the agent on the stand-in device: what it makes of a change, and its exit status.
#
#     corvanta_set_test.sh BUILD_DIR [CHANGES]    how many changes over a link that loses packets; 3
# shellcheck disable=SC2030,SC2031,SC2317 # a subshell has its own source; called later
# shellcheck source=../lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/../lib.sh"
build=$(realpath -- "$1") changes=${2-3}
cd "$work"
mkfifo keys
exec 3<>keys
user operator
# The relay has to know one request from another.
sed -i 's/priv/auth/; p; s/operator/reader/; s/rwuser/rouser/' agent.conf
sed -i 's/authPriv/authNoPriv/' snmp.conf
mkdir reader
sed 's/operator/reader/' snmp.conf >reader/snmp.conf
export MIBDIRS=$source/agent/share/modules:$source/agent/share CORVANTA_BUILD=$build PATH=$build/agent:$PATH
put() { snmpset -t 60 -r 0 unix:agent "$@" >/dev/null; }
look() { snmpget -t 60 -Oqv unix:agent cvDefaultWanInterface.0 cvChangeState.0 2>/dev/null | xargs; }
lose() { echo "$*" >lose; }
press() { printf %b "$1" >&3; }
start() {
    "$source/scripts/on-device" device "$build/agent/corvantad" --foreground --master "unix:agent,udp:127.0.0.1:$port" \
        --config agent.conf --state "$work/state" --interval 60 --set-deadline 55 2>>log &
    agent=$!
    started=("$relay" "$agent")
    soon look >/dev/null
}

# Runs it on a terminal, over the relay. When it asks, something happens. Compares the exit status,
# the default WAN interface and the state of changes where that isn't idle. No trial ends unless it has to.
failed=0
wrong() {
    echo "$1" && cat out
    failed=1
}
check() { # status, what is there then, what happens, arguments
    local status=0 command seen
    printf -v command '%q ' corvanta-set --wait 60 --time 3600 "${@:4}"
    : >out # nothing of the one before
    SHELL=/bin/bash script -qefc "$command" /dev/null <keys >out &
    terminal=$!
    until grep -q '\[y/N\]' out || ! kill -0 $terminal 2>/dev/null; do sleep 0.1; done
    eval "$3"
    wait $terminal || status=$?
    look >seen || { wait "$agent" || start; look >seen; }
    seen="$status $(cat seen)"
    [ ! -e lose ] || seen+=" with nothing lost"
    [ "${seen% idle}" = "$1 $2" ] || wrong "$seen instead of $1 $2: $command"
}
dead() { echo kill -9 "$agent" "$(ps -o pid= --ppid "$agent" | xargs)"; } # its processes too: they could answer yet
counted() { (($(grep -o '[0-9]* s left' out | sort -u | wc -l) > 1)); }
says() { tr -d '\r' <out | grep -qE "$1" || wrong "it doesn't say '$1'"; }

port=$(perl -MIO::Socket::INET -e 'print IO::Socket::INET->new(Proto => "udp", LocalAddr => "127.0.0.1")->sockport')
"$source/tests/agent/relay.pl" stream . >relay.log &
relay=$!
soon grep -q ready relay.log
start
wan=unix:relay\ cvDefaultWanInterface
# shellcheck disable=SC2016,SC2086 # evaluated later; words
{
    check 0 wan2 '' --yes $wan=wan2 cvVlanEnabled.1=true CORVANTA-MIB::cvCircuitVci.8=36
    says '^cvCircuitVci.8 +35 +36$'
    check 0 -Cq 'press "y\n"; soon grep -q "Keep" out; press "y\n"' $wan.0=-Cq
    says '^corvanta-set: the router has no interface -Cq; .* are wan1, wan2, wan3 and wan8$'
    check 1 -Cq 'press "n\n"' $wan=wan99
    check 1 -Cq '' -y $wan=wan4
    check 3 -Cq 'press "n\n"' $wan=wan4 cvCircuitEnabled.4=true # which makes it
    check 3 -Cq 'press "n\n"' $wan=wan3
    check 3 -Cq 'soon counted; press "\003"' $wan=
    says '^corvanta-set: interrupted$'
    check 3 -Cq 'kill $(ps -o pid= --ppid $terminal)' $wan=wan3
    check 3 -Cq '' --time 5 $wan=wan3 # nobody says anything
    # What is refused, and why.
    check 1 -Cq '' -fy $wan='a;b'
    says 'refused: cvDefaultWanInterface.0 cannot become a;b: .* \(wrongValue\)'
    check 1 -Cq '' -y unix:nobody cvDefaultWanInterface=wan3
    SNMPCONFPATH=$work/reader check 1 -Cq '' -y $wan=wan3
    says '^corvanta-set: refused: reader may not write \(noAccess\)$'
    put cvConfirmTimeout.0 = 3600 cvVlanEnabled.2 = true # another manager
    check 1 '-Cq pending' '' -y $wan=wan3
    says 'another change is pending: try again in 3[0-9]{3} s'
    put cvChange.0 = revert
    check 3 -Cq 'put cvChange.0 = revert; press "y\n"' $wan=wan3
    check 5 wan3 'put cvChange.0 = confirm; press "y\n"' $wan=wan3
    # What is not answered.
    lose set; check 0 wan2 '' -y $wan=wan2
    lose confirm; check 0 wan3 '' -y $wan=wan3
    lose revert; check 3 wan3 'press "n\n"' $wan=wan2
    # The agent is killed: while it waits, with the answer to the set, and to the confirmation.
    check 4 wan3 '$(dead); press "\003"' $wan=wan2
    lose set "$(dead)"; check 4 wan3 '' -t 6 -y $wan=wan2
    lose confirm "$(dead)"; check 5 wan2 'press "y\n"; soon test ! -e lose; press "\003"' $wan=wan2
    # Usage; nothing is sent.
    check 0 wan2 '' --help
    for words in '' unix:agent '-x unix:agent cvVlanEnabled.1=true' '-t 4 unix:agent cvVlanEnabled.1=true' \
        "-y $wan" '-y unix:agent sysName=x' '-y unix:agent cvChange=confirm' '-y unix:agent cvVlanEnabled.x=1' \
        '-y unix:agent cvVlanEnabled=true' '-y unix:agent cvVlanEnabled.9=true' '-y unix:agent cvDslActualRateUp=1' \
        '-y unix:agent cvCircuitVpi.1=256' '-y unix:agent cvCircuitVpi.1=1x' "-y $wan=longer-than-that" \
        '-y unix:agent cvVlanEnabled.1=maybe'; do
        check 2 wan2 '' $words
    done
    says '^corvanta-set: cvVlanEnabled takes true or false, not .maybe.; nothing was sent'
}
! corvanta-set unix:agent cvVlanEnabled.1=true </dev/null || failed=1 # nobody to ask

# For scripts.
corvanta-set --yes --json unix:agent cvCircuitVci.8=40 cvVlanEnabled.1=false >json 2>/dev/null
perl -MJSON::PP -0777 -ne '$_ = decode_json($_); print join " ", $$_{status}, $$_{outcome}, map { @$_{"object", "old", "new"} } @{$$_{objects}}' json |
    grep -qx '0 confirmed cvCircuitVci.8 36 40 cvVlanEnabled.1 true false' || wrong "json: $(cat json)"
completed() {
    COMP_WORDS=(corvanta-set "$@") COMP_CWORD=$#
    (. "$source/agent/set/corvanta-set.bash" && compopt() { :; } && _corvanta_set && echo "${COMPREPLY[*]}")
}
[ "$(completed host cvCircuitVp | wc -w) $(completed cvDef) $(completed cvVlanEnabled.1 = t) $(completed --js)" = \
    '8 cvDefaultWanInterface= true --json' ] || wrong "completion: $(completed cvCircuitVp)"

# A link that drops every third packet, in either direction.
"$source/tests/agent/relay.pl" lossy "$port" >back &
started+=($!)
soon test -s back
for ((i = 1; i <= changes; ++i)); do
    name=wan$((i % 3 + 1)) status=0
    corvanta-set -w 5 -t 3600 --yes "127.0.0.1:$(cat back)" cvDefaultWanInterface=$name >out 2>&1 || status=$?
    [ "$status $(look)" = "0 $name idle" ] || wrong "lossy: $status $(look) instead of 0 $name"
done
exit $failed
