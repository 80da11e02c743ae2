# kestan-monitor as its user runs it, on a daemon's stream.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# measure <seconds>: runs a monitor that writes its report to monitor.out. Fails if it finds a
# fault.
measure() { kestan-monitor 127.0.0.1:5432 -d "$1" --json --check >monitor.out; }

# Runs in real time: the limits leave room for a busy machine.
@test "finds each table at its period, and what is missing" {
    run -1 measure 0.1
    reports '.outside_limits[0].check == "reception"'
    play
    kestan-control push <(jq '(.pat.programs[], .pmts[]).pid = "0x0300"' "$small")
    measure 4.5
    reports '[.pids[].tables[0].repetition_ms.mean]
        | [.[0] / 200, .[1] / 500, .[2] / 500, .[3] / 1000, .[4] / 200]
        | all(. > 0.95 and . < 1.05)'
    reports '.pids[0].tables[0].version == 1'
    reports '[.pids[4].tables[].service_id] == [101, 102, 103]'

    kestan-control stop-pmt 102 0x300
    run -1 measure 1.2
    reports '[.outside_limits[].check] == ["repetition"]'
    reports '.outside_limits[0].text | contains("PMT of service 102")'

    has_known_keys
}

# has_known_keys: the schema must have every key of the report.
has_known_keys() {
    jq 'walk(if type == "object" and has("properties") then .additionalProperties = false
        else . end)' "$schema" >strict.json
    is_valid monitor.out strict.json
}

@test "compares what is on air with the files" {
    play_small
    run -0 kestan-monitor 127.0.0.1:5432 -d 2.2 --check --expect "$small"
    [[ $output == *$'\n  files      differences: 0\n'* ]]
    jq '.pmts[0].pid = "0x0777" | .pmts[0].version_number = 9' "$small" >other.json
    local at='PID 0x0100: PMT of service 101 is on PID 0x0100, the files have 0x0777'
    run -1 kestan-monitor 127.0.0.1:5432 -d 1.2 --check --any-version --expect - <other.json
    [[ $output == *'verdict    1 fault, the last'*'differences: 1'*"  $at"* ]]
    run -0 kestan-monitor 127.0.0.1:5432 -d 1.2 --check --any-version --expect other.json \
        --accept crc --accept expected:256
    [[ $output == *' but 1 accepted fault.'*"accepted: $at"* ]]
}

@test "reads the files again after SIGHUP" {
    play_small
    cp "$small" tables.json
    start monitor kestan-monitor 127.0.0.1:5432 --json --check --expect . --metrics metrics.prom
    has_differences() { grep "^kestan_monitor_expected_differences{.*} $1" metrics.prom; }
    wait_until has_differences 0
    echo '{}' >mistake.json
    kill -HUP "${pid[monitor]}"
    says monitor ': the tables read before stay'
    rm mistake.json
    jq 'del(.cat)' "$small" >tables.json
    kill -HUP "${pid[monitor]}"
    wait_until has_differences 1
    finish monitor INT || [ $? -eq 1 ]
    reports '[.outside_limits[] | .check, .count, .accepted] == ["expected", 1, false]'
    has_known_keys
}

# on_screen <pattern>: waits until the terminal shows it.
on_screen_now() { tmux capture-pane -ep | grep -q -- "$1"; }
on_screen() { wait_until on_screen_now "$1"; }

@test "shows a report, on a terminal in place, that scrolls and fits" {
    play_small
    run -0 timeout --preserve-status -s INT 2 kestan-monitor 127.0.0.1:5432
    [[ $output == *$'\n  verdict    Nothing is outside the limits.\n'* ]]
    [[ $output == *$'\n0x0100  PMT 101 Harbour Television '* ]]
    run -0 env TERM=dumb script -qec "kestan-monitor 127.0.0.1:5432 -d 1" /dev/null
    [[ $output == *"verdict    Nothing is outside the limits."* && $output != *$'\e'* ]]

    export TMUX_TMPDIR=$PWD
    tmux -f /dev/null new-session -d -x 60 -y 11 kestan-monitor 127.0.0.1:5432 -d 60
    on_screen '^0x0000  PAT'
    on_screen '^… 5 more PIDs'
    on_screen $'\e\\[32m  verdict  '
    tmux send-keys j Down
    on_screen '^… 3 more PIDs'
    run ! on_screen_now '^0x0001'
    kestan-control stop-pmt 102 0x110
    tmux resize-window -x 110 -y 30
    on_screen '^0x0120  PMT 103 Pebble Radio .* 500$'
    on_screen $'\e\\[31m  verdict    1 fault, the last at ..:..:..\\....'
    on_screen '^  ..:..:..\.... *PID 0x0110: PMT of service 102: a section was away'
    tmux send-keys q
    wait_until eval '! tmux has-session'
}

