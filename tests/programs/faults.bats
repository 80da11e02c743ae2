# Faults around the daemon: what it shows of each, and that docs/operating.md leads to the cause.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

setup() {
    needs_own_network
    cd "$BATS_TEST_TMPDIR" || return
}

# leads <what one sees> <words>...: one row of the guide's tables has them all.
leads() {
    local rows word
    rows=$(grep '^|' "$BATS_TEST_DIRNAME/../../docs/operating.md")
    for word in "$@"; do rows=$(grep -F -- "$word" <<<"$rows"); done
}

# play_to <destination> [option]...: starts a daemon that plays there.
play_to() {
    start kestan kestan -O "$@"
    listens kestan 9501
}

# sends: what the kernel answers to the next datagram, as the guide has it: a size or an errno.
sends() {
    needs_strace
    timeout 20 strace -e sendto -p "${pid[kestan]}" 2>&1 |
        sed -nE '/^sendto.* = -1 /{s/.* = -1 (E[A-Z]+).*/\1/p;q}; /^sendto.*5432/{s/.* = //p;q}'
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
    while read -r destination error; do
        play_to "$destination"
        [ "$(sends)" = "$error" ]
        leads "\`$error\`"
        stop kestan
    done <<'END'
192.0.2.1/5432 ENETUNREACH
10.0.0.300/5432 ENETUNREACH
127.255.255.255/5432 EACCES
127.0.0.1/0 EINVAL
END
    leads '`ENETUNREACH`' 'ip route get'
    run -2 ip route get 192.0.2.1
}

# Of a group, what arrives in the peer is counted.
@test "the wrong interface, or none" {
    lay_link out 10.1.0.1 10.1.0.2
    local monitor=("${in_peer[@]}" kestan-monitor 226.0.0.1:5432 -i peer --json -d)
    leads 'ioctl(SIOCGIFADDR) failed' 'ip -4 address'
    exits 1 'ioctl(SIOCGIFADDR) failed' kestan -c -O 226.0.0.1/5432 -I ethInt.100
    ip route add 224.0.0.0/4 dev lo
    play_to 226.0.0.1/5432
    "${monitor[@]}" 2 | jq -e '.datagrams == 0'
    leads 'the wrong interface' 'ip route get' 'ip -s link'
    [[ $(ip route get 226.0.0.1) == *" dev lo "* ]]
    stop kestan
    play_to 226.0.0.1/5432 -I out
    "${monitor[@]}" 4 | jq -e '.datagrams > 0'
}

@test "a destination that does not answer ARP, which sendto does not show" {
    lay_link out 10.1.0.1 10.1.0.2
    ip link set out arp on
    ip route add 10.1.0.77 dev out
    play_to 10.1.0.77/5432
    [ "$(sends)" = 188 ]
    leads ARP 'ip neigh show' '`FAILED` or `INCOMPLETE`'
    [[ $(ip neigh show 10.1.0.77) =~ FAILED|INCOMPLETE ]]
}

# counts <counter> [command that enters a network]...: the kernel has counted something.
counts() { "${@:2}" nstat -asz "$1" | grep -qE "^$1 +[1-9]"; }

@test "a TTL of 1 over a router" {
    lay_link out 10.1.0.1 10.1.0.2
    "${in_peer[@]}" sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'
    "${in_peer[@]}" ip route add 10.2.0.2 via 10.1.0.1
    ip route add 10.2.0.2 via 10.1.0.2
    play_to 10.2.0.2/5432
    leads TTL 'ip route get' '`via …`' 'nstat -asz IcmpInTimeExcds'
    [[ $(ip route get 10.2.0.2) == *" via 10.1.0.2 "* ]]
    wait_until counts IcmpInTimeExcds
    run -1 counts IpForwDatagrams "${in_peer[@]}"
    stop kestan
    play_to 10.2.0.2/5432 -t 2
    wait_until counts IpForwDatagrams "${in_peer[@]}"
}

@test "a control port that another program has" {
    start other socat TCP-LISTEN:9501,reuseaddr -
    listens other 9501
    local error='Mux server EXCEPTION: Could not bind: Address already in use'
    # The server's thread may not have its name yet: the level and the text count.
    run -1 timeout 20 kestan -c -O 127.0.0.1/5432
    [[ $output == *" ERROR "*": $error"* ]]
    leads "$error" "ss -ltnp 'sport = :9501'"
    [[ $(ss -ltnp 'sport = :9501') == *'"socat",pid='"${pid[other]}"* ]]
}

@test "a client that holds the control port" {
    play
    hold
    local error='did not answer newScramblingConfig' ends='( sport = :9501 or dport = :9501 )'
    exits 1 "$error" kestan-control --timeout 1 push "$small"
    leads "only the TDT" "$error" "ss -tnp '$ends'"
    [[ $(ss -tnp "$ends") == *'"cat",pid='"${pid[holder]}"* ]]
}

# has_bit_rate <kbit/s>: a second of the stream has this rate, which a busy machine can spoil.
has_bit_rate() {
    kestan-monitor 127.0.0.1:5432 -d 1 --json >monitor.out
    jq -e ".bit_rate / 1000 / $1 | . > 0.9 and . < 1.1" monitor.out
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

@test "a bit rate that is too small, which Kestan fills and does not exceed" {
    jq -n '{pmts: [range(1; 81) | {pid: 256, program_number: ., pcr_pid: 8191, version_number: 0,
        descriptors: [range(3) | {tag: 128, data: ("00" * 250)}]}]}' >3_mbps.json
    for kbps in 1000 300; do
        play "${options[@]}"
        kestan-control push 3_mbps.json
        wait_until has_bit_rate "$kbps"
        reports '[.outside_limits[].check] | index("repetition")'
        exits 1 "error: the tables need" kestan-control check --bitrate "$kbps" 3_mbps.json
        stop kestan
        options=(-b 300)
    done
    leads '`repetition`' 'the bit rate is too small' 'kestan-control check --bitrate'
}
