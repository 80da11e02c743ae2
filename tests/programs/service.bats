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

@test "has a unit that starts the installed program, which systemd understands, exposed less than 2.5" {
    command -v systemd-analyze || skip "systemd-analyze is not installed"
    cmake --install "$KESTAN_BIN/.." --prefix "$PWD" >install.out
    local unit=$PWD/lib/systemd/system/kestan@.service
    grep "^ExecStart=$PWD/bin/kestan " "$unit"
    run -0 systemd-analyze verify --man=no "$unit"
    [[ $output != *kestan@* ]]
    systemd-analyze security --offline=yes --threshold=24 "$unit"
}
