# Faults around the daemon: what it shows of each, and that docs/operating.md leads to the cause.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

guide=$BATS_TEST_DIRNAME/../../docs/operating.md

setup() {
    needs_own_network
    cd "$BATS_TEST_TMPDIR" || return
}

# leads <what one sees> <words>...: one row of the guide's tables has them all.
leads() {
    local rows word
    rows=$(grep '^|' "$guide")
    for word in "$@"; do rows=$(grep -F -- "$word" <<<"$rows"); done
}

# sends: what the kernel answers to the next datagram, as the guide has it: a size or an errno.
sends() {
    needs_strace
    timeout 20 strace -e sendto -p "${pid[kestan]}" 2>&1 |
        sed -nE '/^sendto.* = -1 /{s/.* = -1 (E[A-Z]+).*/\1/p;q}; /^sendto.*5432/{s/.* = //p;q}'
}

# arrives <seconds> <interface> <command that enters a network>...: a monitor there receives
# something of $stream.
arrives() {
    run "${@:3}" kestan-monitor "$stream" -i "$2" -d "$1" --json
    jq -e '.datagrams > 0' <<<"$output"
}

# lay_far_link: behind the peer of lay_link, which becomes a router, a network 10.2.0.0/24 that
# "${in_far[@]}" enters.
lay_far_link() {
    lay_link out 10.1.0.1 10.1.0.2
    start far unshare -n sleep 300
    wait_until grep -q sleep "/proc/${pid[far]}/comm"
    in_far=(nsenter -t "${pid[far]}" -n)
    "${in_peer[@]}" sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'
    "${in_peer[@]}" ip link add near type veth peer name far netns "${pid[far]}"
    "${in_peer[@]}" ip addr add 10.2.0.1/24 dev near
    "${in_peer[@]}" ip link set near up
    "${in_far[@]}" ip addr add 10.2.0.2/24 dev far
    "${in_far[@]}" ip link set far up
    ip route add 10.2.0.0/24 via 10.1.0.2
}

@test "a packet filter that drops the output" {
    command -v nft || skip "nft(8) is not installed"
    nft -f - <<<'table inet fault { chain out {
        type filter hook output priority 0; udp dport 5432 drop; }; }' || skip "nft may not filter"
    play
    leads "\`$(sends)\`" 'nft list ruleset' 'hook output'
    run nft list ruleset
    [[ $output == *"hook output"*"udp dport 5432 drop"* ]]
    nft delete table inet fault
    [ "$(sends)" = 188 ]
}

@test "no route, and addresses that cannot be a destination" {
    local case
    for case in 192.0.2.1/5432=ENETUNREACH 10.0.0.300/5432=ENETUNREACH \
        127.255.255.255/5432=EACCES 127.0.0.1/0=EINVAL; do
        start kestan kestan -O "${case%=*}"
        listens kestan 9501
        [ "$(sends)" = "${case#*=}" ]
        leads "\`${case#*=}\`"
        stop kestan
    done
    leads '`ENETUNREACH`' 'ip route get'
    run -2 ip route get 192.0.2.1
}

@test "the wrong interface, or none" {
    lay_link out 10.1.0.1 10.1.0.2
    stream=226.0.0.1:5432
    leads 'ioctl(SIOCGIFADDR) failed' 'ip -4 address'
    run -1 kestan -c -O 226.0.0.1/5432 -I ethInt.100
    [[ $output == *'ioctl(SIOCGIFADDR) failed'* ]]

    ip route add 224.0.0.0/4 dev lo
    start kestan kestan -O 226.0.0.1/5432
    listens kestan 9501
    run -1 arrives 2 peer "${in_peer[@]}"
    leads 'the wrong interface' 'ip route get' 'ip -s link'
    [[ $(ip route get 226.0.0.1) == *" dev lo "* ]]
    stop kestan
    start kestan kestan -O 226.0.0.1/5432 -I out
    arrives 4 peer "${in_peer[@]}"
}