@test "writes metrics that Prometheus takes, a record and a picture" {
    play_small
    kestan-monitor 127.0.0.1:5432 -d 2.2 --metrics metrics.prom --record record.ts \
        --plot plot.svg
    for line in 'up{S} 1' 'packets_total{S,pid="0x0014"} [23]' 'faults_total{S,check="crc"} 0' \
        'last_interval_seconds{S,pid="0x0110",table="PMT",service_id="102"} 0\.[12]'; do
        grep "^kestan_monitor_${line/S/stream=\"127.0.0.1:5432\"}" metrics.prom
    done
    [ "$(grep -c 'class="strip"' plot.svg)" -eq 8 ]
    grep -q 'class="dots" d="M[0-9.]* [0-9.]*h0M' plot.svg  # two intervals of the PAT
    kestan-control import record.ts | jq -e '.pmts | length == 3'
    run -2 kestan-monitor 127.0.0.1:5432 -d 0.2 --record /dev/full
    exits 2 "is the disk full?" sh -c 'kestan-monitor 127.0.0.1:5432 -d 0.2 2>&1 >/dev/full'
    [ -x "$(command -v promtool)" ] || skip "no promtool (package prometheus)"
    promtool check metrics <metrics.prom
    promtool test rules "$BATS_TEST_DIRNAME/../data/kestan.rules_test.yml"
}

@test "measures on when its files can no longer be written" {
    play_small
    mkdir there
    start monitor bash -c 'ulimit -f 16; exec kestan-monitor "$@"' - 127.0.0.1:5432 \
        --record record.ts --metrics there/metrics.prom --plot there/plot.svg
    wait_until [ -s there/metrics.prom ]
    mv there gone
    says monitor ': there/metrics.prom: cannot be written: No such file or directory; this is'
    says monitor ': record.ts: cannot be written: File too large; the recording has ended$'
    mkdir there
    wait_until [ -s there/metrics.prom ]
    mv there gone/again
    local status=0
    finish monitor INT || status=$?
    [ "$status" -eq 2 ]
    grep 'verdict    Nothing is outside the limits' monitor.out
    grep ': there/plot.svg: cannot be written' monitor.err
    [ "$(wc -l <monitor.err)" -eq 3 ]
    [ "$(stat -c %s record.ts)" -eq $((16384 / 188 * 188)) ]

    mkdir $'new\nline'  # a kilobyte, since ThreadSanitizer writes a file too
    run -2 bash -c 'ulimit -f 1; kestan-monitor "$@" 2>&1 | cat; exit "${PIPESTATUS[0]}"' - \
        127.0.0.1:5432 -d 0.2 --metrics $'new\nline/metrics.prom'
    [[ $output == *': "new\x0aline/metrics.prom": cannot be written: File too large' ]]
    [ -z "$(ls $'new\nline')" ]
}

# measure_under <strace's change of the kernel's answer>: a monitor that takes no difference
# between the TDT, which has whole seconds, and this host's clock. LeakSanitizer traces the
# process itself, which strace prevents.
measure_under() {
    ASAN_OPTIONS=detect_leaks=0 strace -f -o /dev/null -e trace=adjtimex,clock_adjtime \
        -e "inject=adjtimex,clock_adjtime:$1" kestan-monitor 127.0.0.1:5432 -d 2.2 --json \
        --clock-tolerance 0.000001 >monitor.out
}

@test "compares the TDT with a clock that the kernel calls synchronised, and no other" {
    needs_strace
    play_small
    measure_under retval=0  # and leaves the status as it is: all bits 0
    reports '[.outside_limits[].check] == ["tdt_offset"]'
    measure_under error=EPERM
    reports '.outside_limits == []'
}

has_read_all() { grep -q ":$(printf %04X 5432) .* 07 00000000:00000000 " /proc/net/udp; }

@test "measures arrivals, not its own delays, and counts what it loses" {
    play_small
    watch
    sleep 0.5
    kill -STOP "${pid[monitor]}"
    sleep 0.8
    kill -CONT "${pid[monitor]}"
    finds_nothing 0.5

    watch
    kill -STOP "${pid[monitor]}"
    head -c 100M /dev/zero | socat -b 1316 - UDP-SENDTO:127.0.0.1:5432
    kill -CONT "${pid[monitor]}"
    wait_until has_read_all
    receives_more 3  # a datagram that comes after lost ones has their number
    local status=0
    finish monitor INT || status=$?
    [ "$status" -eq 1 ]
    reports '.malformed_datagrams > 50'
    reports '.lost_datagrams > 50'
    reports '.lost_datagrams == (.outside_limits[] | select(.check == "lost").count)'
}

@test "says why it cannot receive" {
    all_exit kestan-monitor <<'END'
2|not an IPv4 address with a port|127.0.0.1:0
2|not an IPv4 address with a port|127.0.0.1:65536
2|give an address of this machine|192.0.2.1:5432
2|"ip link" lists|226.0.0.1:5432 -i nowhere0
2|nowhere.json: cannot be read: No such file or directory|127.0.0.1:5432 --expect nowhere.json
2|"continuty" is no check: expected one of cat_missing|127.0.0.1:5432 --accept continuty:0x100
2|"8192" is not a PID|127.0.0.1:5432 --accept crc:8192
2|name one: ca_on_reserved_pid|127.0.0.1:5432 --accept consistency
2|ADDRESS:PORT
END
}
