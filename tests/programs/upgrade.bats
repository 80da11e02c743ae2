# Files of an older version, in tests/data, with the programs of today; and what programs of that
# version's users read.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

old=$BATS_TEST_DIRNAME/../data/2.10.1

# has_old_samples <metrics>: each kind of sample that the old metrics had, with its labels.
has_old_samples() {
    local sample
    while read -r sample; do
        grep -qF "kestan_monitor_${sample/{/{stream=\"127.0.0.1:5432\"}" "$1" || return
    done <<END
up{}
datagrams_total{}
bit_rate{}
$(jq -r '."$defs".fault.properties.check.enum[]' "$old"/*.schema.json |
    sed 's/.*/faults_total{,check="&"}/')
packets_total{,pid="0x0110"}
pid_bit_rate{,pid="0x0110"}
continuity_errors_total{,pid="0x0110"}
crc_errors_total{,pid="0x0110"}
last_interval_seconds{,pid="0x0000",table="PAT"}
last_interval_seconds{,pid="0x0001",table="CAT"}
last_interval_seconds{,pid="0x0011",table="SDT"}
last_interval_seconds{,pid="0x0014",table="TDT"}
last_interval_seconds{,pid="0x0110",table="PMT",service_id="102"}
longest_interval_seconds{,pid="0x0014",table="TDT"}
longest_interval_seconds{,pid="0x0110",table="PMT",service_id="102"}
END
}

@test "plays an old multiplex, imports it in the same words and reports all that was reported" {
    play
    kestan-control push --force "$old/multiplex.json"
    on_air "$old/multiplex.json"
    start monitor kestan-monitor 127.0.0.1:5432 --json --metrics new.prom
    wait_until has_old_samples new.prom
    finish monitor INT
    is_valid monitor.out "$old/kestan-monitor.schema.json"
    is_valid "$old/report.json" "$schema"
}

@test "goes on from the versions that an old one has sent" {
    install -D "$old/versions.json" kestan-control/versions-127.0.0.1-0.json
    play
    export XDG_STATE_HOME=$PWD
    run -0 kestan-control push --force --bump-versions "$old/multiplex.json"
    [[ $output == *"PAT of transport stream 1 (0x0001): version 5, accepted"* ]]
    [[ $output == *"PMT of service 101 (0x0065) on PID 0x0100: version 5, accepted"* ]]
    [[ $output == *"SDT of transport stream 1 (0x0001): version 1, accepted"* ]]
    jq '.pat.programs[0].pid = "0x0105"' "$old/multiplex.json" >changed.json
    run -0 kestan-control push --force --bump-versions changed.json
    [[ $output == *"PAT of transport stream 1 (0x0001): version 6, accepted"* ]]
}
