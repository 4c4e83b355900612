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

# What all shards say of themselves: a counter, and the bytes of their files.
metric() { for one in "${prometheis[@]}"; do curl -s "http://$one/metrics"; done | awk -v name="^$1([{]|$)" '$1 ~ name { sum += $2 } END { printf "%.0f", sum }'; }
on_disk() { du -sbc "$folder"/prometheus-?/"$1" | awk 'END { print $1 }'; }

mapfile -t agents < <(cat "$folder"/router-*/pid; pgrep -P "$(cat "$folder"/router-*/pid | paste -sd,)") # an agent is three processes
mapfile -t exporter_pids < <(cat "$folder"/exporter-*.pid)
mapfile -t prometheus_pids < <(cat "$folder"/prometheus-*.pid)
above_pid=$(cat "$folder/above.pid" 2>/dev/null) || true
if [ -z "$recorded" ]; then
    run tcpdump -i lo -n -s 64 -U -w "$folder/packets" "udp and net $network.0.0/16" 2>/dev/null
    dump=$!
fi
measured() { # own and children's time of each, samples, bytes of the log that is written ahead
    spent "${agents[@]}"
    spent "${exporter_pids[@]}"
    spent "${prometheus_pids[@]}"
    if [ -n "$above_pid" ]; then spent "$above_pid"; else echo 0 0; fi
    echo "$(metric prometheus_tsdb_head_samples_appended_total) $(on_disk wal)"
}
await sleep 10 # the first round, and the browser's and this script's own start, are not counted
before=$(measured)
await sleep "$seconds"
after=$(measured)
[ -n "$recorded" ] || { kill "$dump" && wait "$dump"; } || true

both='job=~"corvanta|corvanta_health"'
scrapes=$(total "sum(count_over_time(up{$both}[${seconds}s]))")
lost=$(total "sum(count_over_time(up{$both}[${seconds}s])) - sum(sum_over_time(up{$both}[${seconds}s]))")
slowest() { ask "$1" | sort -n | tail -n 1; } # of the shards
for one in "${prometheis[@]}"; do curl -s -X POST "http://$one/api/v1/admin/tsdb/snapshot" >/dev/null; done
chunks=$(du -sbc "$folder"/prometheus-?/snapshots/*/*/chunks | awk 'END { print $1 }')
index=$(du -sbc "$folder"/prometheus-?/snapshots/*/*/index | awk 'END { print $1 }')
echo
printf '%s\n' '| routers | scrapes | lost | time of a scrape, ms: median, longest | agent: MiB | ms per round | refreshes, ms/s | exporter: MiB | ms per round | Prometheus: MiB | ms per round | IP packets per round | bytes per round |'
{ [ -n "$recorded" ] || tcpdump -r "$folder/packets" -n -e -q -tt 2>/dev/null | sed -n 's/ .* length \([0-9]*\): .*/ \1/p'; } | awk \
    -v n="$count" -v scrapes="$scrapes" -v lost="$lost" -v seconds="$seconds" \
    -v median="$(slowest "1000 * quantile(0.5, quantile_over_time(0.5, scrape_duration_seconds{job=\"corvanta\"}[${seconds}s]))")" \
    -v longest="$(slowest "1000 * max(max_over_time(scrape_duration_seconds{$both}[${seconds}s]))")" \
    -v memory="$(resident "$count" "${agents[@]}") $(resident 1 "${exporter_pids[@]}") $(resident 1 "${prometheus_pids[@]}") ${above_pid:+$(resident 1 "$above_pid")}" \
    -v before="$(tr '\n' ' ' <<<"$before")" -v after="$(tr '\n' ' ' <<<"$after")" -v chunks="$chunks" -v index_size="$index" \
    -v series="$(metric prometheus_tsdb_head_series)" -v appended="$(metric prometheus_tsdb_head_samples_appended_total)" '
    function used(which) { return now[which] - was[which] }
    NR == 1 { first = $1 }
    { packets += $2 > 1514 ? int(($2 - 34 + 1479) / 1480) : 1; bytes += $2 - 14; last = $1 } # with an MTU of 1500
    END {
        split(memory, mib)
        split(before, was)
        split(after, now)
        rounds = scrapes / 2
        captured = NR ? rounds / seconds * (last - first) : 1
        printf "| %d | %d | %d | %s, %s | %s | %.2f | %.1f | %s | %.2f | %s | %.2f | %.1f | %.0f |\n", n, scrapes, lost,
            median, longest, mib[1], used(1) / rounds, used(2) / seconds / n, mib[2], used(3) / rounds,
            mib[3], used(5) / rounds, packets / captured, bytes / captured
        printf "Prometheus: %.1f series and %.1f samples per round of a router; on disk %.0f bytes per round at first, then %.2f per sample and %.0f per series.\n",
            series / n, used(9) / rounds, used(10) / rounds, chunks / appended, index_size / series
        if (mib[4]) printf "The one above: %s MiB, %.1f ms per second.\n", mib[4], used(7) / seconds
    }'
