# The examples of control processes against the daemon.
# shellcheck disable=SC2059,SC2154  # calls with escapes, variables of programs.bash

load programs
readonly source=$BATS_TEST_DIRNAME/../..

# keeps_on_air <command>...: the control process keeps its tables on air after Kestan is killed
# and started again, without what it no longer wants. Killed while it waits for another client,
# it leaves nothing behind.
keeps_on_air() {
    play
    hold
    start control "$@"
    wait_until grep -qE ":251D [0-9A-F:]+ 01 0+:0*[1-9A-F]" /proc/net/tcp  # its first call
    finish control KILL || [ $? -eq 137 ]
    stop holder
    kestan-control push "$small"  # waits for its turn
    run -1 grep -E "Clear" kestan.err
    start control "$@"
    listens control 9521
    says kestan "Clear PMT 0066"
    says kestan "New PMT sid=0065 pid=0100 version=1"
    run -1 grep "Clearing all" kestan.err
    finish kestan KILL || [ $? -eq 137 ]
    play
    says kestan "New PMT sid=0065 pid=0100 version=1"
    watch
    finds_nothing 1.2
    capture 1.2
    kestan-control import capture.ts | jq -e '.pmts[0].streams[0].elementary_pid == "0x0101"
        and .sdt.services[0].descriptors[0].service.service_name == "Harbour"
        and .sdt.services[0].running_status == 4'
    stop control
}

@test "the example in Python keeps its tables on air" {
    thrift -r --gen py "$source/thrift/ci_module.thrift"
    PYTHONPATH=gen-py keeps_on_air /usr/bin/python3 \
        "$source/examples/control-process/control_process.py"
}

@test "the example in C++ keeps its tables on air" {
    keeps_on_air "$KESTAN_BIN/../tests/control_process_example"
}

@test "the document has the log's words for a call that cannot be read" {
    play
    while IFS='|' read -r call words; do
        printf "$call" >/dev/tcp/127.0.0.1/9501
        says kestan "$words"
        grep -F "\`TConnectedClient $words\`" "$source/docs/control-process.md"
    done <<'END'
\0\0\0\x13\x80\1\0\1\0\0\0\6NewPAT\0\0\0\1\0|processing exception: TProtocolException: Invalid data
\0\0\0\4\x82\x21\1\0|processing exception: Bad version identifier
\0\0\0\4[1,"|processing exception: TProtocolException: Exceeded size limit
\x80\1\0\1|died: Frame size has negative value
POST|died: Received an oversized frame
END
}
