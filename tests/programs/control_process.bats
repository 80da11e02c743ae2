# The examples of control processes against the daemon.
# shellcheck disable=SC2154  # variables of programs.bash

load programs
readonly source=$BATS_TEST_DIRNAME/../..

# keeps_on_air <filter> <command>...: the control process keeps its tables on air after Kestan
# is killed and started again. jq's filter must be true of the tables on the wire.
keeps_on_air() {
    start control "${@:2}"
    listens control 9521
    for _ in killed started; do
        play
        says kestan "New PMT sid=0065 pid=0100 version=1"
        capture 1.2
        kestan-control import capture.ts | jq -e ".pat.programs[0].pid == \"0x0100\" and
            .pmts[0].streams[0].elementary_pid == \"0x0101\" and $1"
        finish kestan KILL || [ $? -eq 137 ]
    done
    stop control
}

@test "the example in Python keeps its tables on air" {
    thrift -r --gen py "$source/thrift/ci_module.thrift"
    PYTHONPATH=gen-py keeps_on_air \
        '.sdt.services[0].descriptors[0].service.service_name == "Harbour"' \
        /usr/bin/python3 "$source/examples/control-process/control_process.py"
}

@test "the example in C++ keeps its tables on air" {
    keeps_on_air true "$KESTAN_BIN/../tests/control_process_example"
}
