# kestan-control serve keeps the tables of its files on air, and no others.
# shellcheck disable=SC2154  # variables of programs.bash

load programs
readonly record=state/kestan-control/played-127.0.0.1-0.json

# serve <argument>...: starts ${pid[serve]} under a service manager.
serve() {
    [ -S notify ] || manage
    NOTIFY_SOCKET=$PWD/notify start serve kestan-control serve "$@"
    listens serve 9521
}

# serve_all <argument>...: and waits until it has sent the last table.
serve_all() { serve "$@" && prints serve "PMT of service 103"; }

# write <filter>: changes the file that is served.
write() { jq "$1" "$small" >new && mv new tables.json; }
reload() { kill -HUP "${pid[serve]}"; }
rewrite() { write "$1" && reload; }

connections_opened() { awk '/^Tcp: [0-9]/ { print $6 }' /proc/net/snmp; }

@test "replaces what kestan plays, then sends only what has changed" {
    play_small
    write 'del(.cat, .pmts[2]) | (.pat.programs[0], .pmts[0]).pid = "0x0130"'
    serve tables.json
    prints serve "PMT of service 102"
    on_air tables.json
    rewrite 'del(.cat, .pmts[2]) | (.pat.programs[0], .pmts[0]).pid = "0320"'
    says serve 'warning: tables.json:[0-9]*: pmts\[0\].pid: found "0320"'
    prints serve "PMT of service 101 (0x0065) on PID 0x0130: withdrawn"
    says kestan "New PMT sid=0065 pid=0140"
    says serve "warning: tables.json: pat.version_number: .* still version 1"
    rewrite '(.pat.programs[0], .pmts[0]).pid = "0x0140" | .pat.version_number = 2'
    prints serve "PMT of service 103"
    on_air tables.json
    reload
    prints serve "no table has changed"
    logged 2 "New SDT"
    logged 2 "New PMT sid=0066"
    logged 1 Clearing
    rewrite 'del(.sdt)'  # which cannot be withdrawn alone
    says kestan "Clearing all tables"
    prints serve "PMT of service 103" 2
    on_air tables.json
    for mistake in '"no tables"' '.pmts[0].pid = "0x0011"' 'del(.pat.programs[0].pid)'; do
        rewrite "$mistake"
        says serve "tables read before stay"
        : >serve.err
    done
    on_air <(jq "del(.sdt)" "$small")
}

@test "a restart costs nothing on air" {
    play_small
    write .
    serve_all tables.json
    watch
    for _ in {1..5}; do
        finish serve
        serve_all tables.json
    done
    # On a busy machine a table may be late, but no packet is missing and no PMT withdrawn.
    finish monitor INT || true
    reports '(.pids | length == 7) and all(.pids[]; .continuity_errors == 0)'
    logged 1 Clearing
    logged 0 "Clear PMT"
    finish serve
    write 'del(.cat, .pmts[2]) | (.pat.programs[0], .pmts[0]).pid = 304 | .pat.version_number = 2'
    serve tables.json
    prints serve "CAT: withdrawn"
    prints serve "PMT of service 101 (0x0065) on PID 0x0100: withdrawn"
    prints serve "PMT of service 103 (0x0067) on PID 0x0120: withdrawn"
    prints serve "PMT of service 102"
    on_air <(jq '(.pat.programs[0], .pmts[0]).pid = "0x0130"' tables.json)
    crash kestan
    play
    prints serve "PMT of service 102" 2
    logged 0 Clear
}

