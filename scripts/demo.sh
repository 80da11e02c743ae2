#!/usr/bin/env bash
# Installs what is missing, builds, and plays a multiplex on loopback: the daemon, a control
# process that pushes the tables, and a monitor that shows what is on the wire. Then the
# daemon is killed and started again, and the tables are back by themselves.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

readonly destination=127.0.0.1
readonly port=5004
readonly tables=examples/small.json

install_missing "${build_packages[@]}" ffmpeg
echo "== Building"
cmake --preset release -G Ninja >/dev/null
cmake --build --preset release -- --quiet

children=()
end_children() {
    kill "${children[@]}" 2>/dev/null || true
    wait "${children[@]}" 2>/dev/null || true
}
trap end_children EXIT

start() { # <program> [argument]...: runs it beside this script
    "$@" &
    children+=("$!")
}

echo "== The daemon, and a control process that serves $tables"
start build/bin/kestan -c -l 6 -O "$destination/$port"
daemon=$!
start build/bin/kestan-control serve "$tables"

echo "== What is on the wire"
build/bin/kestan-monitor "$destination:$port" --duration 10

echo "== What a player finds in it"
ffmpeg -v error -y -f data -i "udp://$destination:$port" -map 0 -c copy -f data -fs 20k \
    build/demo.ts
ffprobe -hide_banner build/demo.ts 2>&1 | sed -n '/^Input/,$p'

echo "== The daemon is killed and started again"
kill -KILL "$daemon"
{ wait "$daemon" || true; } 2>/dev/null
start build/bin/kestan -c -l 6 -O "$destination/$port"
build/bin/kestan-monitor "$destination:$port" --duration 5
