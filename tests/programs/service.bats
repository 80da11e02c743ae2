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
    ((after_ms > 4800 && after_ms < 15000))  # 15 s: the unit's WatchdogSec=
    kill -STOP "${pid[kestan]}"
    sleep 5.5
    [ "$(<manager.out)" = READY=1WATCHDOG=1 ]
    kill -CONT "${pid[kestan]}"
    wait_until grep -qx READY=1WATCHDOG=1WATCHDOG=1 manager.out
}

# Two kicks, one every 5 s, may be lost.
@test "has units that wait for two kicks, start in order and let through what is meant" {
    cmake --install "$KESTAN_BIN/.." --prefix "$PWD" >install.out
    cd lib/systemd/system
    (($(sed -n 's/^WatchdogSec=\([0-9]*\)s$/\1/p' kestan@.service) > 2 * 5))
    grep -x "Before=kestan@%i.service" kestan-control@.service
    run -1 grep -E "^After=.*kestan" ./*.service
    [ "$(sed -n 's/^IPAddress//p' kestan@.service)" = "Deny=any
Allow=localhost
Allow=multicast
Allow=$KESTAN_FPGA_ADDRESS" ]
    [ "$(sed -n 's/^IPAddress//p' kestan-control@.service)" = "Deny=any
Allow=localhost" ]
}

# reaches <port> [seconds]: another host's connection to the port must be accepted.
reaches() { timeout "${2:-20}" "${in_peer[@]}" bash -c "exec 4<>/dev/tcp/192.0.2.1/$1"; }

@test "has a packet filter that closes the control ports to other hosts" {
    command -v nft || skip "nft is not installed"
    lay_link link0 192.0.2.1 192.0.2.2
    for port in 9501 9502 9511; do
        start "port$port" socat -u "TCP-LISTEN:$port,fork" /dev/null
        listens "port$port" "$port"
        reaches "$port"
    done
    nft -f "$BATS_TEST_DIRNAME/../../packaging/control-port.nft"
    for port in 9501 9511; do
        run -124 reaches "$port" 1
        timeout 20 bash -c "exec 4<>/dev/tcp/127.0.0.1/$port"
    done
    reaches 9502
}

# loads: nft loads a configuration that has rules of the host's own and then the line.
loads() {
    printf '%s\n' 'flush ruleset' 'table inet own' "$1" >nftables.conf
    nft -f nftables.conf && nft list table inet own
}

@test "the documented line for nftables closes the port, and is no error without the package" {
    needs_own_network
    command -v nft || skip "nft(8) is not installed"
    nft list ruleset || skip "nft may not filter here"
    local packaging=$BATS_TEST_DIRNAME/../../packaging line file
    line=$(grep -ho 'include "/usr/share/kestan/.*"' "$packaging"/{control-port.nft,../docs/operating.md})
    line+=$'\n'$(sed 's/\\-/-/g' "$packaging/man/kestan.8.in" | grep '^include "')
    line=$(sort -u <<<"$line")
    line=${line/usr/$PWD\/usr}
    file=$PWD/usr/share/kestan/control-port.nft
    install -D "$packaging/control-port.nft" "$file"
    lay_link out 10.1.0.1 10.1.0.2
    play
    local connect=("${in_peer[@]}" timeout 2 bash -c ': <>/dev/tcp/10.1.0.1/9501')
    loads "$line"
    run -124 "${connect[@]}"
    kestan-control clear
    rm "$file"
    loads "$line"
    "${connect[@]}"
    run -1 loads "include \"$file\""
}

@test "has units that start the installed programs, which systemd understands, exposed less than 2.5" {
    command -v systemd-analyze || skip "systemd-analyze is not installed"
    cmake --install "$KESTAN_BIN/.." --prefix "$PWD" >install.out
    for program in kestan kestan-control kestan-insert; do
        local unit=$PWD/lib/systemd/system/$program@.service
        grep "^ExecStart=$PWD/bin/$program " "$unit"
        run -0 systemd-analyze verify --man=no "$unit"
        [[ $output != *$program@* ]]
        systemd-analyze security --offline=yes --threshold=24 "$unit"
    done
}
