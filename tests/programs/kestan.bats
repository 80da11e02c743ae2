# The daemon as a whole: what its user sees of it on the command line, on the wire and in
# the log.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# hears <socat's address> [command that enters a network]...: a transport packet.
hears() { timeout 20 "${@:2}" socat -u "$1" - | head -c 1 | grep -q G; }  # 0x47

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

@test "prints version and usage" {
    run -0 --separate-stderr kestan -s abc -t 255 -v -O nonsense
    [[ $output == $'\nVersion: 2.10.1+d20260615' && -z $stderr ]]
    kestan -v -h -t 0 >usage
    diff usage <(echo -n "usage: kestan"; cat "$BATS_TEST_DIRNAME/../data/usage.txt")
}

@test "resolves the destination and reaches a group with its TTL" {
    needs_own_network
    play -O 127.000.000.001/12345
    says kestan "Out Address:127.0.0.1/1234 TTL 1 $"
    stop kestan
    play -t7 -Ilo -O "226.0.0.10/5432 ethInt"
    says kestan "INFORMATION kestan: Forced output address.$"
    says kestan "Out Address:226.0.0.10/5432 TTL 7 lo$"
    says kestan "Interface Address: 127.0.0.1$"
    local member=UDP-RECVFROM:5432,ip-add-membership=226.0.0.10:127.0.0.1
    run -0 timeout 20 socat -u $member,ip-recvttl SYSTEM:'env | grep ^SOCAT_IP_TTL'
    [ "$output" = SOCAT_IP_TTL=7 ]
}

@test "plays to the FPGA by default" {
    lay_link ethInt.100 192.0.2.1 "$KESTAN_FPGA_ADDRESS"
    start kestan kestan -s 1
    hears UDP-RECVFROM:5501 "${in_peer[@]}"
}

@test "plays without a watchdog and a control process, or with one that never answers" {
    WATCHDOG_USEC=soon play
    says kestan "MuxNotify client EXCEPTION: "
    says kestan " ERROR kestan: Couldn't register task for WD$"
    hears UDP-RECVFROM:5432
    stop kestan
    start silent socat -u TCP-LISTEN:9521 /dev/null
    listens silent 9521
    play
    says kestan "MuxNotify client EXCEPTION: THRIFT_EAGAIN (timed out)"
    hears UDP-RECVFROM:5432
}

@test "ends with status 1 when the control port is taken" {
    start other socat -u TCP-LISTEN:9501 /dev/null
    listens other 9501
    run -1 timeout 20 kestan -c -O 127.0.0.1/5432
    [[ $output == *": Mux server EXCEPTION: "* ]]
}

# The tables of limits.json, with more than one section of programs and a PMT's section full
# to the last byte.
@test "carries every field of every table until it is replaced or cleared" {
    jq '.pat.programs += [range(250) | {program_number: 0, pid: "0x0020"}]
        | (.cat, .sdt.services[0], .pmts[0]).descriptors
            += [{tag: ("0x7F", "0x00", "0xFF"), data: ("5a" * 255)}]
        | .pmts[0].streams[0].descriptors = [{tag: "0x09", data: ("a5" * 217)}]
        ' "$BATS_TEST_DIRNAME/../data/limits.json" >limits.json
    jq '{pmts: [.pmts[1] | .pid = "0x0030"]}' limits.json >other_pid.json
    play_small -b 5000
    watch
    kestan-control push limits.json
    kestan-control push other_pid.json  # the PMT stays where it is
    says kestan "MuxSrv: New PMT sid=8001 pid=1ffe version=0$"
    sleep 1.5
    finish monitor INT || true  # a new SDT may follow its predecessor too soon
    reports '[.pids[] | .continuity_errors + .crc_errors] | add == 0'
    reports '[.pids[-1].tables[].repetition_ms.mean | . > 150 and . < 250] == [true, true]'
    capture 1.3
    jq -S '(.. | objects | select(.version_number > 31)).version_number = 0' limits.json |
        diff - <(kestan-control import capture.ts | jq -S .)

    kestan-control stop-pmt 0x8001 0x1234  # whatever its PID
    kestan-control clear-cat
    kestan-monitor 127.0.0.1:5432 -d 1.5 --json >monitor.out
    reports '[.pids[] | select(.packets > 0).pid] == [0, 17, 20, 256, 272, 288, 8190]'
    reports '[.pids[-1].tables[] | select(.sections > 0).service_id] == [65535]'
    kestan-control clear
    kestan-monitor 127.0.0.1:5432 -d 1.5 --json >monitor.out
    reports '[.pids[] | select(.packets > 0).pid] == [20]'
}

# Thrift's own words come as lines of the log.
@test "outlives a message of a few bytes that claims 2^31 - 1 programs" {
    play
    exec {server}<>/dev/tcp/127.0.0.1/9501
    printf '\0\0\0\x1d\x80\1\0\1\0\0\0\6NewPAT\0\0\0\1\f\0\1\xf\0\4\f\x7f\xff\xff\xff' >&"$server"
    timeout 20 cat <&"$server"
    says kestan " WARNING MuxSrv: "
    kestan-control push "$small"
    run -1 grep -E "Thrift:|register task" kestan.err
}
