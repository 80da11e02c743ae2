#!/usr/bin/env bash
# Measures the hot path next to its floors, and Kestan next to a bare sending loop and
# ffmpeg's multiplexer (where it is installed), and writes bench/results/results.md and
# lateness.svg. Takes twenty minutes on a machine that does nothing else.
#
#   bench/run.sh [SECONDS]    of each measurement of a whole program, 60 by default
#
# As root the programs run at a real-time priority, so that other programs disturb them as
# little as possible. Their sleeps then have no timer slack.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
install_missing "${build_packages[@]}" "${test_packages[@]}" libbenchmark-dev jq gnuplot-nox

results=bench/results
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$results"
priority=() own_network=(unshare --map-root-user --net)
[ "$(id -u)" -ne 0 ] || priority=(chrt -f 10) own_network=(unshare --net)

cmake -S . -B build-bench -G Ninja >/dev/null
cmake --build build-bench --target kestan hot_path_bench bare_loop side_by_side -- --quiet

# A benchmark's label names its floor. The table has the best of nine runs, in random order.
hot_path_table() {
    echo '| | ns | its floor | ns | ratio |'
    echo '|---|--:|---|--:|--:|'
    jq -r '
        def figure: . * 10 | round / 10;
        [.benchmarks[] | select(.run_type == "iteration")] | group_by(.run_name)
        | map({name: .[0].run_name, floor: (.[0].label // ""), ns: (map(.cpu_time) | min),
               order: .[0].family_index, instance: .[0].per_family_instance_index})
        | sort_by(.order, .instance)
        | (map({key: .name, value: .ns}) | from_entries) as $ns
        | .[] | select(.floor != "")
        | "| `\(.name)` | \(.ns | figure) | `\(.floor)` | \($ns[.floor] | figure) | \(
            .ns / $ns[.floor] * 100 | round / 100) |"' "$1"
}

"${priority[@]}" build-bench/bench/hot_path_bench --benchmark_min_time=0.05 \
    --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true \
    --benchmark_out="$work/hot_path.json" --benchmark_out_format=json >/dev/null 2>&1

if command -v ffmpeg >/dev/null; then
    ffmpeg -loglevel error -f lavfi -i testsrc=size=320x240:rate=25 -t 4 \
        -c:v mpeg2video -b:v 500k -f mpegts "$work/input.ts"
fi
# Runs in a separate network, where the ports of the service are free.
"${own_network[@]}" sh -c 'ip link set lo up && exec "$@"' sh "${priority[@]}" \
    build-bench/bench/side_by_side "$work" "$work/input.ts" "${1:-60}" >"$work/side_by_side.md"

{
    echo "Taken on $(date -u +%F), $(nproc) processors of" \
        "$(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -1), Linux $(uname -r)," \
        "load average $(cut -d' ' -f1 /proc/loadavg)${priority:+, at a real-time priority}."
    printf '\n## Whole programs\n\n'
    cat "$work/side_by_side.md"
    printf '\n![Lateness at 50,000 kbit/s](lateness.svg)\n'
    printf '\n## The hot path\n\n'
    hot_path_table "$work/hot_path.json"
} >"$results/results.md"

gnuplot <<EOF
set terminal svg size 800,450 background "white"
set output "$results/lateness.svg"
set title "Lateness of datagrams at 50,000 kbit/s"
set xlabel "later than, µs"
set ylabel "share of the datagrams"
set logscale xy
set format y "10^{%L}"
set xrange [10:]
set grid
set key bottom left
plot for [file in system("ls $work/lateness-*.dat")] file with lines linewidth 2 \
    title system("basename ".file." .dat | cut -d- -f2 | tr _ ' '")
EOF
echo "$results/results.md"
