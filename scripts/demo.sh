#!/usr/bin/env bash
# Installs what is missing, builds, and plays a multiplex on loopback: the daemon, a control
# process that pushes the tables, and a monitor that shows what is on the wire. Then it kills
# the daemon and starts it again, and the control process pushes the tables again.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/play_out.sh

readonly destination=127.0.0.1
readonly port=5004
readonly tables=examples/small.json

build() {
    install_missing "${build_packages[@]}" "${network_packages[@]}" ffmpeg
    echo "== Building"
    cmake --preset release -DKESTAN_TESTS=OFF >/dev/null
    cmake --build --preset release -- --quiet
}

play() {
    echo "== The daemon, and a control process that serves $tables"
    start build/bin/kestan -c -l 6 -O "$destination/$port"
    daemon=$!
    meanwhile wait_for_port 9501
    start build/bin/kestan-control serve "$tables"

    echo "== What is on the wire"
    meanwhile build/bin/kestan-monitor "$destination:$port" --duration 10 \
        --record build/demo.ts

    echo "== What a player finds in it"
    ffprobe -hide_banner build/demo.ts 2>&1 | sed -n '/^Input/,$p'

    echo "== The daemon is killed and started again"
    unset "started[$daemon]"
    kill -KILL "$daemon"
    { wait "$daemon" || true; } 2>/dev/null
    start build/bin/kestan -c -l 6 -O "$destination/$port"
    meanwhile build/bin/kestan-monitor "$destination:$port" --duration 5
}

if [ "${1:-}" = play ]; then
    play
else
    build
    exec scripts/own_network.sh scripts/demo.sh play
fi