@test "clears first if it does not know what is on air, or loses a PAT or an SDT" {
    play
    while IFS='|' read -r before option cleared said; do
        write .
        eval "$before"
        : >kestan.err
        serve_all ${option:+"$option"} tables.json
        logged "$cleared" Clearing
        grep -F -- "$said" serve.err || [ ! "$said" ]
        finish serve
    done <<'END'
true||1|
true||0|
true|--clear|1|
rm $record||1|
echo '{' >$record||1|/played-127.0.0.1-0.json: not read: [
write 'del(.pat)'||1|
write 'del(.sdt)'||1|
true||0|
rm $record; mkdir $record||1|: remove it: it is out of date
rmdir $record; echo '{"format": 2}' >$record||1|a newer release wrote it (format 2); it is left
true||1|a newer release wrote it
END
    [ "$(<$record)" = '{"format": 2}' ]
    XDG_STATE_HOME=/dev/null serve tables.json
    says serve "warning: /dev/null/${record#*/}: cannot be written: .*: a start"
}

@test "records what can be on air before it sends, and ends although kestan does not answer" {
    play
    write '.pmts[1].streams = [range(300) | {stream_type: 2, elementary_pid: (. + 512)}]'
    serve --force tables.json
    says serve "kestan rejected the PMT of service 102"
    jq -e '[.services[].service_id] == [101, 103]' $record
    reload  # which sends it again
    prints serve "PMT of service 102 (0x0066) on PID 0x0110: version 1, rejected" 2
    rewrite .
    prints serve "PMT of service 102 (0x0066) on PID 0x0110: version 1, accepted"
    finish serve
    crash kestan
    # Answers the opening call alone.
    cat >server <<'END'
dd bs=64K count=1 of=/dev/null
printf '\0\0\0\040\200\1\0\2\0\0\0\023newScramblingConfig\0\0\0\0\0'
cat >calls
END
    start server socat TCP-LISTEN:9501,reuseaddr SYSTEM:". ./server"
    listens server 9501
    write 'del(.pmts[1, 2]) | (.pat.programs[0], .pmts[0]).pid = "0x0130"'
    serve --timeout 60 tables.json
    wait_until [ -s calls ]
    jq -e '.cat and ([.services[].pids] == [[256, 304], [272], [288]])' $record
    local begin=$SECONDS
    finish serve  # after 1.5 s, not after the 60 s of --timeout
    ((SECONDS - begin < 10))
    told "STATUS=has ended before its work was done"
}

@test "kicks the watchdog, unless it is stopped" {
    write .
    WATCHDOG_USEC=300000 serve tables.json
    kicks() { grep -o WATCHDOG=1 manager.out | wc -l; }
    wait_until eval '(($(kicks) >= 3))'
    kill -STOP "${pid[serve]}"
    local before
    before=$(kicks)
    sleep 0.5
    (($(kicks) <= before + 1))
    kill -CONT "${pid[serve]}"
    wait_until eval "((\$(kicks) >= $before + 3))"
}

@test "answers many start notifications together, once a second" {
    play
    write .
    serve_all tables.json
    grep "0100007F:2531 " /proc/net/tcp  # no other host can send them
    local begin=$SECONDS
    for _ in {1..30}; do
        printf '\0\0\0\x20\x80\1\0\1\0\0\0\x13NotifyKestanStarted\0\0\0\1\0' \
            >/dev/tcp/127.0.0.1/9521
        sleep 0.05
    done
    prints serve "kestan has started" 2
    prints serve "PMT of service 103" 3
    (($(grep -c "PMT of service 103" serve.out) <= SECONDS - begin + 3))
    logged 1 Clearing
}

@test "serves the files of a directory, those with mistakes left out at the start" {
    mkdir tables more
    jq '{pat, pmts: .pmts[:2]}' "$small" >tables/a.json
    jq '{sdt} | .sdt.services += .sdt.services' "$small" >tables/b.json
    echo '{' >tables/c.json
    mkfifo tables/d.json
    cp tables/a.json tables/.hidden.json
    ln -s ../c.json tables/e.json
    jq '{pmts: .pmts[2:]}' "$small" >c.json
    jq '{cat}' "$small" >more/f.json
    local opened
    opened=$(connections_opened)
    serve tables more
    says serve "error: tables/c.json: not JSON"
    says serve "error: tables/b.json: sdt.services\[3\].service_id: .* twice"
    says serve "tables/b.json: left out because of its errors"
    says serve "error: tables/d.json: cannot be read: not a regular file"
    told "^STATUS=waits for Kestan: nothing listens"
    told READY=1
    sleep 1
    # At first 50 ms apart, then ever longer.
    [ ! "$KESTAN_OWN_NETWORK" ] || (($(connections_opened) - opened < 9))
    [ "$(grep -c "nothing listens" serve.err)" = 1 ]
    play
    prints serve "PMT of service 103"
    run -1 grep EXCEPTION kestan.err
    on_air <(jq 'del(.sdt)' "$small")
    jq "{sdt}" "$small" >tables/b.json
    rm tables/[cd].json
    reload
    prints serve "SDT of transport stream 1"
    told "STATUS=sent 6 tables at [0-9:]*"
    : >serve.err
    mv tables/a.json tables/a.json~
    rm tables/*.json
    reload
    says serve "error: tables: no file in this directory is named \*.json"
    says serve "the tables read before stay"
    told "STATUS=the files of [0-9:]* have a mistake: what was sent at [0-9:]* stays"
    on_air "$small"
    finish serve INT
    told "STOPPING=1"
    told "STATUS=has ended; what was sent at [0-9:]* stays"
    NOTIFY_SOCKET=$PWD/notify exits 1 "no file can be served" kestan-control serve --set 1 tables
    told "STATUS=has failed: no file can be served"
}

@test "waits for its turn, and a client that gives up leaves nothing behind" {
    play_small
    hold
    write .pat.version_number=9
    for command in clear "push tables.json"; do
        # shellcheck disable=SC2086  # a command with its argument
        run -1 timeout 20 kestan-control $command --timeout 0.3
        [[ $output == *" within 0.3 s: "*"another one probably holds the connection"* ]]
    done
    write 'del(.cat)'
    serve --timeout 0.5 tables.json
    says serve " within 0.5 s: .* holds the connection; waiting"
    told READY=1
    sleep 1
    stop holder
    prints serve "PMT of service 103"
    wait_until on_air tables.json
    finish serve
    [ "$(grep -c holds serve.err)" = 1 ]
    logged 1 Clearing
    logged 2 "New PAT"
}

@test "raises versions, so that receivers see each change" {
    export STATE_DIRECTORY=$PWD/state XDG_STATE_HOME=/dev/null
    local history=state/versions-127.0.0.1-0.json filter version
    play
    write .
    mkdir state
    for found in '{' '{"written": {"cat": {"version_number": 1}}, "sent": {"pmts": []}}' \
        '{"format": 2}'; do
        echo "$found" >$history
        run -0 --separate-stderr kestan-control push --bump-versions tables.json
        [[ $stderr == "warning: $PWD/$history: not read: "* ]]
    done
    [ "$(<$history)" = '{"format": 2}' ]
    STATE_DIRECTORY=/dev/null kestan-control push --bump-versions tables.json 2>&1 |
        grep "warning: .* cannot be written: .*: after a restart"
    jq '{written: ., sent: .}' tables.json >$history  # of a release without formats
    write '.pmts[0].streams[0].stream_type = 2 | .cat.version_number = 7'
    kestan-control push --bump-versions tables.json | tee pushed
    grep "tables.json: pmts\[0\].version_number: .* version 2 goes out instead of 1" pushed
    serve --bump-versions tables.json
    prints serve "CAT: version 7, accepted"
    while IFS='|' read -r version filter; do
        rewrite "$filter"
        prints serve "PMT of service 101 (0x0065) on PID 0x0100: version $version, accepted"
    done <<'END'
2|.pmts[0].streams[0].stream_type = 2 | .cat.version_number = 7
3|.
31|.pmts[0].version_number = 31 | .pmts[0].streams[0].stream_type = 2
0|.pmts[0].version_number = 31
1|.pmts[0].version_number = 0 | .pmts[0].streams[0].stream_type = 2
END
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
        if ((round % 4 == 0)); then
            crash serve
            serve tables.json
        fi
        crash kestan
    done
    play
    rewrite 'del(.pmts[1]) | .pat.version_number = 31'
    wait_until on_air tables.json
}
