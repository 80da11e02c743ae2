# The daemon while things around it fail or clients do what no control process does, and
# what its receivers notice of that. Whatever it is, the daemon keeps its time and its
# memory, and serves the next client.
# shellcheck disable=SC2016,SC2034,SC2154  # for other shells, variables of programs.bash

load programs
readonly call='\x80\1\0\1\0\0\0\bClearCAT\0\0\0\1\0' framed='\0\0\0\x15'  # 21 bytes
readonly without_pat='.pids[0].tables[0].longest_ms'

next_client_is_served() { kestan-control clear-cat --timeout 2; }

memory_kb() { awk -v what="$1:" '$1 == what { print $2 }' "/proc/${pid[kestan]}/status"; }

# withstand <attack>: twice, since what the daemon allocates for the first time it keeps.
withstand() {
    play_small -l5
    "$1"
    next_client_is_served
    before_kb=$(memory_kb VmRSS)
    watch
    "$1"
    next_client_is_served
    finds_nothing 0.6
    grown_kb=$(($(memory_kb VmRSS) - before_kb))
    figure "$1: $grown_kb KB more; longest time without a PAT, ms" "$without_pat"
    [ "$KESTAN_SANITIZE" ] || ((grown_kb < 1024 && $(memory_kb VmHWM) < 64 * 1024))
}

lie_about_lengths() {
    for bytes in "\0\0\0\0$call" "\x7f\xff\xff\xff$call" "\x80\0\0\0$call" "\0\0" \
        "\xff\xff\xff\xff$call" "\0\xfa\0\0$call" "\0\0\0\x16$call" "\0\0\0\x14$call" \
        "\0\0\0\x19arAl$call" "$(printf '\\0%.0s' {1..1000})"; do
        exec {server}<>/dev/tcp/127.0.0.1/9501
        printf %b "$bytes" >&"$server"
        timeout 0.1 cat <&"$server" >reply || true
        exec {server}<&-
    done
}

# It keeps the others waiting, and no longer than it is there.
die_in_the_middle_of_a_call() {
    for bytes in '\0' "$framed\x80\1\0\1\0\0\0\bCle" "$framed${call%??}" "$framed$call"; do
        run -137 bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501; printf %b "$0" >&4
            kestan-control clear-cat --timeout 0.3 || kill -KILL $$' "$bytes"
        next_client_is_served
    done
}

# And stays when the daemon has no more room for its answers.
never_read_replies() {
    printf "%.s$framed$call" {1..1000} >calls
    start silent bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501
        exec cat $(yes calls | head -2000) >&4'
    wait_until eval "ss -Htn sport = :9501 | grep -qE 'ESTAB +[0-9]+ +[0-9]{6}'"
    sleep 1
    finish silent KILL || true
}

# Every other connection ends with a reset, since nobody has read the answer. (In a shell
# of its own, which bats does not trace.)
connect_ten_thousand_times() {
    bash -c 'for i in {1..10000}; do
        exec 4<>/dev/tcp/127.0.0.1/9501
        ((i % 2)) || printf %b "$0" >&4
    done' "$framed$call"
}

@test "withstands lengths that lie" { withstand lie_about_lengths; }
@test "withstands clients that die in a call" { withstand die_in_the_middle_of_a_call; }
@test "withstands a client that never reads" { withstand never_read_replies; }
@test "withstands ten thousand connects" { withstand connect_ten_thousand_times; }

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
        finish monitor INT || figure "$fault: without a PAT for, ms" "$without_pat"
        reports '.pids[0].tables[0] |
            .repetition_ms.min > 20 and .longest_ms > 800 and .longest_ms < 2600'
        reports '[.pids[].continuity_errors] | max <= 1'
    done
}

refusals() { nstat -asz IcmpOutDestUnreachs | awk '/Unreach/ { print int($2) }'; }

# The host answers each datagram with "port unreachable" until somebody listens.
@test "plays on when the destination refuses" {
    play_small
    wait_until eval "((\$(refusals) > $(refusals) + 20))"
    finds_nothing 1.5
}

# A board that wakes up decades ago sends no TDT until its clock is set. From then on the
# TDT shows the new time at its next repetition, and nothing else happens.
@test "shows the civil time whatever it is set to" {
    local daemon=(kestan_on_settable_clock) long_ago_s=$((-50 * 365 * 86400))
    echo "$long_ago_s" >offset
    KESTAN_TEST_CLOCK=$PWD/offset play_small
    for offset_s in $long_ago_s 0 $((5 * 3600)) $((-7 * 3600)); do
        echo "$offset_s" >new
        mv new offset  # in one step: the daemon may be reading it
        finds_nothing 1.6
        reports "[.pids[] | select(.pid == 20 and .packets > 0).tables[0].utc
            | strptime(\"%F %T\") | mktime - (now + $offset_s) | . > -3 and . < 1]
            == if $offset_s == $long_ago_s then [] else [true] end"
    done
}

@test "makes up for having stood still" {
    play_small
    watch
    sleep 0.4
    kill -STOP "${pid[kestan]}"
    sleep 3
    kill -CONT "${pid[kestan]}"
    sleep 1.5
    finish monitor INT || figure "stopped for 3 s: without a PAT for, ms" "$without_pat"
    reports '[.outside_limits[].check] | unique == ["repetition", "section_gap", "silence"]'
    reports '.pids[0].tables[0].repetition_ms | .max > 2500 and .max < 3400 and .mean < 230'
    finds_nothing 1.5
}

# Neither keeps the stream waiting. A control call, which logs, waits for a log daemon that
# does not read, as syslog(3) does.
@test "plays on when the system log is never read or away" {
    mkdir dev
    daemon=(unshare -m sh -c "mount --bind $PWD/dev /dev && exec \"\$@\"" sh)
    "${daemon[@]}" true || skip "no mount namespaces"
    daemon+=(kestan)
    start log socat -u UNIX-RECV:dev/log CREATE:lines
    wait_until [ -S dev/log ]
    play_small
    kill -STOP "${pid[log]}"
    watch
    wait_until run -1 kestan-control clear-cat --timeout 1
    finds_nothing 0.6
    kill -CONT "${pid[log]}"
    next_client_is_served
    wait_until grep -aq '<30>[^<]*Forced output address\.' lines  # LOG_DAEMON, LOG_INFO
    stop log
    rm -f dev/log
    watch
    next_client_is_served
    finds_nothing 1
}
