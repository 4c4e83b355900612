# shellcheck shell=bash disable=SC2154
# Sourced by scripts/bench: this version of the agent beside another one, which is built from the
# history. The two take turns, so that other work on the machine meets both alike.

revision=$1 pairs=${2:-30}
prepare sqlite3 -- corvantad snmp_bench idle_bench run_bench
git cat-file -e "$revision^{commit}" 2>/dev/null || refuse "no revision '$revision'"
other=$out/$(git rev-parse --short "$revision")
mkdir -p "$other"
git archive "$revision" | tar -x -C "$other"
quietly "Building $revision" cmake -S "$other" -B "$other/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF
quietly "Building $revision" cmake --build "$other/build" --target corvantad
prepare_agents
declare -A program=([before]=$(realpath -- "$other/build/agent/corvantad") [now]=$agent)

echo "Measuring: a client run"
scripts/on-device "$dir/device" "$CORVANTA_BUILD/bench/run_bench" $((20 * pairs)) \
    quorlet "selectkey Atm Id 1 Vci ;" >"$out/before-run"

for version in before now; do scripts/on-device "$dir/$version" true; done
echo "Measuring: refreshes"
for ((pair = 0; pair < (pairs + 4) / 5; ++pair)); do
    for version in before now; do
        echo -n "$version "
        "$idle" 5 "$dir/$version" scripts/on-device "$dir/$version" "${program[$version]}" --foreground \
            --master "udp:127.0.0.1:$port" --config "$dir/agent.conf" --state "$dir/state-$version" \
            --interval 1 2>>"$dir/log"
    done
done >"$out/before-refresh"

echo "Measuring: sets"
for way in "" "with a watched database"; do
    addresses=() agents=()
    for version in before now; do
        address=127.0.0.1:$((++port))
        addresses+=("$address")
        scripts/on-device "$dir/$version" "${program[$version]}" --foreground --master "udp:$address" \
            --config "$dir/agent.conf" --state "$dir/state-$version" --interval 600 --max-age 6000 \
            --set-deadline 60 ${way:+--watch-database "$dir/$version/config.db"} 2>>"$dir/log" &
        agents+=($!)
        for ((tries = 0; tries < 60; ++tries)); do # until the first refresh
            "$manager" latency 1 ready "$address" "$objects.6.1.5.1" &>/dev/null && break
            sleep 1
        done
    done
    "$manager" sets "$pairs" "$objects" "${addresses[@]}" | sed "s/^/$way\t/"
    kill "${agents[@]}"
    wait "${agents[@]}"
done >"$out/before-sets"
make_table
