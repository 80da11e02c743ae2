#!/usr/bin/env bash
# Measures kestan-insert next to a loop that only receives and sends, and writes
# bench/results/insert.md. Takes seven minutes on a machine that does nothing else.
#
#   bench/insert.sh [SECONDS] [KBPS]    of each run, 60 by default; 100000 by default
#
# As root the programs run at a real-time priority.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
install_missing "${build_packages[@]}" "${network_packages[@]}" libbenchmark-dev

results=bench/results/insert.md
XDG_STATE_HOME=$(mktemp -d)  # kestan-control's record
export XDG_STATE_HOME
trap 'rm -rf "$XDG_STATE_HOME"' EXIT
priority=() own_network=(unshare --map-root-user --net)
[ "$(id -u)" -ne 0 ] || priority=(chrt -f 10) own_network=(unshare --net)

cmake -S . -B build-bench -G Ninja >/dev/null
cmake --build build-bench -- --quiet kestan kestan-control kestan-insert bare_relay \
    insert_side_by_side
{
    echo "Taken on $(date -u +%F), $(nproc) processors of" \
        "$(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -1), Linux $(uname -r)," \
        "load average $(cut -d' ' -f1 /proc/loadavg)${priority:+, at a real-time priority}."
    echo
    "${own_network[@]}" sh -c 'ip link set lo up && exec "$@"' sh "${priority[@]}" \
        build-bench/bench/insert_side_by_side examples/small.json "$@"
} >"$results"
cat "$results"
