# shellcheck shell=bash disable=SC2154
# Sourced by scripts/fleet: what a fleet that holds still costs, as a row of docs/fleet.md's table. A
# round is all that one router is asked in one scrape interval.

# Processor time of processes in ms, their children's apart: those are the runs of the client.
spent() {
    local pid
    for pid in "$@"; do
        awk '{ own += $1 } END { printf "%.3f ", own / 1e6 }' "/proc/$pid"/task/*/schedstat
        awk -v tick="$(getconf CLK_TCK)" '{ sub(/.*\) /, ""); print ($14 + $15) * 1000 / tick }' "/proc/$pid/stat"
    done | awk '{ own += $1; children += $2 } END { printf "%.3f %.3f\n", own, children }'
}
resident() { # MiB of one of N, what processes share counted in part: resident N PID...
    local pid n=$1
    for pid in "${@:2}"; do grep ^Pss: "/proc/$pid/smaps_rollup"; done | awk -v n="$n" '{ sum += $2 } END { printf "%.1f", sum / n / 1024 }'
}

mapfile -t agents < <(cat "$folder"/router-*/pid; pgrep -P "$(cat "$folder"/router-*/pid | paste -sd,)") # an agent is three processes
run tcpdump -i lo -n -s 64 -U -w "$folder/packets" "udp and net $network.0.0/16" 2>/dev/null
dump=$!
await sleep 10 # the first round, and the browser's and this script's own start, are not counted
read -r agents_own agents_children < <(spent "${agents[@]}")
read -r exporter_own _ < <(spent "$exporter_pid")
read -r prometheus_own _ < <(spent "$prometheus_pid")
await sleep "$seconds"
read -r agents_own_after agents_children_after < <(spent "${agents[@]}")
read -r exporter_own_after _ < <(spent "$exporter_pid")
read -r prometheus_own_after _ < <(spent "$prometheus_pid")
kill "$dump"
wait "$dump" || true

both='job=~"corvanta|corvanta_health"'
scrapes=$(ask "sum(count_over_time(up{$both}[${seconds}s]))")
answered=$(ask "sum(sum_over_time(up{$both}[${seconds}s]))")
echo
printf '%s\n' '| routers | scrapes | lost | time of a scrape, ms: median, longest | agent: MiB | ms per round | refreshes, ms/s | exporter: MiB | ms per round | Prometheus: MiB | ms per round | IP packets per round | bytes per round |'
tcpdump -r "$folder/packets" -n -e -q -tt 2>/dev/null | sed -n 's/ .* length \([0-9]*\): .*/ \1/p' | awk \
    -v n="$count" -v scrapes="$scrapes" -v lost=$((scrapes - answered)) -v seconds="$seconds" \
    -v median="$(ask "1000 * quantile(0.5, quantile_over_time(0.5, scrape_duration_seconds{job=\"corvanta\"}[${seconds}s]))")" \
    -v longest="$(ask "1000 * max(max_over_time(scrape_duration_seconds{$both}[${seconds}s]))")" \
    -v memory="$(resident "$count" "${agents[@]}") $(resident 1 "$exporter_pid") $(resident 1 "$prometheus_pid")" \
    -v agent="$agents_own $agents_own_after" -v children="$agents_children $agents_children_after" \
    -v exporter="$exporter_own $exporter_own_after" -v prometheus="$prometheus_own $prometheus_own_after" '
    function used(pair,  both) { split(pair, both); return both[2] - both[1] }
    NR == 1 { first = $1 }
    { packets += $2 > 1514 ? int(($2 - 34 + 1479) / 1480) : 1; bytes += $2 - 14; last = $1 } # with an MTU of 1500
    END {
        split(memory, mib)
        rounds = scrapes / 2
        captured = rounds / seconds * (last - first)
        printf "| %d | %d | %d | %s, %s | %s | %.2f | %.1f | %s | %.2f | %s | %.2f | %.1f | %.0f |\n", n, scrapes, lost,
            median, longest, mib[1], used(agent) / rounds, used(children) / seconds / n, mib[2], used(exporter) / rounds,
            mib[3], used(prometheus) / rounds, packets / captured, bytes / captured
    }'
