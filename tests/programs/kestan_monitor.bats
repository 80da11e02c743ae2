# kestan-monitor as its user runs it, on a daemon's stream.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# measure <seconds>: the report is in monitor.out; fails if it finds something.
measure() { kestan-monitor 127.0.0.1:5432 -d "$1" --json --check >monitor.out; }

# Real time, so with room for a busy machine.
@test "finds each table at its period, and what is missing" {
    run -1 measure 0.1
    reports '.outside_limits[0].check == "reception"'
    play
    kestan-control push <(jq '(.pat.programs[], .pmts[]).pid = "0x0300"' "$small")
    measure 4.5
    reports '[.pids[].tables[0].repetition_ms.mean]
        | [.[0] / 200, .[1] / 500, .[2] / 500, .[3] / 1000, .[4] / 200]
        | all(. > 0.95 and . < 1.05)'
    reports '.pids[0].tables[0].version == 1 and [.pids[4].tables[].service_id][1] == 102'

    kestan-control stop-pmt 102 0x300
    run -1 measure 1.2
    reports '.outside_limits | length == 1 and .[0].check == "repetition"
        and (.[0].text | contains("PMT of service 102"))'
}

# The first four lines of five in place, and the whole report when the screen is back.
@test "shows a table, on a terminal in place, until Ctrl-C" {
    play_small
    run -0 timeout --preserve-status -s INT 2 kestan-monitor 127.0.0.1:5432
    [[ $output == *$'\n0x0000  PAT  '* ]]
    script -qec "stty rows 5; kestan-monitor 127.0.0.1:5432 -d 1.2" typescript </dev/null
    grep -n "^.\[K… more than the screen holds.*1049l127" typescript | grep ^6:
}

@test "receives a multicast group" {
    needs_own_network
    play -I lo -O 226.0.0.10/5432
    kestan-monitor 226.0.0.10:5432 -i lo -d 1.5 | grep "TDT 20"
}

@test "says why it cannot receive" {
    while IFS='|' read -r said arguments; do
        # shellcheck disable=SC2086  # several of them
        run -2 kestan-monitor $arguments
        [[ $output == *"$said"* ]]
    done <<END
not an IPv4 address with a port|127.0.0.1:0
not an IPv4 address with a port|127.0.0.1:65536
give an address of this machine|192.0.2.1:5432
"ip link" lists|226.0.0.1:5432 -i nowhere0
ADDRESS:PORT
END
}
