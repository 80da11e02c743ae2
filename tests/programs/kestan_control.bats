# kestan-control against the daemon and against servers that misbehave.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# fails <status> <text> <argument>...: kestan-control must fail with the status and print the
# text.
fails() { exits "$1" "$2" kestan-control "${@:3}"; }

@test "says what became of each table, and sends nothing when a file has a mistake" {
    play
    echo '{"pmts": [{"pid": "0x2000"}]}' >bad.json
    fails 1 'error: bad.json:1: pmts[0].pid: found "0x2000"' push "$small" bad.json
    jq 'del(.pmts[2]) | .cat.version_number = 40
        | .pmts[1].streams = [range(300) | {stream_type: 2, elementary_pid: (. + 512)}]' \
        "$small" >large.json
    fails 1 "error: large.json: pmts[1]: PMT of service 102: descriptors and streams take \
1,508 bytes, 1,008 fit" push large.json
    run -1 grep "New " kestan.err
    fails 1 "PAT of transport stream 1 (0x0001): version 1, accepted
CAT: version 40, accepted as version 0
SDT of transport stream 1 (0x0001): version 1, accepted
PMT of service 101 (0x0065) on PID 0x0100: version 1, accepted; if kestan had it on another \
PID, it stays there: see --move
PMT of service 102 (0x0066) on PID 0x0110: version 1, rejected
kestan rejected the PMT of service 102 (0x0066)" push --force large.json
}

