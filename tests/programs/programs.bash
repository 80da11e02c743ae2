# To be loaded by tests of whole programs. What a test starts ends with it; a daemon that
# has ended before, or a sanitizer's report on standard error, fails it.
# shellcheck disable=SC2119,SC2120  # options may be left out

bats_require_minimum_version 1.5.0
PATH=$KESTAN_BIN:$PATH
declare -gA pid=()
daemon=(kestan)
small=$BATS_TEST_DIRNAME/../../examples/small.json

setup() { cd "$BATS_TEST_TMPDIR" || return; }

teardown() {
    local crashed=
    [ -z "${pid[kestan]:-}" ] || finish kestan KILL || [ $? -eq 137 ] || crashed=yes
    for name in "${!pid[@]}"; do finish "$name" KILL; done 2>/dev/null || true
    [[ $BATS_TEST_COMPLETED && ! $crashed ]] || tail -n 20 ./*.err 2>/dev/null || true
    if grep -sE 'Sanitizer|runtime error:' ./*.err || [ "$crashed" ]; then return 1; fi
}

needs_own_network() { [ "$KESTAN_OWN_NETWORK" ] || skip "no network namespace of our own"; }

needs_strace() { strace -o /dev/null true || skip "strace(1) is missing or may not trace"; }

# start <name> <command>...: as process ${pid[name]}, which writes name.out and name.err.
start() {
    "${@:2}" >"$1.out" 2>"$1.err" 3>&- &
    pid[$1]=$!
}

# finish <name> [signal]: ends it, with its exit status.
finish() {
    local process=${pid[$1]}
    unset "pid[$1]"
    kill "-${2:-TERM}" "$process" && wait "$process"
}

# stop <name>: ends it, as it would not by itself.
stop() { finish "$1" || [ $? -eq 143 ]; }

# wait_until <command>...: succeeds, for half a minute at most.
wait_until() {
    local end=$((SECONDS + 30))
    until "$@"; do ((SECONDS < end)) && sleep 0.02 || return 1; done
}

# says <name> <pattern>: waits until a line of name.err matches.
says() { wait_until grep -q -- "$2" "$1.err"; }

# listens <name> <port>: waits until that is so of TCP or UDP, in the process's network.
listens() {
    wait_until grep -qsE ": \w+:$(printf %04X "$2") \w+:0000 0[A7] " \
        "/proc/${pid[$1]}/net/"{tcp,tcp6,udp}
}

# play [option]...: a daemon that plays to this host and serves.
play() {
    start kestan "${daemon[@]}" -c -l6 -O 127.0.0.1/5432 "$@"
    listens kestan "${control_port:-9501}"
}

play_small() { play "$@" && kestan-control push "$small"; }

# watch [command that enters a network]...: has $stream measured until finds_nothing or
# `finish monitor INT`. The report is in monitor.out.
watch() {
    start monitor "$@" kestan-monitor "${stream:=127.0.0.1:5432}" --json --check \
        --clock-tolerance 0
    listens monitor "${stream#*:}"
}

# finds_nothing [seconds]: is outside the limits in a watch, the one begun or another, that
# goes on for so long. "ca_system_not_in_cat" as the second argument: the CAT is missing.
finds_nothing() {
    [ "${pid[monitor]:-}" ] || watch
    sleep "${1:-0}"
    finish monitor INT || reports "[.outside_limits[].rule] == [\"${2:-}\"]"
}

# reports <filter>: it holds of the report.
reports() {
    jq -e "$1" monitor.out >verdict && return
    jq -c '.pids[], .outside_limits' monitor.out && false
}

# capture <seconds>: of what comes to port 5432, to capture.ts.
capture() { timeout "$1" socat -u UDP-RECV:5432 CREATE:capture.ts || [ $? -eq 124 ]; }

# lay_link <interface> <its address> <the peer's>: to another network, which the
# command "${in_peer[@]}" enters. (Both ends have one MAC address, so that they need no ARP,
# for which the kernel holds packets back.)
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
