# kestan-insert between ffmpeg, an encoder with two services, and its receivers.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

setup_file() {
    local services=() service
    for service in 0 2; do
        services+=(-program "title=Encoder $service:st=$service:st=$((service + 1))")
    done
    ffmpeg -v error -f lavfi -i testsrc=s=160x120:r=25 -f lavfi -i sine=440 \
        -f lavfi -i testsrc2=s=160x120:r=25 -f lavfi -i sine=880 -t 7 -map 0 -map 1 -map 2 \
        -map 3 "${services[@]}" -c:v mpeg2video -b:v 300k -c:a mp2 -b:a 64k -f mpegts \
        -muxrate 1500k "$BATS_FILE_TMPDIR/encoder.ts"
    export encoder=$BATS_FILE_TMPDIR/encoder.ts tables=$BATS_FILE_TMPDIR/tables.json
    "$KESTAN_BIN/kestan-control" import "$encoder" | jq '
        (.. | objects | select(.version_number).version_number) = 9
        | (.. | objects | select(.service_name).service_name) |= sub("Encoder"; "Harbour")
        | reduce (0, 1) as $i (.; (.pat.programs[$i], .pmts[$i]).pid = "0x020\($i)")' >"$tables"
    # For the programs in Python: the packets of the encoder's stream and what can be a slot.
    export PYTHONPATH=$BATS_FILE_TMPDIR
    cat >"$PYTHONPATH/stream.py" <<'END'
import os
stream = open(os.environ["encoder"], "rb").read()
slots = {0, 0x11, 0x14, 0x1000, 0x1001, 0x1FFF}
kestans, encoders = {0x200, 0x201}, {0x1000, 0x1001}  # PIDs of PMTs
def datagram(data, number):
    begin = number % (len(data) // 1316) * 1316
    return data[begin:begin + 1316]
def packets(data): return [data[at:at + 188] for at in range(0, len(data), 188)]
def pid(packet): return int.from_bytes(packet[1:3], "big") & 0x1FFF
def is_left_alone(before, after):
    return len(before) == len(after) and all(
        one == other or pid(one) in slots for one, other in zip(packets(before), packets(after)))
END
}

# insert [option]...: starts an inserter that reads port 6000 and Kestan's stream.
insert() {
    start insert kestan-insert 127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001 "$@"
    listens insert 5432
}

play_tables() { play -b 500 && kestan-control push "$tables"; }

# pace: writes the encoder's stream in datagrams of seven packets, at its bit rate.
pace() {
    /usr/bin/python3 - <<'END'
import time
from stream import stream
begin = time.monotonic()
with open(1, "wb", 0) as out:
    for sent in range(0, len(stream), 1316):
        time.sleep(max(begin + sent * 8 / 1.5e6 - time.monotonic(), 0))
        out.write(stream[sent:sent + 1316])
END
}

# is_complete <file>: all packets but the slots are the encoder's, in their places. The tables are
# those of the files, nothing of the encoder's own is left, and every frame is there.
is_complete() {
    /usr/bin/python3 - "$1" <<'END'
import sys
from stream import *
left = open(sys.argv[1], "rb").read()
assert is_left_alone(stream, left)
assert not encoders & {pid(packet) for packet in packets(left)}
END
    has_tables "$1" "$tables"
    run -0 ffprobe -hide_banner "$1"
    [[ $output == *"Harbour 0"*"Harbour 2"* && $output != *Encoder* ]]
    diff <(frames "$1") <(frames "$encoder")
    [ -z "$(ffmpeg -v error -i "$1" -map 0 -f null - 2>&1)" ]
}

frames() {
    ffprobe -v error -count_frames -show_entries stream=id,codec_name,nb_read_frames \
        -of csv=p=0 "$1" | sort -u | grep .
}

@test "puts the tables on air and leaves the rest alone, across a restart of Kestan" {
    play_tables
    insert --json
    start monitor kestan-monitor 127.0.0.1:6001 --json --record left.ts
    listens monitor 6001
    sleep 0.5  # until Kestan's tables have come twice: none of the encoder's may pass
    export -f pace
    start encoder bash -c 'pace | socat -u -b 1316 - UDP-SENDTO:127.0.0.1:6000'
    sleep 2.5
    crash kestan
    play_tables
    await encoder
    wait_until eval '[ "$(stat -c %s left.ts)" -eq "$(stat -c %s "$encoder")" ]'
    finish monitor INT
    finish insert INT || [ $? -eq 1 ]  # the restart can look like a loss
    is_complete left.ts
    reports 'all(.pids[]; .continuity_errors == 0)'
    jq -e '([.dropped[]] | add) == 0 and .input.packets > 6000 and .inserted > 50 and
        (.pids | map(select(.pid == "0x1000")) | .[0].replaced > 10)' insert.out
}

# The encoder sends a datagram when the one before has come back.
@test "leaves RTP headers, and the encoder's tables while Kestan is silent" {
    insert
    cat >encoder.py <<'END'
import itertools, socket, struct, time
from stream import *
sender, receiver = (socket.socket(type=socket.SOCK_DGRAM) for _ in range(2))
receiver.bind(("127.0.0.1", 6001))
receiver.settimeout(20)
on_air = None
for number in itertools.count():
    header = struct.pack(">BBHII", 0x80, 33, number % 65536, number * 632, 0x4B455354)
    sender.sendto(header + datagram(stream, number), ("127.0.0.1", 6000))
    left = receiver.recv(2000)
    assert left[:12] == header and is_left_alone(datagram(stream, number), left[12:])
    for name, pids in ("Kestan", kestans), ("the encoder", encoders):
        if name != on_air and pids & {pid(packet) for packet in packets(left[12:])}:
            on_air = name
            print(name)
    time.sleep(0.007)
END
    start encoder /usr/bin/python3 -u encoder.py
    prints encoder "the encoder"
    play_tables
    prints encoder Kestan
    crash kestan
    local silent_since=$SECONDS
    prints encoder "the encoder" 2
    ((SECONDS - silent_since >= 4))  # 5 s
    play_tables
    prints encoder Kestan 2
    stop encoder
    [ "$(wc -l <encoder.out)" -eq 4 ]
}

# Measured: a peak of 16.9 MB at 160 Mbit/s of each stream, 8 MB of it for datagrams of 64 kB.
@test "keeps its memory bounded when both streams come as fast as they can" {
    [ ! "$KESTAN_SANITIZE" ] || skip "a sanitizer keeps the memory that is freed"
    insert --json
    /usr/bin/python3 - <<'END'
import socket
from stream import *
flood = b"".join(bytes((0x47, 0x40 | pid >> 8, pid & 255, 16 | counter)) + bytes(184)
                 for counter in range(16) for pid in range(0x1FFF))
sender = socket.socket(type=socket.SOCK_DGRAM)
for number in range(60000):
    sender.sendto(datagram(stream, number), ("127.0.0.1", 6000))
    sender.sendto(datagram(flood, number), ("127.0.0.1", 5432))
END
    echo "peak: $(memory insert VmHWM) kB"
    (($(memory insert VmHWM) < 24000))
    finish insert INT || [ $? -eq 1 ]
    jq -e '.inserted > 0 and .dropped.no_room > 8192' insert.out
}

@test "reads a pipe and writes one, until nobody reads it any more" {
    play_tables
    { sleep 1 && pace; } | kestan-insert - 127.0.0.1:5432 - >left.ts 2>insert.err
    is_complete left.ts
    grep ' 0 malformed, 0 lost here, 0 silences' insert.err
    head -c 1000 "$encoder" | kestan-insert - 127.0.0.1:5432 - >short.ts 2>said || [ $? -eq 1 ]
    [ "$(stat -c %s short.ts)" -eq 940 ]
    kestan-insert - 127.0.0.1:5432 - <"$encoder" 2>said | head -c 188 >/dev/null ||
        [ "${PIPESTATUS[0]}" -eq 2 ]
    grep "cannot write to standard output: Broken pipe" said
}

@test "uses multicast groups, their interfaces and a TTL" {
    needs_own_network
    play -I lo -O 226.0.0.10/5432
    start insert kestan-insert 226.0.0.20:6000 226.0.0.10:5432 226.0.0.30:6001 --ttl 4 \
        --input-interface lo --tables-interface lo --output-interface lo
    listens insert 6000
    start receiver socat -u UDP-RECVFROM:6001,ip-add-membership=226.0.0.30:127.0.0.1,ip-recvttl \
        SYSTEM:'echo "$(wc -c) bytes, TTL $SOCAT_IP_TTL"'
    listens receiver 6001
    head -c 1316 "$encoder" |
        socat -u -b 1316 - UDP-SENDTO:226.0.0.20:6000,ip-multicast-if=127.0.0.1
    prints receiver "1316 bytes, TTL 4"
    finish insert || [ $? -eq 1 ]
}

@test "says what stops it, what came not, and once that it cannot send" {
    all_exit kestan-insert <<'END'
2|OUTPUT must be another address|127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6000
2|OUTPUT must be another address|127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:5432
2|two addresses|127.0.0.1:6000 127.0.0.1:6000 127.0.0.1:6001
2|not an IPv4 address with a port|127.0.0.1:6000 - 127.0.0.1:6001
2|not a PID of 0 to 0x1FFE|- 127.0.0.1:5432 - --keep 0x1FFF
2|not in range 1 to 255|127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001 --ttl 0
2|OUTPUT|127.0.0.1:6000 127.0.0.1:5432
2|"ip link" lists|127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001 --output-interface nowhere0
1|INPUT      no datagram|127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001 -d 0.2 --keep 18 --keep 0x14
END
    needs_own_network
    : >journal
    inode=$(stat -c %d:%i journal)
    JOURNAL_STREAM=$inode kestan-insert - 127.0.0.1:5432 192.0.2.1:6001 \
        <"$encoder" >report 2>journal || [ $? -eq 1 ]
    [ "$(grep -c '^<3>kestan-insert: cannot send to 192.0.2.1:6001: Network is' journal)" -eq 1 ]
    grep -E 'OUTPUT +[0-9]{4} datagrams could not be sent' report
}

@test "tells the service manager what it waits for, and a terminal how it goes on" {
    manage
    NOTIFY_SOCKET=$PWD/notify insert
    told 'READY=1STATUS=waiting for INPUT at 127.0.0.1:6000'
    play
    wait_until eval 'head -c 1316 "$encoder" | socat -u - UDP-SENDTO:127.0.0.1:6000
        grep -q STATUS=inserting manager.out'
    finish insert || [ $? -eq 1 ]

    export TMUX_TMPDIR=$PWD
    tmux -f /dev/null new-session -d -x 120 -y 20 \
        kestan-insert 127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001
    wait_until eval 'tmux capture-pane -p | grep "2 s  INPUT 0 packets/s, 0 inserted/s"'
}
