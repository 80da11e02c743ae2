# The daemon as a whole: what its user sees of it on the command line, on the wire and in
# the log.
# shellcheck disable=SC2016,SC2030,SC2031,SC2034,SC2154  # for other shells or tests

load programs

# hears <socat's address> [command that enters a network]...: waits for a transport packet.
hears() { timeout 20 "${@:2}" socat -u "$1" - | head -c 1 | grep -q G; }  # 0x47

# hears_ttl <ttl> <socat's address>: the first datagram must have this TTL.
hears_ttl() {
    run -0 timeout 20 socat -u "$2,ip-recvttl" SYSTEM:'env | grep ^SOCAT_IP_TTL'
    [ "$output" = "SOCAT_IP_TTL=$1" ]
}

@test "says what is wrong, its version and its usage in its own words" {
    local range="parameter range error:" hint="Try \`kestan --help' for more information."
    while IFS='|' read -r options said; do
        # shellcheck disable=SC2086  # several of them
        run -1 --separate-stderr kestan $options
        # shellcheck disable=SC2053  # a pattern
        [[ -z $output && $stderr == ${said/; /$'\n'} ]]
    done <<END
-s 2|$range set must be <= 1
--set=-1|$range set must be >= 0
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
--outip 1.2.3/80|$hint
-c -O 1.2.3/80|* ERROR kestan: Unable to parse output address.; $hint
--console -l 3 -O 127.0.0.1/80 --outif nosuchinterface123|* ERROR kestan: ioctl(SIOCGIFADDR) failed
END
    run -0 --separate-stderr kestan -s abc -t 255 -v -O nonsense
    [[ $output == $'\nVersion: 2.10.1+d20260615' && -z $stderr ]]
    run -0 --separate-stderr kestan -v -h -t 0
    diff "$BATS_TEST_DIRNAME/../data/usage.txt" - <<<"$output"
    [ -z "$stderr" ]
}

@test "ends with status 1 when the system refuses what it needs" {
    needs_strace
    export ASAN_OPTIONS=detect_leaks=0  # which needs ptrace(2), too
    while IFS='|' read -r calls said; do
        run -1 timeout 20 strace -fo /dev/null -e "inject=$calls" \
            kestan -c -I lo -O 226.0.0.10/5432
        [[ $output == *" ERROR kestan: $said" ]]
    done <<END
socket:error=EMFILE:when=1|Unable to open socket.
setsockopt:error=EPERM:when=1|Unable to configure output TTL.
setsockopt:error=EPERM:when=2|setsockopt(IP_MULTICAST_IF) failed
clone,clone3:error=EAGAIN|Can't launch Mux server. EXCEPTION: Resource temporarily unavailable
END
}

@test "resolves the destination and reaches it and a group with the TTL" {
    needs_own_network
    WATCHDOG_USEC=soon play
    says kestan " ERROR kestan: Couldn't register task for WD$"
    hears_ttl 1 UDP-RECVFROM:5432
    stop kestan
    play -t 9 -O 127.000.000.001/54321
    says kestan "Out Address:127.0.0.1/5432 TTL 9 $"
    hears_ttl 9 UDP-RECVFROM:5432
    stop kestan
    play -t7 -Ilo -O "226.0.0.10/5432 ethInt"
    says kestan "Out Address:226.0.0.10/5432 TTL 7 lo$"
    says kestan "Interface Address: 127.0.0.1$"
    hears_ttl 7 UDP-RECVFROM:5432,ip-add-membership=226.0.0.10:127.0.0.1
}

@test "plays to the FPGA, serves every address and notifies its control process by default" {
    start control socat -u TCP-LISTEN:9531 -
    listens control 9531
    lay_link ethInt.100 192.0.2.1 "$KESTAN_FPGA_ADDRESS"
    run -1 timeout 5 kestan -I nosuchinterface123
    start kestan kestan -c -s 1
    hears UDP-RECVFROM:5501 "${in_peer[@]}"
    "${in_peer[@]}" bash -c 'exec 4<>/dev/tcp/192.0.2.1/9511'
    grep -q NotifyKestanStarted control.out
    run -1 grep INFORMATION kestan.err
}

@test "logs to the system log, with -c to standard error too" {
    unshare -m true || skip "no mount namespace"
    local log=(unshare -m sh -c
        'mount -t tmpfs none /dev && ln -s "$0" /dev/log && exec kestan "$@"' "$PWD/log")
    start syslog socat -u UNIX-RECV:log CREATE:lines
    wait_until [ -S log ]
    for options in -l6 -cl6; do
        start kestan "${log[@]}" "$options" -O 127.0.0.1/5432
        wait_until grep -aqE "<27>.* kestan\[${pid[kestan]}\]: MuxNotify client" lines
        grep -aqE "<30>.* kestan\[${pid[kestan]}\]: Forced output address" lines
        [ "$options" = -l6 ] || says kestan " ERROR kestan: MuxNotify client EXCEPTION: "
        [ "$options" = -cl6 ] || [ ! -s kestan.err ]
        stop kestan
    done
}

