# Files of an older version, in tests/data, with the programs of today; and what programs of that
# version's users read.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

old=$BATS_TEST_DIRNAME/../data/2.10.1
new_schema=$BATS_TEST_DIRNAME/../../tools/kestan-monitor/report/kestan-monitor.schema.json

is_valid() { /usr/bin/python3 -W ignore -m jsonschema -i "$1" "$2"; } # <report> <schema>

# has_old_samples <metrics>: each sample that the old metrics have, with its labels.
has_old_samples() {
    local samples='s/^(kestan_monitor_.*\}) .*/\1/p'
    [ -z "$(comm -23 <(sed -nE "$samples" "$old/metrics.prom" | sort) \
        <(sed -nE "$samples" "$1" | sort))" ]
}

@test "plays an old multiplex and imports it in the same words" {
    play
    kestan-control push --force "$old/multiplex.json"
    capture 1.3
    diff <(kestan-control import capture.ts | jq -S .) <(jq -S . "$old/multiplex.json")
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

@test "reports and metrics have all that the old ones had" {
    play
    kestan-control push --force "$old/multiplex.json"
    start monitor kestan-monitor 127.0.0.1:5432 --json --metrics new.prom
    wait_until has_old_samples new.prom
    finish monitor INT
    is_valid monitor.out "$old/kestan-monitor.schema.json"
    is_valid "$old/report.json" "$new_schema"
}
