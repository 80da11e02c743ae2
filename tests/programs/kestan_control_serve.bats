# kestan-control serve keeps the tables of its files on air, and no others.
# shellcheck disable=SC2086,SC2154  # commands with arguments, variables of programs.bash

load programs
readonly own=.sdt.original_network_id=65281  # as an import writes it

# on_air <file>: the file's tables must be on air, and no others.
on_air() {
    capture 1.3 && diff <(kestan-control import capture.ts | jq -S .) <(jq -S . "$1")
}

# serve <argument>...: starts ${pid[serve]}, with a service manager that writes to `notified`.
serve() {
    start manager socat -u UNIX-RECV:manager CREATE:notified
    wait_until [ -S manager ]
    NOTIFY_SOCKET=$PWD/manager start serve kestan-control serve "$@"
    listens serve 9521
}

# write <filter>: changes the file that is served.
write() { jq "$own | $1" "$small" >new && mv new tables.json; }
reload() { kill -HUP "${pid[serve]}"; }
rewrite() { write "$1" && reload; }

# prints <name> <text> [times]: waits until name.out has this number of lines with the text.
prints() { wait_until eval "((\$(grep -cF -- '$2' $1.out) >= ${3:-1}))"; }
logged() { grep -c "$1" kestan.err; }

connections_opened() { awk '/^Tcp: [0-9]/ { print $6 }' /proc/net/snmp; }

# hold: occupies the only connection to kestan until `stop holder`.
hold() {
    start holder bash -c 'exec 4<>/dev/tcp/127.0.0.1/9501
        printf "\0\0\0\x20\x80\1\0\1\0\0\0\x13newScramblingConfig\0\0\0\1\0" >&4
        exec cat <&4'
    wait_until [ -s holder.out ]  # the answer
}

@test "replaces what kestan plays, then sends only what has changed" {
    play_small
    write 'del(.cat, .pmts[2]) | (.pat.programs[0], .pmts[0]).pid = "0x0130"'
    serve tables.json
    prints serve "PMT of service 102"
    on_air tables.json
    rewrite 'del(.cat, .pmts[2]) | (.pat.programs[0], .pmts[0]).pid = "0x0140"'
    prints serve "PMT of service 101 (0x0065) on PID 0x0130: withdrawn"
    says kestan "New PMT sid=0065 pid=0140"
    says serve "warning: tables.json: pat.version_number: .* still version 1"
    rewrite '(.pat.programs[0], .pmts[0]).pid = "0x0140" | .pat.version_number = 2'
    prints serve "PMT of service 103"
    on_air tables.json
    reload
    prints serve "no table has changed"
    [ "$(logged "New SDT")$(logged "New PMT sid=0066")$(logged Clearing)" = 221 ]
    rewrite 'del(.sdt)'  # which cannot be withdrawn alone
    says kestan "Clearing all tables"
    prints serve "PMT of service 103" 2
    on_air tables.json
    for mistake in '"no tables"' '.pmts[0].pid = "0x0011"' 'del(.pat.programs[0].pid)'; do
        rewrite "$mistake"
        wait_until grep -q "tables read before stay" serve.err
        : >serve.err
    done
    on_air <(jq "$own | del(.sdt)" "$small")
}