# Log lines for standard error must not go into a socket.
@test "opens the standard descriptors that are closed" {
    daemon=(bash -c 'exec kestan "$@" <&- >&- 2>&-' -)
    play
    kestan-control clear-cat
    [ "$(readlink "/proc/${pid[kestan]}"/fd/{0,1,2} | uniq -c)" = "      3 /dev/null" ]
}

# Thrift's own message for each failure is not logged.
@test "accepts connections again after any failure" {
    needs_strace
    local error injected=(strace -Dqqfo trace -e "trace=accept,accept4" -e)
    for error in EMFILE ENFILE ENOMEM ENOBUFS ECONNABORTED EPROTO EPERM EINTR EAGAIN ENETDOWN; do
        daemon=("${injected[@]}" "inject=accept,accept4:error=$error:when=1..2" kestan)
        play
        kestan-control clear-cat --timeout 20
        logged 1 " WARNING MuxSrv: cannot accept connections ("
        logged 1 "WARNING MuxSrv"
        [ "$(grep -c "$error.*INJECTED" trace)" -eq 2 ]
        stop kestan
    done
    : >serve.err
    JOURNAL_STREAM=$(stat -c %d:%i serve.err) \
        start serve "${injected[@]}" "inject=accept,accept4:error=EMFILE:when=1..2" \
        kestan-control serve "$small"
    listens serve 9521
    daemon=(kestan)
    play
    prints serve "kestan has started"
    grep "^<4>warning: start notification: cannot accept connections (" serve.err
}

@test "plays on without descriptors, and serves as soon as there are some" {
    [ ! "$KESTAN_SANITIZE" ] || skip "a sanitizer's checks open pipes"
    play
    local free=0 process=${pid[kestan]}
    while [ -e "/proc/$process/fd/$free" ]; do ((++free)); done
    prlimit --pid "$process" --nofile="$free:"
    start push kestan-control push "$small" --timeout 20
    says kestan "WARNING MuxSrv: cannot accept connections (.*Too many open files)"
    hears UDP-RECVFROM:5432
    run -1 grep "New PAT" kestan.err
    prlimit --pid "$process" --nofile=1024:
    await push
}

# send <bytes>: sends them on a new connection and stores the answer in `reply`.
send() {
    exec {server}<>/dev/tcp/127.0.0.1/9501
    printf %b "$1" >&"$server"
    timeout 0.3 cat <&"$server" >reply || true
    exec {server}<&-
}

