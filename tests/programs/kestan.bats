# The daemon as a whole: what its user sees of it on the command line, on the wire and in
# the log.
# shellcheck disable=SC2016,SC2030,SC2031,SC2034,SC2154  # for other shells or tests

load programs
readonly to_here=(-O 127.0.0.1/5432)

# hears <socat's address> [command that enters a network]...: waits for a transport packet.
hears() { timeout 20 "${@:2}" socat -u "$1" - | head -c 1 | grep -q G; }  # 0x47

# hears_ttl <ttl> <socat's address>: the first datagram must have this TTL.
hears_ttl() {
    run -0 timeout 20 socat -u "$2,ip-recvttl" SYSTEM:'env | grep ^SOCAT_IP_TTL'
    [ "$output" = "SOCAT_IP_TTL=$1" ]
}

@test "says what is wrong in its own words" {
    local range="parameter range error:" hint="Try \`kestan --help' for more information."
    while IFS='|' read -r options said; do
        read -ra options <<<"$options"
        run -1 --separate-stderr kestan "${options[@]}"
        echo "kestan ${options[*]}: $output$stderr"
        # shellcheck disable=SC2053  # a pattern
        [[ -z $output && $stderr == ${said/; /$'\n'} ]]
    done <<END
-s 2|$range set must be <= 1
-s -1|$range set must be >= 0
-s 4294967296|$range set must be <= 1
-l 2|$range level must be >= 3
--level 8|$range level must be <= 7
-b 300 --bitrate=x|$range bitrate must be >= 100
-b 100001|$range bitrate must be <= 100000
-t 0 -h|$range ttl must be >= 1
-v -t 256|$range ttl must be <= 255
-x|kestan: invalid option -- 'x'; $hint
--ttl|kestan: option '--ttl' requires an argument; $hint
-O 1.2.3.4|$hint
-O 1.2.3/80|$hint
-c -O 1.2.3/80|* ERROR kestan: Unable to parse output address.; $hint
-c -I nosuchinterface123|* ERROR kestan: ioctl(SIOCGIFADDR) failed
END
}

@test "ends with status 1 when the system refuses what it needs" {
    needs_strace
    export ASAN_OPTIONS=detect_leaks=0  # which needs ptrace(2), too
    while IFS='|' read -r calls options said; do
        read -ra options <<<"$options"
        run -1 timeout 20 strace -fo /dev/null -e "inject=$calls" kestan -c "${options[@]}"
        echo "$calls: $output"
        [[ $output == *" ERROR kestan: $said" ]]
    done <<END
socket:error=EMFILE:when=1|${to_here[*]}|Unable to open socket.
setsockopt:error=EPERM:when=1|${to_here[*]}|Unable to configure output TTL.
setsockopt:error=EPERM:when=2|-I lo -O 226.0.0.10/5432|setsockopt(IP_MULTICAST_IF) failed
clone,clone3:error=EAGAIN|${to_here[*]}|Can't launch Mux server. EXCEPTION: Resource temporarily unavailable
END
}

# Any change of the usage text changes its checksum.
@test "prints version and usage" {
    run -0 --separate-stderr kestan -s abc -t 255 -v -O nonsense
    [[ $output == $'\nVersion: 2.10.1+d20260615' && -z $stderr ]]
    run -0 --separate-stderr kestan -v -h -t 0
    [[ $(cksum <<<"$output") == "511980599 1181" && -z $stderr ]]
}

@test "resolves the destination and reaches it and a group with the TTL" {
    needs_own_network
    play -t 9 -O 127.000.000.001/54321
    says kestan "Out Address:127.0.0.1/5432 TTL 9 $"
    hears_ttl 9 UDP-RECVFROM:5432
    stop kestan
    play -t7 -Ilo -O "226.0.0.10/5432 ethInt"
    says kestan "INFORMATION kestan: Forced output address.$"
    says kestan "Out Address:226.0.0.10/5432 TTL 7 lo$"
    says kestan "Interface Address: 127.0.0.1$"
    hears_ttl 7 UDP-RECVFROM:5432,ip-add-membership=226.0.0.10:127.0.0.1
}

@test "plays to the FPGA and serves every address by default" {
    lay_link ethInt.100 192.0.2.1 "$KESTAN_FPGA_ADDRESS"
    run -1 timeout 5 kestan -I nosuchinterface123
    start kestan kestan -c -s 1
    hears UDP-RECVFROM:5501 "${in_peer[@]}"
    "${in_peer[@]}" bash -c 'exec 4<>/dev/tcp/192.0.2.1/9511'
    run -1 grep INFORMATION kestan.err
}

