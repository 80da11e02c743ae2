# Tests of whole programs load this file. Processes that a test starts end with it. The test
# fails if a daemon has ended before, or if a sanitizer has written a report to standard error.
# shellcheck disable=SC2119,SC2120  # options may be left out

bats_require_minimum_version 1.5.0
PATH=$KESTAN_BIN:$PATH
declare -gA pid=()
daemon=(kestan)
small=$BATS_TEST_DIRNAME/../../examples/small.json

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    unset STATE_DIRECTORY
    export XDG_STATE_HOME=$PWD/state
}

teardown() {
    local crashed=
    [ -z "${pid[kestan]:-}" ] || finish kestan KILL || [ $? -eq 137 ] || crashed=yes
    for name in "${!pid[@]}"; do finish "$name" KILL; done 2>/dev/null || true
    [[ $BATS_TEST_COMPLETED && ! $crashed ]] || tail -n 20 ./*.err 2>/dev/null || true
    if grep -sE 'Sanitizer|runtime error:' ./*.err || [ "$crashed" ]; then return 1; fi
}

needs_own_network() { [ "$KESTAN_OWN_NETWORK" ] || skip "no separate network namespace"; }

needs_strace() { strace -o /dev/null true || skip "strace(1) is missing or may not trace"; }

# start <name> <command>...: starts process ${pid[name]}, which writes name.out and name.err.
start() {
    "${@:2}" >"$1.out" 2>"$1.err" 3>&- &
    pid[$1]=$!
}

# finish <name> [signal]: ends the process and returns its exit status.
finish() {
    local process=${pid[$1]}
    unset "pid[$1]"
    kill "-${2:-TERM}" "$process" && wait "$process"
}

# stop <name>: ends a process with SIGTERM. Fails if it has ended before.
stop() { finish "$1" || [ $? -eq 143 ]; }

# wait_until <command>...: waits until the command succeeds, half a minute at most.
wait_until() {
    local end=$((SECONDS + 30))
    until "$@"; do ((SECONDS < end)) && sleep 0.02 || return 1; done
}

# says <name> <pattern>: waits until a line of name.err matches.
says() { wait_until grep -q -- "$2" "$1.err"; }

# listens <name> <port>: waits until the process listens on the TCP or UDP port.
listens() {
    wait_until grep -qsE ": \w+:$(printf %04X "$2") \w+:0000 0[A7] " \
        "/proc/${pid[$1]}/net/"{tcp,tcp6,udp}
}

# play [option]...: starts a daemon that plays to this host, and waits until it serves.
play() {
    start kestan "${daemon[@]}" -c -l6 -O 127.0.0.1/5432 "$@"
    listens kestan "${control_port:-9501}"
}

play_small() { play "$@" && kestan-control push "$small"; }

# hold: occupies the only connection to kestan until `stop holder`.
hold() {
    start holder bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501
        printf "\0\0\0\x20\x80\1\0\1\0\0\0\x13newScramblingConfig\0\0\0\1\0" >&4
        exec cat <&4'
    wait_until [ -s holder.out ]  # the answer
}

# watch [command that enters a network]...: starts a monitor of $stream, which runs until
# finds_nothing or `finish monitor INT` and writes its report to monitor.out.
watch() {
    start monitor "$@" kestan-monitor "${stream:=127.0.0.1:5432}" --json --check \
        --clock-tolerance 0
    listens monitor "${stream#*:}"
}

# receives_more <datagrams>: waits until the monitor has read as many more. The kernel counts a
# datagram when it is read.
receives_more() { wait_until has_received $(($(received) + $1)); }
received() { awk '/^Udp: [0-9]/ { print $2 }' /proc/net/snmp; }
has_received() { (($(received) >= $1)); }

# finds_nothing [seconds] [rule]: fails if a monitor, the one that runs or a new one, finds a
# fault within this time. With a rule, such as "ca_system_not_in_cat", exactly this fault is
# expected.
finds_nothing() {
    [ "${pid[monitor]:-}" ] || watch
    sleep "${1:-0}"
    finish monitor INT || reports "[.outside_limits[].rule] == [\"${2:-}\"]"
}

# reports <filter>: jq's filter must be true of the report.
reports() {
    jq -e "$1" monitor.out >verdict && return
    jq -c '.pids[], .outside_limits' monitor.out && false
}

# capture <seconds>: writes what comes to port 5432 to capture.ts.
capture() { timeout "$1" socat -u UDP-RECV:5432 CREATE:capture.ts || [ $? -eq 124 ]; }

# lay_link <interface> <its address> <the peer's>: makes a link to another network, which the
# command "${in_peer[@]}" enters. Both ends have the same MAC address: then they need no ARP,
# during which the kernel delays packets.
lay_link() {
    needs_own_network
    [ "${pid[peer]:-}" ] || start peer unshare -n sleep 300
    wait_until grep -q sleep "/proc/${pid[peer]}/comm"
    in_peer=(nsenter -t "${pid[peer]}" -n)
    local end=(address 02:00:00:00:00:01 arp off)
    ip link add "$1" "${end[@]}" type veth peer name peer "${end[@]}" netns "${pid[peer]}"
    "${in_peer[@]}" ip addr add "$3" peer "$2" dev peer
    "${in_peer[@]}" ip link set peer up
    ip addr add "$2" peer "$3" dev "$1"
    ip link set "$1" up
}