@test "serves the files of a directory, those with mistakes left out at the start" {
    mkdir tables
    jq '{pat, pmts}' "$small" >tables/a.json
    jq '{sdt} | .sdt.services += .sdt.services' "$small" >tables/b.json
    echo '{' >tables/c.json
    cp tables/a.json tables/.hidden.json
    local opened
    opened=$(connections_opened)
    serve tables
    says serve "error: tables/c.json: not JSON"
    says serve "error: tables/b.json: sdt.services\[3\].service_id: .* twice"
    says serve "tables/b.json: left out because of its errors"
    wait_until grep -q '^STATUS=nothing listens' notified
    grep -q READY=1 notified
    sleep 1
    # At first 50 ms apart, then ever longer.
    [ ! "$KESTAN_OWN_NETWORK" ] || (($(connections_opened) - opened < 9))
    play
    prints serve "PMT of service 103"
    run -1 grep EXCEPTION kestan.err
    on_air <(jq 'del(.sdt, .cat)' "$small")
    jq "{sdt} | $own" "$small" >tables/b.json
    mv tables/c.json c.old
    jq '{cat}' "$small" >tables/c.json
    reload
    prints serve "SDT of transport stream 1"
    on_air <(jq "$own" "$small")
    rm tables/*
    reload
    says kestan "Clearing all tables"
    finish serve INT
    run -1 kestan-control serve --set 1 tables
    [[ $output == *"no file can be served"* ]]
}

@test "waits for its turn, and a client that gives up leaves nothing behind" {
    play_small
    hold
    write .pat.version_number=9
    for command in clear "push tables.json"; do
        run -1 timeout 20 kestan-control $command --timeout 0.3
        [[ $output == *" within 0.3 s: "*"another one probably holds the connection"* ]]
    done
    write 'del(.cat)'
    serve --timeout 0.5 tables.json
    says serve " within 0.5 s: .* holds the connection; waiting"
    grep -q READY=1 notified
    sleep 1
    stop holder
    prints serve "PMT of service 103"
    wait_until on_air tables.json
    finish serve
    [ "$(grep -c holds serve.err)$(logged Clearing)$(logged "New PAT")" = 112 ]
}

@test "raises versions, so that receivers see each change" {
    export XDG_STATE_HOME=$PWD
    play
    write .
    mkdir kestan-control
    for history in '{' '{"written": {"cat": {"version_number": 1}}, "sent": {}}'; do
        echo "$history" >kestan-control/versions-127.0.0.1-0.json  # lost with the power
        kestan-control push --bump-versions tables.json 2>&1 |
            grep "warning: .* not a history"
    done
    XDG_STATE_HOME=/dev/null kestan-control push --bump-versions tables.json 2>&1 |
        grep "warning: .* cannot be written: after a restart"
    write '.pmts[0].streams[0].stream_type = 2 | .cat.version_number = 7'
    kestan-control push --bump-versions tables.json | tee pushed
    grep "tables.json: pmts\[0\].version_number: .* version 2 goes out instead of 1" pushed
    serve --bump-versions tables.json
    prints serve "CAT: version 7, accepted"
    prints serve "PMT of service 101 (0x0065) on PID 0x0100: version 2, accepted"
    rewrite .
    prints serve "PMT of service 101 (0x0065) on PID 0x0100: version 3, accepted"
    rewrite '.pmts[0].version_number = 31 | .pmts[0].streams[0].stream_type = 2'
    prints serve "PMT of service 101 (0x0065) on PID 0x0100: version 31, accepted"
    rewrite '.pmts[0].version_number = 31'
    prints serve "PMT of service 101 (0x0065) on PID 0x0100: version 0, accepted"
}

# Kestan is killed at random moments, also while tables are pushed and before it sends its
# start notification.
@test "has exactly its tables on air after a storm" {
    write .
    serve tables.json
    RANDOM=${seed:=$SRANDOM}
    echo "seed=$seed"
    for round in {1..15}; do
        start kestan kestan -c -l6 -O 127.0.0.1/5432
        sleep 0.0$((RANDOM % 90 + 10))
        ((round % 3)) || rewrite ".pmts[$((round % 2))].pid = 304 |
            .pat.programs[$((round % 2))].pid = 304 | .pat.version_number = $round"
        sleep 0.$((RANDOM % 2))$((RANDOM % 10))
        finish kestan KILL || [ $? -eq 137 ]
    done
    play
    rewrite 'del(.pmts[1]) | .pat.version_number = 31'
    wait_until on_air tables.json
}
