# The daemon while things around it fail or clients do what no control process does. It
# keeps its time and its memory, and serves the next client.
# shellcheck disable=SC2034,SC2154  # variables of programs.bash

load programs
readonly call='\x80\1\0\1\0\0\0\bClearCAT\0\0\0\1\0' framed='\0\0\0\x15'  # 21 bytes
readonly unversioned='\0\0\0\x12\0\0\0\bClearCAT\1\0\0\0\1\0'

next_client_is_served() { kestan-control clear-cat --timeout 2; }

# send <bytes>: on a connection of its own; what comes back is in `reply`.
send() {
    exec {server}<>/dev/tcp/127.0.0.1/9501
    printf %b "$1" >&"$server"
    timeout "${2:-0.1}" cat <&"$server" >reply || true
    exec {server}<&-
}

@test "withstands lengths that lie, in little memory" {
    play_small -l5
    watch
    for bytes in "\0\0\0\0$call" "\x7f\xff\xff\xff$call" "\x80\0\0\0$call" "\0\0" \
        "\xff\xff\xff\xff$call" "\0\xfa\0\0$call" "\0\0\0\x16$call" "\0\0\0\x14$call" \
        "\0\0\0\x19arAl$call" "$(printf '\\0%.0s' {1..1000})" \
        "\0\0\0\x15\x80\1\0\1\x60\0\0\0ClearCAT\0\0\0\1\0"; do
        send "$bytes"
    done
    next_client_is_served
    finds_nothing 0.6
    [ "$KESTAN_SANITIZE" ] ||
        awk '/VmHWM/ { exit $2 > 64 * 1024 }' "/proc/${pid[kestan]}/status"
}

@test "answers with the version word a client that leaves it out" {
    play
    send "$unversioned" 0.3
    cmp -n 8 reply <(printf '\0\0\0\x15\x80\1\0\2')
}

# A client keeps the others waiting, and no longer than it is there.
@test "withstands clients that die in a call, and one that never reads" {
    play_small -l5
    for bytes in '\0' "$framed\x80\1\0\1\0\0\0\bCle" "$framed${call%??}" "$framed$call"; do
        # shellcheck disable=SC2016  # for another shell
        run -137 bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501; printf %b "$0" >&4
            kestan-control clear-cat --timeout 0.3 || kill -KILL $$' "$bytes"
        next_client_is_served
    done
    watch
    start silent bash -c "exec 4<>/dev/tcp/127.0.0.1/9501
        for _ in {1..300}; do printf '%.s$framed$call' {1..1000}; done >&4"
    wait_until eval "ss -Htn sport = :9501 | grep -qE 'ESTAB +[0-9]+ +[0-9]{6}'"
    finds_nothing 0.6
    finish silent KILL || true
    next_client_is_served
}

# In the old cadence and without what was due in between. A link may take a second.
@test "plays on when its interface is back" {
    local stream=10.0.0.2:5432
    lay_link out0 10.0.0.1 10.0.0.2
    play_small -I out0 -O 10.0.0.2/5432
    for fault in "set out0 down" "del out0"; do
        watch "${in_peer[@]}"
        sleep 0.4
        xargs ip link <<<"$fault"
        sleep 1
        ip link set out0 up || lay_link out0 10.0.0.1 10.0.0.2
        sleep 2.5
        finish monitor INT || true  # it was without a PAT for too long
        reports '.pids[0].tables[0] |
            .repetition_ms.min > 20 and .longest_ms > 800 and .longest_ms < 2600'
        reports '[.pids[].continuity_errors] | max <= 1'
    done
}
