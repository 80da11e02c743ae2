# The daemon under systemd: sd_notify(3) and the unit.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

@test "tells the service manager that it is up, and alive unless it is stopped" {
    start manager socat -u UNIX-RECV:notify -
    wait_until [ -S notify ]
    NOTIFY_SOCKET=$PWD/notify WATCHDOG_USEC=15000000 play
    wait_until grep -q READY=1 manager.out
    local ready=${EPOCHREALTIME/./} after_ms
    wait_until grep -q WATCHDOG=1 manager.out
    after_ms=$(((${EPOCHREALTIME/./} - ready) / 1000))
    echo "the first kick came after $after_ms ms"
    ((after_ms > 4800 && after_ms < 5800))
    kill -STOP "${pid[kestan]}"
    sleep 5.5
    [ "$(<manager.out)" = READY=1WATCHDOG=1 ]
    kill -CONT "${pid[kestan]}"
    sleep 1
    [ "$(<manager.out)" = READY=1WATCHDOG=1WATCHDOG=1 ]
}

# As it is installed, with the program that has just been built.
@test "has a unit that systemd understands, exposed less than 2.5" {
    command -v systemd-analyze || skip "systemd-analyze is not installed"
    sed "s:^ExecStart=kestan :ExecStart=$KESTAN_BIN/kestan :" \
        "$KESTAN_BIN/../packaging/kestan@.service" >kestan@.service
    grep "^ExecStart=$KESTAN_BIN" kestan@.service
    run -0 systemd-analyze verify --man=no "$PWD/kestan@.service"
    [[ $output != *kestan@* ]]
    systemd-analyze security --offline=yes --threshold=24 "$PWD/kestan@.service"
}