# The daemon has little memory and must not pause. Thrift's messages must be lines of the log,
# and stand in the guide for control processes.
@test "withstands messages that lie about lengths or cannot be read" {
    local version='\x80\1\0\1' no_method='\0\0\0\bNoMethod\0\0\0\1\0'  # 21 bytes
    local call=$version$no_method guide=$BATS_TEST_DIRNAME/../../docs/control-process.md bytes words
    play_small
    watch
    while IFS='|' read -r bytes words; do
        send "$bytes"
        says kestan " WARNING MuxSrv: .*$words"
        [ ! "$words" ] || grep -F "\`TConnectedClient $words\`" "$guide"
    done <<END
POST|died: Received an oversized frame
\x80\1\0\1|died: Frame size has negative value
\0\0\0\4[1,"|processing exception: TProtocolException: Exceeded size limit
\0\0\0\4\x82\x21\1\0|processing exception: Bad version identifier
\0\0\0\x13$version\0\0\0\6NewPAT\0\0\0\1\0|processing exception: TProtocolException: Invalid data
\0\0
\0\0\0\0$call
\x80\0\0\0$call
\0\xfa\0\0$call
\0\0\0\x16$call
\0\0\0\x14$call
\0\0\0\x15$version\x60\0\0\0ClearCAT\0\0\0\1\0
\0\0\0\x1d$version\0\0\0\6NewPAT\0\0\0\1\f\0\1\xf\0\4\f\x7f\xff\xff\xff
END
    finds_nothing 0.6
    send '\0\0\0\x12\0\0\0\bClearCAT\1\0\0\0\1\0'  # right, without the version word
    cmp -n 8 reply <(printf '\0\0\0\x15\x80\1\0\2')
    run -1 grep -E "Thrift:|register task" kestan.err
}

# answers <file> <times> <bytes>: sends the frame several times on one connection. Each answer
# must have these bytes, and the memory must be given back.
answers() {
    for ((i = 0; i < $2; ++i)); do cat "$1"; done |
        socat -t 30 - TCP:127.0.0.1:9501 | od -An -v -tx1 | tr -d ' \n' >replies
    echo "$1: peak $(memory kestan VmHWM) kB, then $(memory kestan VmRSS) kB"
    [ "$(grep -o "$3" replies | wc -l)" -eq "$2" ]
    [ "$KESTAN_SANITIZE" ] || wait_until eval '(($(memory kestan VmRSS) < 12000))'
}

# Thrift alone ends a connection after 100 MB, and keeps the memory of large frames. The tables
# are an SDT of 159,000 descriptors, which is refused, and one that claims more than comes.
@test "serves a connection for as long as its client wants, and keeps little memory" {
    /usr/bin/python3 - <<'END'
import struct
def write(name, method, fields):
    message = struct.pack(">II", 0x80010001, len(method)) + method + bytes(4) + fields
    open(name, "wb").write(struct.pack(">I", len(message)) + message)
def field(kind, number, value): return struct.pack(">bh", kind, number) + value
def i32(number, value): return field(8, number, struct.pack(">i", value))
def array(number, size, elements): return field(15, number, struct.pack(">bi", 12, size) + elements)
def data(number, size): return field(11, number, struct.pack(">i", size) + bytes(size))
def descriptors(size, of): return array(6, size, (i32(1, 128) + data(2, of) + b"\0") * size)
def sdt(services, elements):
    return field(12, 1, i32(1, 1) + i32(2, 1) + i32(3, 1) + array(5, services, elements))
write("emm", b"EMM", field(12, 1, i32(1, 1) + i32(2, 1) + data(3, 4999900)) + bytes(2))
write("refused", b"NewSDTActual",
      sdt(3, (i32(1, 1) + descriptors(53000, 16) + b"\0") * 3) + bytes(2))
write("claims", b"NewSDTActual", sdt(131072, i32(1, 1) + descriptors(87000, 16) + b"\0" +
      i32(1, 2) + array(6, 131072, b"")))
END
    play
    answers emm 25 03454d4d0000000000
    answers refused 3 ffffffff00
    socat -u OPEN:claims TCP:127.0.0.1:9501
    says kestan "a message is longer than its frame"
    kestan-control push "$small"  # the connection before it has been closed
    answers emm 1 03454d4d0000000000
    [ "$KESTAN_SANITIZE" ] || (($(memory kestan VmHWM) <= 40000))
}

# A client keeps the others waiting until it is gone.
@test "serves the next client when one dies in a call or never reads" {
    local call='\0\0\0\x15\x80\1\0\1\0\0\0\bNoMethod\0\0\0\1\0'
    play_small -l5
    for bytes in '\0' "${call%thod*}" "$call"; do
        run -137 bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501; printf %b "$0" >&4
            kestan-control stop-pmt 999 0x1F0 --timeout 0.3 || kill -KILL $$' "$bytes"
        kestan-control stop-pmt 999 0x1F0 --timeout 20
    done
    watch
    start silent bash -c "exec 4<>/dev/tcp/127.0.0.1/9501
        for _ in {1..300}; do printf '%.s$call' {1..1000}; done >&4"
    wait_until eval "ss -Htn sport = :9501 | grep -qE 'ESTAB +[0-9]+ +[0-9]{6}'"
    receives_more 30
    finish monitor INT || [ $? -eq 1 ]  # a busy machine makes the stream late
    reports '[.pids[] | .continuity_errors + .crc_errors] | add == 0'
    finish silent KILL || true
    kestan-control stop-pmt 999 0x1F0 --timeout 20
}

# The limit allows for the daemon's start. With a time-out per receive alone, slow bytes would
# take 11 s.
@test "is not held up by any answer to its start notification" {
    local name='\x80\1\0\2\0\0\0\x13NotifyKestanStarted\0\0\0\0'
    echo 'for byte in $(seq 36); do dd bs=1 count=1 status=none || exit; sleep 0.3; done <reply' \
        >slowly
    while IFS='|' read -r said bytes answer; do
        printf %b "$bytes" >reply
        start peer socat TCP-LISTEN:9521,reuseaddr SYSTEM:"${answer:-cat reply; sleep 9}"
        listens peer 9521
        local begin=$SECONDS
        play
        says kestan "MuxNotify client $said"
        echo "$said, $bytes: $((SECONDS - begin)) s"
        ((SECONDS - begin < 5))
        stop kestan
        stop peer || true
    done <<END
EXCEPTION: .*Exceeded size limit|\0\0\0\x0c\x80\1\0\2\x7f\xff\xff\xff\0\0\0\0
EXCEPTION: .*Exceeded size limit|\0\0\0\x26${name/\\2/\\3}\xb\0\1\x7f\xff\xff\xff
EXCEPTION: .*Exceeded size limit|\0\0\0\x27$name\xf\0\1\xc\x7f\xff\xff\xff
EXCEPTION: .*oversized frame|\0\1\0\1
EXCEPTION: .*[Tt]imed out|\0\0\0\x20${name/Started/Stopped}\0
EXCEPTION: .*[Tt]imed out|\0\0\0\x20$name\0|sh slowly
EXCEPTION: .*[Tt]imed out|
EXCEPTION: .*No more data||head -c 36 >call
EXCEPTION: ||true
END
}

@test "has the kernel probe a silent client" {
    needs_strace
    daemon=(strace -Dqqfo calls -e trace=setsockopt kestan)
    play
    kestan-control clear-cat
    for option in SO_KEEPALIVE=1 TCP_KEEPIDLE=60 TCP_KEEPINTVL=10 TCP_KEEPCNT=3 \
        TCP_USER_TIMEOUT=90000; do
        grep -F "${option/=/, [}]" calls
    done
}
