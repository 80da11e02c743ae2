# Tests of whole programs load this file. Processes that a test starts end with it. The test
# fails if a daemon has ended before, or if a sanitizer has written a report to standard error.
# shellcheck disable=SC2034,SC2119,SC2120,SC2154  # variables of tests, options left out

bats_require_minimum_version 1.5.0
PATH=$KESTAN_BIN:$PATH
declare -gA pid=()
daemon=(kestan)
small=$BATS_TEST_DIRNAME/../../examples/small.json
schema=$BATS_TEST_DIRNAME/../../tools/kestan-monitor/report/kestan-monitor.schema.json

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    unset STATE_DIRECTORY TMUX
    export XDG_STATE_HOME=$PWD/state
}

teardown() {
    local crashed=
    [ -z "${pid[kestan]:-}" ] || crash kestan || crashed=yes
    for name in "${!pid[@]}"; do finish "$name" KILL; done 2>/dev/null || true
    env -u TMUX TMUX_TMPDIR="$PWD" tmux kill-server 2>/dev/null || true
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

# await <name>: waits for the process's end and returns its exit status.
await() {
    local process=${pid[$1]}
    unset "pid[$1]"
    wait "$process"
}

# finish <name> [signal]: ends the process and returns its exit status.
finish() { kill "-${2:-TERM}" "${pid[$1]}" && await "$1"; }

# stop, crash <name>: ends a process with SIGTERM or SIGKILL. Fails if it has ended before.
stop() { finish "$1" || [ $? -eq 143 ]; }
crash() { finish "$1" KILL || [ $? -eq 137 ]; }

# exits <status> <text> <command>...: the command must end with the status and print the text.
exits() { run "-$1" "${@:3}" && [[ $output == *"$2"* ]]; }

# all_exit <program>: the same for each line "status|text|arguments" of standard input.
all_exit() {
    local status text arguments
    while IFS='|' read -r status text arguments; do
        # shellcheck disable=SC2086  # several of them
        exits "$status" "$text" "$1" $arguments
    done
}

# wait_until <command>...: waits until the command succeeds, half a minute at most.
wait_until() {
    local end=$((SECONDS + 30))
    until "$@"; do ((SECONDS < end)) && sleep 0.02 || return 1; done
}

# says <name> <pattern>: waits until a line of name.err matches.
says() { wait_until grep -q -- "$2" "$1.err"; }

# prints <name> <text> [times]: waits until name.out has as many lines with the text.
prints() { wait_until has_printed "$@"; }
has_printed() { (($(grep -cF -- "$2" "$1.out") >= ${3:-1})); }

# logged <times> <pattern>: this number of lines of the daemon's log must match.
logged() { [ "$(grep -c -- "$2" kestan.err)" -eq "$1" ]; }

# manage: starts a service manager at $PWD/notify; told <pattern>: waits until it has been told.
manage() { start manager socat -u UNIX-RECV:notify - && wait_until [ -S notify ]; }
told() { wait_until grep -q -- "$1" manager.out; }

# listens <name> <port>: waits until the process listens on the TCP or UDP port.
listens() {
    wait_until grep -qsE ": \w+:$(printf %04X "$2") \w+:0000 0[A7] " \
        "/proc/${pid[$1]}/net/"{tcp,tcp6,udp}
}

# memory <name> <value>: prints a value of the process's memory in kB: VmRSS, or VmHWM, its peak.
memory() { awk "/$2/ { print \$2 }" "/proc/${pid[$1]}/status"; }

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

# watch: starts a monitor, which runs until finds_nothing or `finish monitor INT` and writes its
# report to monitor.out.
watch() {
    start monitor kestan-monitor 127.0.0.1:5432 --json --check --clock-tolerance 0
    listens monitor 5432
}

# receives_more <datagrams>: waits until the monitor has read as many more. The kernel counts a
# datagram when it is read.
receives_more() { wait_until has_received $(($(received) + $1)); }
received() { awk '/^Udp: [0-9]/ { print $2 }' /proc/net/snmp; }
has_received() { (($(received) >= $1)); }

# finds_nothing <seconds>: fails if the monitor that runs has found a fault after this time.
finds_nothing() {
    sleep "$1"
    finish monitor INT || reports '.outside_limits == []'
}

# reports <filter>: jq's filter must be true of the report.
reports() {
    jq -e "$1" monitor.out >verdict && return
    jq -c '.pids[], .outside_limits' monitor.out && false
}

is_valid() { /usr/bin/python3 -W ignore -m jsonschema -i "$1" "$2"; }  # <report> <schema>

# capture <seconds>: writes what comes to port 5432 to capture.ts.
capture() { timeout "$1" socat -u UDP-RECV:5432 CREATE:capture.ts || [ $? -eq 124 ]; }

# has_tables <capture> <file>: the capture must have the file's tables, and no others. An import
# writes the original_network_id in decimal digits.
has_tables() {
    diff <(kestan-control import "$1" | jq -S .) <(sed 's/"0xFF01"/65281/' "$2" | jq -S .)
}

# on_air <file>: the file's tables must be on air, and no others.
on_air() { capture 1.3 && has_tables capture.ts "$1"; }

# lay_link <interface> <its address> <the peer's>: makes a link to another network, which the
# command "${in_peer[@]}" enters. Both ends have the same MAC address: then they need no ARP,
# during which the kernel delays packets.
lay_link() {
    needs_own_network
    start peer unshare -n sleep 300
    wait_until grep -q sleep "/proc/${pid[peer]}/comm"
    in_peer=(nsenter -t "${pid[peer]}" -n)
    local end=(address 02:00:00:00:00:01 arp off)
    ip link add "$1" "${end[@]}" type veth peer name peer "${end[@]}" netns "${pid[peer]}"
    "${in_peer[@]}" ip addr add "$3" peer "$2" dev peer
    "${in_peer[@]}" ip link set peer up
    ip addr add "$2" peer "$3" dev "$1"
    ip link set "$1" up
}