# Runs in real time: the limits leave room for a busy machine.
@test "fills its bitrate, and no more, with what is due" {
    jq -n '{pmts: [range(1; 81) | {pid: 256, program_number: ., pcr_pid: 8191, version_number: 0,
        descriptors: [range(3) | {tag: 128, data: ("00" * 250)}]}]}' >3_mbps.json
    for kbps in 1000 300; do
        play "${options[@]}"
        kestan-control push 3_mbps.json
        kestan-monitor 127.0.0.1:5432 -d 1 --json >monitor.out
        reports ".bit_rate / 1000 / $kbps | . > 0.9 and . < 1.1"
        stop kestan
        options=(-b 300)
    done
}

@test "plays without a watchdog and a control process" {
    WATCHDOG_USEC=soon play
    says kestan " ERROR kestan: MuxNotify client EXCEPTION: "
    says kestan " ERROR kestan: Couldn't register task for WD$"
    hears UDP-RECVFROM:5432
}

@test "ends with status 1 when the control port is taken" {
    start other socat -u TCP-LISTEN:9501 /dev/null
    listens other 9501
    run -1 timeout 20 kestan -c "${to_here[@]}"
    grep " ERROR .*: Mux server EXCEPTION: " <<<"$output"
}

# The order of the start: control service, READY=1, notification. At the end accept(2) fails.
@test "withdraws its tables when its control service ends" {
    needs_strace
    start manager socat -u UNIX-RECV:notify -
    wait_until [ -S notify ]
    local daemon=(strace -Dqqfo trace -e "trace=clone,clone3,sendmsg,connect,accept,accept4"
        -e "inject=accept,accept4:error=EMFILE:when=2+" kestan)
    NOTIFY_SOCKET=$PWD/notify play_small
    [[ $(<trace) == *clone*READY=1*"sin_port=htons(9521)"* ]]
    hears UDP-RECVFROM:5432
    run -1 kestan-control clear-cat --timeout 1
    run -124 timeout 1.2 socat -u UDP-RECV:5432 -
    [ -z "$output" ]
}

# send <bytes>: sends them on a new connection and stores the answer in `reply`.
send() {
    exec {server}<>/dev/tcp/127.0.0.1/9501
    printf %b "$1" >&"$server"
    timeout 0.3 cat <&"$server" >reply || true
    exec {server}<&-
}

# The daemon has little memory and must not pause. Thrift's messages must be lines of the log.
@test "withstands messages that lie about lengths" {
    local call='\x80\1\0\1\0\0\0\bNoMethod\0\0\0\1\0'  # 21 bytes
    play_small
    watch
    for bytes in "\0\0\0\0$call" "\x7f\xff\xff\xff$call" "\x80\0\0\0$call" "\0\0" \
        "\xff\xff\xff\xff$call" "\0\xfa\0\0$call" "\0\0\0\x16$call" "\0\0\0\x14$call" \
        "\0\0\0\x15\x80\1\0\1\x60\0\0\0ClearCAT\0\0\0\1\0" \
        '\0\0\0\x1d\x80\1\0\1\0\0\0\6NewPAT\0\0\0\1\f\0\1\xf\0\4\f\x7f\xff\xff\xff'; do
        send "$bytes"
    done
    finds_nothing 0.6
    says kestan " WARNING MuxSrv: "
    send '\0\0\0\x12\0\0\0\bClearCAT\1\0\0\0\1\0'  # right, without the version word
    cmp -n 8 reply <(printf '\0\0\0\x15\x80\1\0\2')
    run -1 grep -E "Thrift:|register task" kestan.err
    [ "$KESTAN_SANITIZE" ] ||
        awk '/VmHWM/ { exit $2 > 64 * 1024 }' "/proc/${pid[kestan]}/status"
}

# A client keeps the others waiting until it is gone.
@test "serves the next client when one dies in a call or never reads" {
    local call='\0\0\0\x15\x80\1\0\1\0\0\0\bNoMethod\0\0\0\1\0'
    play_small -l5
    for bytes in '\0' "${call%thod*}" "$call"; do
        run -137 bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501; printf %b "$0" >&4
            kestan-control stop-pmt 999 0x1F0 --timeout 0.3 || kill -KILL $$' "$bytes"
        kestan-control stop-pmt 999 0x1F0 --timeout 2
    done
    watch
    start silent bash -c "exec 4<>/dev/tcp/127.0.0.1/9501
        for _ in {1..300}; do printf '%.s$call' {1..1000}; done >&4"
    wait_until eval "ss -Htn sport = :9501 | grep -qE 'ESTAB +[0-9]+ +[0-9]{6}'"
    finds_nothing 0.6
    finish silent KILL || true
    kestan-control stop-pmt 999 0x1F0 --timeout 2
}
