# shellcheck shell=bash disable=SC2154
# Sourced by scripts/bench: how long a get of the agent takes, alone and as a subagent, and whether it
# stands a load.

rounds=${1:-4000} gets=${2:-10000} sets=${3:-200}
prepare "${test_packages[@]}" -- corvantad snmp_bench
prepare_agents
object=$objects.6.1.5.1           # the VCI of circuit 1
uptime=.1.3.6.1.2.1.1.3.0         # built in everywhere
builtin=.1.3.6.1.4.1.8072.1.5.1.0 # built into the second subagent
script=.1.3.6.1.4.1.8072.9999.1
alone=127.0.0.1:$port
master=127.0.0.1:$((port + 1))

# The same job as a script: it reads the values once, and answers from memory.
cat >"$dir/pass" <<EOF
#!/bin/bash
while :; do
    declare -A value
    for n in 1 2 3 4 5 6 7 8; do
        value[$script.\$n]=\$(quorlet "selectkey Atm Id \$n Vci ;")
    done
    while read -r verb; do
        case \$verb in
        PING) echo PONG ;;
        get) read -r name; [ -n "\${value[\$name]-}" ] && printf '%s\ninteger\n%s\n' "\$name" "\${value[\$name]}" || echo NONE ;;
        *) read -r name; echo NONE ;;
        esac
    done
    exit
done
EOF
chmod +x "$dir/pass"
cat >"$dir/master.conf" <<EOF
agentaddress udp:$master
agentXSocket $dir/agentx
rwcommunity bench 127.0.0.1
includeFile $(realpath -- "$CORVANTA_BUILD")/agent/snmpd-corvanta.conf
pass_persist $script $dir/pass
EOF

SNMP_PERSISTENT_DIR=$dir/1 scripts/on-device "$dir/device" \
    snmpd -f -Lf "$dir/log" -C -c "$dir/master.conf" -I -smux,nsCache &
sleep 1
SNMP_PERSISTENT_DIR=$dir/2 snmpd -X -f -Lf "$dir/log" -C -x "$dir/agentx" -I nsCache &
scripts/on-device "$dir/device" "$agent" -f -x "$dir/agentx" -s "$dir/4" 2>>"$dir/log" &
subagent=$!
scripts/on-device "$dir/device2" "$agent" -f -m "udp:$alone" -c "$dir/agent.conf" -s "$dir/3" 2>>"$dir/log" &
own=$!
for address in "$alone" "$master"; do # until the first refresh
    for ((tries = 0; tries < 60; ++tries)); do
        "$manager" latency 1 ready "$address" "$object" &>/dev/null && break
        sleep 1
    done
done

resources() { # of an agent's three processes: descriptors and KiB
    local processes kib memory=0
    # shellcheck disable=SC2046
    mapfile -t processes < <(printf '/proc/%s\n' "$1" $(pgrep -P "$1"))
    while read -r _ kib _; do memory=$((memory + kib)); done < <(grep -h ^VmRSS "${processes[@]/%//status}")
    printf '%d\t%d' "$(find "${processes[@]/%//fd}" -mindepth 1 | wc -l)" "$memory"
}

echo "Measuring: gets"
"$manager" latency "$rounds" \
    $'get\talone\tbuilt-in scalar' "$alone" $uptime \
    $'get\talone\tcorvantad' "$alone" "$object" \
    $'get\tsnmpd\tbuilt-in scalar' "$master" $uptime \
    $'get\tsnmpd\tpass_persist script' "$master" $script.1 \
    $'get\tAgentX\tbuilt-in scalar' "$master" $builtin \
    $'get\tAgentX\tcorvantad' "$master" "$object" >"$out/agent"
echo "Measuring: load"
for way in "alone $alone $own" "AgentX $master $subagent"; do
    read -r name address process <<<"$way"
    "$manager" load "$address" "$objects" $((gets / 10 + 4)) $((sets / 10 + 4)) >/dev/null # warms up
    sleep 2
    before=$(resources "$process")
    printf 'load\t%s\t%s\n' "$name" "$("$manager" load "$address" "$objects" "$gets" "$sets")" >>"$out/agent"
    sleep 2
    printf 'resources\t%s\t%s\t%s\n' "$name" "$before" "$(resources "$process")" >>"$out/agent"
done
make_table
