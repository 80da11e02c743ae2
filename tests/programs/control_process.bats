# The examples of control processes against the daemon.
# shellcheck disable=SC2154  # variables of programs.bash

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
    crash control
    stop holder
    kestan-control push "$small"  # waits for its turn
    run -1 grep -E "Clear" kestan.err
    start control "$@"
    listens control 9521
    says kestan "Clear PMT 0066"
    says kestan "New PMT sid=0065 pid=0100 version=1"
    run -1 grep "Clearing all" kestan.err
    crash kestan
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
