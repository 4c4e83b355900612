#!/usr/bin/env bash
# corvanta-set against the agent on the stand-in device: what it makes of a change, and its exit status.
#
#     corvanta_set_test.sh BUILD_DIR
# shellcheck source=lib.sh
. "$(dirname -- "${BASH_SOURCE[0]}")/lib.sh"
build=$(realpath -- "$1")
cd "$work"
mkfifo keys
exec 3<>keys
user operator
export MIBDIRS=$source/agent/share/modules:$source/agent CORVANTA_BUILD=$build

# The requests are made, but an answer can be lost, and the agent killed with it.
mkdir bin
cat >bin/snmpset <<END
#!/bin/sh
[ -e lose ] && . ./lose && case "\$*" in *"\$request"*)
    rm lose; $(command -v snmpset) "\$@" >/dev/null; \$then; echo Timeout; exit 1 ;;
esac
exec $(command -v snmpset) "\$@"
END
chmod +x bin/snmpset
export PATH=$work/bin:$source/agent:$PATH
lose() { echo "request='$1' then='${2-}'" >lose; }
put() { snmpset -t 60 -r 0 unix:agent "$@" >/dev/null; }
look() { snmpget -Oqv unix:agent cvDefaultWanInterface.0 cvChangeState.0 2>/dev/null | xargs; }
start() {
    "$source/scripts/on-device" device "$build/agent/corvantad" --foreground --master unix:agent \
        --config agent.conf --state "$work/state" --interval 60 --set-deadline 55 2>>log &
    agent=$!
    started=("$agent")
    soon look >/dev/null
}

# Runs it on a terminal. When it asks, something happens, and keys are typed. Compares the exit
# status, the default WAN interface and the state of changes where that isn't idle.
failed=0
check() { # status, what is there then, what happens, keys, arguments
    local status=0 command seen
    printf -v command '%q ' corvanta-set --wait 60 "${@:5}"
    SHELL=/bin/bash script -qefc "$command" /dev/null <keys >out &
    until grep -q Keep out || ! kill -0 $! 2>/dev/null; do sleep 0.1; done
    eval "$3"
    printf %b "$4" >&3
    wait $! || status=$?
    look >seen || { wait "$agent" || start; look >seen; }
    seen="$status $(cat seen)"
    [ "${seen% idle}" != "$1 $2" ] || [ -e lose ] || return 0
    echo "$seen instead of $1 $2: $command" && cat out
    failed=1
}

start
wan=unix:agent\ cvDefaultWanInterface
# shellcheck disable=SC2016,SC2086 # evaluated later; words
{
    check 0 wan2 '' '' --yes $wan=wan2 cvVlanEnabled.1=true CORVANTA-MIB::cvCircuitVci.8=36
    check 0 -Cq '' 'y\n' $wan.0=-Cq
    check 3 -Cq '' 'n\n' $wan=wan3
    check 3 -Cq '' '\003' $wan= # Ctrl-C
    check 3 -Cq 'kill $(ps -o pid= --ppid $!)' '' $wan=wan3
    check 3 -Cq '' '' --time 12 $wan=wan3 # nobody says anything
    check 1 -Cq '' '' -y $wan='a;b'
    check 1 -Cq '' '' -y $wan=wan3 cvVlanEnabled.1=maybe
    check 1 -Cq '' '' -y unix:nobody cvDefaultWanInterface=wan3
    put cvConfirmTimeout.0 = 60 cvVlanEnabled.2 = true # another manager
    check 1 '-Cq pending' '' '' -y $wan=wan3
    put cvChange.0 = revert
    check 3 -Cq 'put cvChange.0 = revert' 'y\n' $wan=wan3
    check 5 wan3 'put cvChange.0 = confirm' 'y\n' $wan=wan3
    # What is not answered.
    lose cvConfirmTimeout; check 0 wan2 '' '' -y $wan=wan2
    lose confirm; check 0 wan3 '' '' -y $wan=wan3
    lose revert; check 3 wan3 '' 'n\n' $wan=wan2
    # The agent is killed: while it waits, with the answer to the set, and to the confirmation.
    check 4 wan3 'kill -9 $agent' 'y\n' -t 12 $wan=wan2
    lose cvConfirmTimeout "kill -9 $agent"; check 4 wan3 '' '' -t 6 -y $wan=wan2
    lose confirm "kill -9 $agent"; check 5 wan2 '' '' -t 20 -y $wan=wan2
    # Usage.
    check 0 wan2 '' '' --help
    for words in '' unix:agent '-x unix:agent cvVlanEnabled.1=true' '-t 4 unix:agent cvVlanEnabled.1=true' \
        "-y $wan" '-y unix:agent sysName=x' '-y unix:agent cvChange=confirm' '-y unix:agent cvVlanEnabled.x=1'; do
        check 2 wan2 '' '' $words
    done
}
! corvanta-set unix:agent cvVlanEnabled.1=true </dev/null || failed=1 # nobody to ask
exit $failed