@test "a destination that does not answer ARP, which sendto does not show" {
    lay_link out 10.1.0.1 10.1.0.2
    ip link set out arp on
    ip route add 10.1.0.77 dev out
    start kestan kestan -O 10.1.0.77/5432
    listens kestan 9501
    [ "$(sends)" = 188 ]
    leads ARP 'ip neigh show' '`FAILED` or `INCOMPLETE`'
    [[ $(ip neigh show 10.1.0.77) =~ FAILED|INCOMPLETE ]]
}

@test "a TTL of 1 over a router" {
    lay_far_link
    stream=10.2.0.2:5432
    start kestan kestan -O 10.2.0.2/5432
    listens kestan 9501
    run -1 arrives 3 far "${in_far[@]}"
    leads TTL 'ip route get' '`via …`' 'nstat -asz IcmpInTimeExcds'
    [[ $(ip route get 10.2.0.2) == *" via 10.1.0.2 "* ]]
    run nstat -asz IcmpInTimeExcds
    [[ $output =~ IcmpInTimeExcds\ +[1-9] ]]
    stop kestan
    start kestan kestan -O 10.2.0.2/5432 -t 2
    arrives 4 far "${in_far[@]}"
}

@test "a control port that another program has" {
    start other socat TCP-LISTEN:9501,reuseaddr -
    listens other 9501
    run -1 kestan -c -O 127.0.0.1/5432
    local error='Mux server EXCEPTION: Could not bind: Address already in use'
    [[ $output == *"$error"* ]]
    leads "$error" "ss -ltnp 'sport = :9501'"
    [[ $(ss -ltnp 'sport = :9501') == *'"socat",pid='"${pid[other]}"* ]]
}

@test "a client that holds the control port" {
    play
    start other bash -c 'exec 3>/dev/tcp/127.0.0.1/9501 && echo >&3 && exec sleep 100'
    wait_until grep -q sleep "/proc/${pid[other]}/comm"
    run -1 kestan-control --timeout 1 push "$small"
    local error='did not answer newScramblingConfig' ends='( sport = :9501 or dport = :9501 )'
    [[ $output == *"$error"* ]]
    leads "only the TDT" "$error" "ss -tnp '$ends'"
    [[ $(ss -tnp "$ends") == *'"sleep",pid='"${pid[other]}"* ]]
}

@test "a clock that is not set" {
    [ -z "$KESTAN_SANITIZE" ] || skip "a sanitizer wants to be the first library"
    c++ -shared -fPIC -o clock.so -x c++ - <<'END'
#include <sys/syscall.h>
#include <sys/timex.h>
#include <unistd.h>
#include <ctime>
extern "C" int adjtimex(timex* state) noexcept { return state->status = STA_UNSYNC; }
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME) time->tv_sec = 0;
    return static_cast<int>(result);
}
END
    LD_PRELOAD=$PWD/clock.so play_small
    kestan-monitor 127.0.0.1:5432 -d 3 --json >monitor.out
    reports '[.pids[] | select(.pid == 0 or .pid == 20) | .packets > 0] == [true, false]'
    leads 'no TDT' 'before the year in which Kestan was built' '`date`' timedatectl
    [ "$(LD_PRELOAD=$PWD/clock.so date +%Y)" = 1970 ]
}

@test "a bit rate that is too small" {
    jq '[range(60) | {pid: (6000 + .), program_number: (2000 + .)}] as $more
        | .pat.programs += $more
        | .pmts += [$more[] + {version_number: 0, pcr_pid: 8191, streams: []}]' "$BATS_TEST_DIRNAME/../../examples/large.json" >many.json
    play -b 100
    kestan-control push many.json >push.out
    watch
    sleep 3
    finish monitor INT || [ $? -eq 1 ]
    reports '[.outside_limits[].check] | index("repetition")'
    leads '`repetition`' 'the bit rate is too small' 'kestan-control check --bitrate'
    run -1 kestan-control check --bitrate 100 many.json
    [[ $output == *"error: "*kbit/s* ]]
}
