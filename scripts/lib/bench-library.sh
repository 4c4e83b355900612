# shellcheck shell=bash disable=SC2154
# Sourced by scripts/bench: what the library adds to its client runs.

prepare libbenchmark-dev gnuplot-nox -- corvanta_bench
rm -rf -- "$out/device"
runs=${1:-400}
measure() {
    echo "Measuring: $1"
    scripts/on-device "$out/device" "$CORVANTA_BUILD/bench/corvanta_bench" bench "$runs" \
        --benchmark_filter="^$1/" --benchmark_out="$out/$1.json" \
        --benchmark_enable_random_interleaving=true "$2" &>"$out/$1.log" ||
        { cat "$out/$1.log" && return 1; }
}

measure alone --benchmark_repetitions=15
measure road --benchmark_repetitions=3
make_table
gnuplot -e "folder='$out'" bench/library.gp
