#!/usr/bin/env bash
# Installs what is missing, builds, and plays a multiplex on loopback: the daemon, a control
# process that pushes the tables, and a monitor that shows what is on the wire. Then it kills
# the daemon and starts it again, and the control process pushes the tables again. At last it
# puts the tables into a test picture with tone, which makes a DVB service of it.
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
    start "${stateless[@]}" build/bin/kestan-control serve "$tables"

    echo "== What is on the wire"
    meanwhile build/bin/kestan-monitor "$destination:$port" --duration 10 \
        --expect "$tables" --record build/demo.ts

    echo "== What a player finds in it"
    ffprobe -hide_banner build/demo.ts 2>&1 | sed -n '/^Input/,$p'

    echo "== The daemon is killed and started again"
    unset "started[$daemon]"
    kill -KILL "$daemon"
    { wait "$daemon" || true; } 2>/dev/null
    start build/bin/kestan -c -l 6 -O "$destination/$port"
    meanwhile build/bin/kestan-monitor "$destination:$port" --duration 5

    insert
}

# The encoder's streams are on the PIDs of the first service in the tables.
insert() {
    echo "== A test picture with tones becomes the first service"
    ffmpeg -y -loglevel error -f lavfi -i testsrc=size=320x240:rate=25 \
        -f lavfi -i sine=frequency=440 -f lavfi -i sine=frequency=660 -t 20 \
        -map 0 -map 1 -map 2 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 25 -b:v 1M \
        -c:a mp2 build/picture.ts
    start build/bin/kestan-insert "$destination:6000" "$destination:$port" "$destination:6001"
    start ffmpeg -loglevel error -re -i build/picture.ts -map 0 -c copy -streamid 0:0x101 \
        -streamid 1:0x102 -streamid 2:0x103 -f mpegts -muxrate 3M \
        "udp://$destination:6000?pkt_size=1316&bitrate=3000000&burst_bits=10528"
    sleep 3
    meanwhile build/bin/kestan-monitor "$destination:6001" --duration 10 \
        --expect "$tables" --record build/inserted.ts
    ffprobe -hide_banner build/inserted.ts 2>&1 | sed -n '/^Input/,$p'
}

if [ "${1:-}" = play ]; then
    play
else
    build
    exec scripts/own_network.sh scripts/demo.sh play
fi
