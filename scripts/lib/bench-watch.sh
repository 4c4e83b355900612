# shellcheck shell=bash disable=SC2154
# Sourced by scripts/bench: what an idle agent costs, and how soon a change is seen. Agents that watch
# cost little beside the steps in which their time is told, so there are four of each kind; all run
# side by side.

seconds=${1:-300} changes=${2:-100} intervals=(5 30 300)
prepare gnuplot-nox -- corvantad idle_bench snmp_bench
prepare_agents
circuit=$objects.4.1.3.11 # the state of VC8
vlan=$objects.7.1.2.1     # whether VLAN object 1 is on

# One agent on a device of its own, in the variable `command`.
agent_command() { # NAME INTERVAL [OPTION...]
    local name=$1 interval=$2
    shift 2
    mkdir "$dir/$name"
    scripts/on-device "$dir/$name/device" true
    address=127.0.0.1:$((++port))
    command=(scripts/on-device "$dir/$name/device" "$agent" --foreground --master "udp:$address"
        --config "$dir/agent.conf" --state "$dir/$name/state" --interval "$interval"
        --max-age $((3 * interval + 90)) "$@")
}
# Waits for processes, and fails when one of them has.
await() {
    local pid
    for pid in "$@"; do
        wait "$pid" || {
            tail -n 5 "$dir"/*/log >&2
            exit 1
        }
    done
}

echo "Measuring: idle"
measuring=()
for interval in "${intervals[@]}"; do
    for way in full watching{,,,}; do
        name=$way-$interval-${#measuring[@]} watch=()
        [ "$way" = full ] || watch=(--watch-database "$dir/$name/device/config.db")
        agent_command "$name" "$interval" "${watch[@]}"
        {
            echo -n "$way $interval "
            exec "$idle" "$seconds" "$dir/$name/device" "${command[@]}"
        } >"$dir/$name/idle" 2>"$dir/$name/log" &
        measuring+=($!)
    done
done
await "${measuring[@]}"
sort -n -k2,2 -s "$dir"/*/idle >"$out/idle"

# What the kernel tells is replaced whole; the row is written by the database's client.
echo "Measuring: changes"
measuring=() agents=()
for change in circuit row; do
    agent_command "$change" 30 --watch-database "$dir/$change/device/config.db"
    "${command[@]}" 2>"$dir/$change/log" &
    agents+=($!)
    device=$dir/$change/device
    case $change in
    circuit)
        cp "$device/pvc" "$dir/open"
        grep -v '^ *[^ ]*  *8 ' "$dir/open" >"$dir/closed"
        object=$circuit
        turns=("cp $dir/closed $dir/new && mv $dir/new $device/pvc" 2
            "cp $dir/open $dir/new && mv $dir/new $device/pvc" 1)
        ;;
    row)
        object=$vlan
        turns=("until quorlet 'updatekey VLAN Id 1 Enable integer:1 ;' | grep -q succeeded; do :; done" 1
            "until quorlet 'updatekey VLAN Id 1 Enable integer:0 ;' | grep -q succeeded; do :; done" 2)
        ;;
    esac
    {
        for ((tries = 0; tries < 60; ++tries)); do # until the first refresh
            "$manager" latency 1 ready "$address" "$object" &>/dev/null && break
            sleep 1
        done
        exec scripts/on-device "$device" "$manager" fresh "$address" "$object" "$changes" "${turns[@]}"
    } >"$dir/$change/delays" 2>>"$dir/$change/log" &
    measuring+=($!)
done
await "${measuring[@]}"
kill "${agents[@]}"

for change in circuit row; do sort -n "$dir/$change/delays" >"$out/delays-$change"; done
make_table
gnuplot -e "folder='$out'; changes=$changes" bench/watch.gp