@test "checks the tables of all files together" {
    for table in pat cat sdt pmts; do jq "{$table}" "$small" >$table.json; done
    run -0 kestan-control check - {pat,cat,pmts}.json <sdt.json
    [[ $output == "information: pat.json: pat.programs: "*"
bit rate: 25.0 packets a second, 37.6 kbit/s" ]]
    jq '{pmts: .pmts[1:]} | .pmts[1].pid = "0x0111" | .pmts[0].version_number = 32' "$small" \
        >later.json
    fails 1 "error: later.json: pmts[1].pid: PID 0x0111 carries a stream of service 102 \
(0x0066) too: receivers" check pat.json <(jq '.pmts |= .[:1]' pmts.json) later.json cat.json
    [[ $output == *"
warning: later.json: pmts[0].version_number: version 32 "* ]]
    fails 1 "error: sdt.json: sdt: an earlier file has this table too" check "$small" sdt.json
    mkdir empty
    fails 1 "error: empty: no file in this directory is named *.json" check empty
    jq -c '(.pat.programs[0], .pmts[0]).pid = "0256"' "$small" >zero.json
    for command in check push; do
        fails 1 'error: zero.json:1: pmts[0].pid: found "0256", write 256 or "0x0256"' \
            $command zero.json
        fails 1 "error: the tables need 25.0 packets a second, 37.6 kbit/s, and --bitrate \
allows 37 kbit/s" $command "$small" --bitrate 37
    done
    fails 1 'pmts[0].pid: found "0256"' check - < <(jq .cat.version_number=256 zero.json)
    [[ $output == "error: -:"*": cat.version_number: found 256"* ]]
    kestan-control check --bitrate 38 "$small"
    exits 1 "is the disk full?" sh -c 'kestan-control check "$0" 2>&1 >/dev/full' "$small"
}

@test "reads pipes and files of 64 MB at most, and no device" {
    truncate -s 64M large.json
    truncate -s $((64 * 1024 * 1024 + 1)) larger.json
    all_exit kestan-control <<'END'
1|error: /dev/zero: cannot be read: neither a regular file nor a pipe|check /dev/zero
1|error: larger.json: cannot be read: larger than 64 MB|check larger.json
1|error: large.json: not JSON: line 1, column 1|check large.json
END
    fails 1 "error: nowhere.json: cannot be read: No such file or directory" check nowhere.json
    [ "${#lines[@]}" -eq 1 ]  # and no bit rate
    mkfifo late.json
    start check kestan-control check late.json
    sleep 0.1
    cat "$small" >late.json
    await check
    kestan-control check - < <(sleep 0.1; cat "$small")
}

@test "push moves a service that it knows on another PID, and remembers in its directory alone" {
    play
    run -0 --separate-stderr env -u HOME -u XDG_STATE_HOME kestan-control push "$small"
    [ ! "$stderr" ]
    [ ! -e /.local/state/kestan-control ]
    jq '(.pat.programs[0], .pmts[0]).pid = "0x00AA" | .pat.version_number = 2' "$small" >moved.json
    kestan-control push "$small"
    [ "$(ls state/kestan-control)" = "pushed-127.0.0.1-0.json
versions-127.0.0.1-0.json" ]
    kestan-control push moved.json >pushed
    [ "$(grep "service 101" pushed)" = "\
PMT of service 101 (0x0065) on PID 0x0100: stopped, it moves to PID 0x00AA
PMT of service 101 (0x0065) on PID 0x00AA: version 1, accepted" ]
    on_air moved.json
    export XDG_STATE_HOME=$PWD/other
    kestan-control push "$small" >pushed
    grep "0x0100: version 1, accepted; if kestan had it on another PID, it stays there" pushed
    on_air <(jq "del(.pmts[0])" "$small")
    kestan-control push --move "$small" >pushed
    [ "$(grep -c "^PMT of service 10.*: stopped before it is sent$" pushed)" = 3 ]
    on_air "$small"
    jq '.pmts[0].streams[0].stream_type = 2' "$small" >changed.json
    run -0 --separate-stderr kestan-control push changed.json
    [[ $stderr == "warning: changed.json: pmts[0].version_number: the table has changed and is \
still version 1: receivers ignore the change"* ]]
}

@test "tells the journal the level of each line, and check takes the options of serve" {
    jq '.pmts[0].pid = "0x0011" | .cat.version_number = 32' "$small" >bad.json
    : >journal
    local stream
    stream=$(stat -c %d:%i journal)
    JOURNAL_STREAM=$stream kestan-control push bad.json 2>journal || [ $? -eq 1 ]
    for line in "<3>error: bad.json: pmts\[0\].pid" "<4>warning: bad.json: cat.version_number" \
        "<3>nothing is sent"; do
        grep "^$line" journal
    done
    JOURNAL_STREAM=$stream run -1 kestan-control check bad.json
    [[ $output == "error: "* ]]  # standard output is something else
    kestan-control check --force --bump-versions --clear bad.json
    fails 1 "No such file" check --force nowhere.json
}

@test "imports what it pushed, a foreign capture's tables too, and names what is missing" {
    ffmpeg -v error -f lavfi -i testsrc -f lavfi -i sine -metadata:s:a:0 language=deu \
        -program title=Harbour:program_num=7:st=0 -program title=Möwe:program_num=9:st=1 \
        -map 0 -map 1 -t 2 -f mpegts foreign.ts </dev/null
    kestan-control import - <foreign.ts >foreign.json
    for text in Harbour Möwe deu 0x1001; do grep "\"$text\"" foreign.json; done
    exits 1 "is the disk full?" sh -c 'kestan-control import foreign.ts 2>&1 >/dev/full'
    local large=${small%/*}/large.json
    play -b 5000
    for file in foreign.json "$large"; do
        kestan-control push - <"$file"
        on_air "$file"
    done
    head -c -100 capture.ts >cut.ts
    kestan-control import cut.ts 2>&1 | grep "cut.ts: ends in the middle of a packet"
    kestan-control stop-pmt 0x03E9 512
    kestan-control clear-cat
    on_air <(jq 'del(.cat, .pmts[0])' "$large")
    fails 1 "has service 1001, but its PMT on PID 0x0200" import capture.ts
}

@test "says what went wrong and what to do" {
    printf 'G%187s' '' >packet.ts
    all_exit kestan-control <<END
2|--set|--set 2 clear
2|0x2000 is not a number|stop-pmt 1 0x2000
1|nothing listens on 127.0.0.1:9511: is kestan running with -s 1?|clear --set 1
1|No such file|import nowhere
1|no transport-stream packets|import /dev/null
1|no complete table|import packet.ts
1| 0 PMTs|import $(echo "$BATS_TEST_DIRNAME"/../../fuzz/cases/import/pmt-program-info*)
END
    for command in check push import; do
        fails 1 '"no\x0awhere": cannot be read: No such' $command $'no\nwhere'
    done
    while IFS='|' read -r answer said; do
        echo "dd bs=64K count=1 of=/dev/null; $answer" >server
        start server socat TCP-LISTEN:9501,reuseaddr SYSTEM:". ./server"
        listens server 9501
        fails 1 "$said" push "$small"
    done <<'END'
true|127.0.0.1:9501 broke off before it answered newScramblingConfig
printf '\0\0\0\4junk'|is it kestan, and of this release?
printf 'HTTP/1.1 400 Bad Request\r\n\r\n'|before it answered newScramblingConfig
cat >/dev/null|did not answer newScramblingConfig within 3 s: kestan serves one client at a time
END
}
