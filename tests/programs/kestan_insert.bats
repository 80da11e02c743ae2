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
}

# pace: writes the encoder's stream in datagrams of seven packets, at its bit rate.
pace() {
    /usr/bin/python3 - "$encoder" <<'END'
import sys, time
begin = time.monotonic()
with open(sys.argv[1], "rb") as stream, open(1, "wb", 0) as out:
    sent = 0
    while part := stream.read(1316):
        time.sleep(max(begin + sent * 8 / 1.5e6 - time.monotonic(), 0))
        sent += out.write(part)
END
}

# left_alone <file>: fails unless all packets but the slots are the encoder's, in their places, and
# nothing of the encoder's own tables is left.
left_alone() {
    /usr/bin/python3 - "$encoder" "$1" <<'END'
import sys
sent, left = (open(name, "rb").read() for name in sys.argv[1:])
assert len(sent) == len(left), (len(sent), len(left))
pids = lambda stream: [int.from_bytes(stream[at + 1:at + 3], "big") & 0x1FFF
                       for at in range(0, len(stream), 188)]
slots = {0, 0x11, 0x14, 0x1000, 0x1001, 0x1FFF}
differ = [at for at, pid in enumerate(pids(sent)) if pid not in slots and
          sent[at * 188:at * 188 + 188] != left[at * 188:at * 188 + 188]]
assert not differ, differ
assert {0, 0x11, 0x200, 0x201} <= set(pids(left)) and not {0x1000, 0x1001} & set(pids(left))
END
}

# is_complete <file>: its tables are those of the files, and every frame is there.
is_complete() {
    diff <(kestan-control import "$1" | jq -S .) <(jq -S . "$tables")
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
    play -b 500
    start insert kestan-insert 127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001 --json
    listens insert 5432
    start monitor kestan-monitor 127.0.0.1:6001 --json --record left.ts
    listens monitor 6001
    kestan-control push "$tables"
    sleep 0.5  # until Kestan's tables have come twice: none of the encoder's may pass
    export -f pace
    start encoder bash -c 'pace | socat -u -b 1316 - UDP-SENDTO:127.0.0.1:6000'
    sleep 2.5
    finish kestan KILL || [ $? -eq 137 ]
    play -b 500
    kestan-control push "$tables"
    wait "${pid[encoder]}"
    unset "pid[encoder]"
    wait_until eval '[ "$(stat -c %s left.ts)" -eq "$(stat -c %s "$encoder")" ]'
    finish monitor INT
    finish insert INT || [ $? -eq 1 ]  # the restart can look like a loss
    left_alone left.ts
    is_complete left.ts
    reports 'all(.pids[]; .continuity_errors == 0)'
    jq -e '([.dropped[]] | add) == 0 and .input.packets > 6000 and .inserted > 50 and
        (.pids | map(select(.pid == "0x1000")) | .[0].replaced > 10)' insert.out
}

@test "reads a pipe and writes one" {
    play -b 500
    kestan-control push "$tables"
    { sleep 1 && pace; } | kestan-insert - 127.0.0.1:5432 - >left.ts 2>insert.err
    left_alone left.ts
    is_complete left.ts
    grep ' 0 malformed, 0 lost here, 0 silences' insert.err
    head -c 1000 "$encoder" | kestan-insert - 127.0.0.1:5432 - >short.ts 2>short.err || [ $? -eq 1 ]
    [ "$(stat -c %s short.ts)" -eq 940 ]
}

@test "ends with status 2 when nobody reads its pipe any more" {
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
    start receiver /usr/bin/python3 -c 'if True:
        import socket
        group = socket.inet_aton("226.0.0.30") + socket.inet_aton("127.0.0.1")
        receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        receiver.bind(("226.0.0.30", 6001))
        receiver.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group)
        receiver.setsockopt(socket.IPPROTO_IP, 12, 1)  # IP_RECVTTL
        bytes, properties, *_ = receiver.recvmsg(2000, 100)
        print(len(bytes), int.from_bytes(properties[0][2], "little"))'
    listens receiver 6001
    head -c 1316 "$encoder" |
        socat -u -b 1316 - UDP-SENDTO:226.0.0.20:6000,ip-multicast-if=127.0.0.1
    wait_until grep -x '1316 4' receiver.out
    finish insert || [ $? -eq 1 ]
    unset "pid[receiver]"
}

@test "says what stops it, and what came not" {
    while IFS='|' read -r status said arguments; do
        # shellcheck disable=SC2086  # several of them
        run "-$status" kestan-insert $arguments
        [[ $output == *"$said"* ]]
    done <<END
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
}

@test "goes on when it cannot send, and says so once" {
    needs_own_network
    : >journal
    JOURNAL_STREAM=$(stat -c %d:%i journal) kestan-insert - 127.0.0.1:5432 192.0.2.1:6001 \
        <"$encoder" >report 2>journal || [ $? -eq 1 ]
    [ "$(grep -c '^<3>kestan-insert: cannot send to 192.0.2.1:6001: Network is' journal)" -eq 1 ]
    grep -E 'OUTPUT +[0-9]{4} datagrams could not be sent' report
}

@test "tells the service manager what it waits for, and a terminal how it goes on" {
    start manager socat -u UNIX-RECV:notify -
    wait_until [ -S notify ]
    NOTIFY_SOCKET=$PWD/notify start insert kestan-insert 127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001
    wait_until grep -q 'READY=1STATUS=waiting for INPUT at 127.0.0.1:6000' manager.out
    play
    wait_until eval 'head -c 1316 "$encoder" | socat -u - UDP-SENDTO:127.0.0.1:6000
        grep -q STATUS=inserting manager.out'
    finish insert || [ $? -eq 1 ]

    export TMUX_TMPDIR=$PWD
    tmux -f /dev/null new-session -d -x 120 -y 20 \
        kestan-insert 127.0.0.1:6000 127.0.0.1:5432 127.0.0.1:6001
    wait_until eval 'tmux capture-pane -p | grep "2 s  INPUT 0 packets/s, 0 inserted/s"'
    tmux kill-server
}
