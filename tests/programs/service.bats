# The daemon under systemd: sd_notify(3), the units and the packet filter.
# shellcheck disable=SC2034,SC2154  # variables of programs.bash

load programs
readonly packaging=$BATS_TEST_DIRNAME/../../packaging

@test "is up, tells the service manager, then its control process, and is alive unless stopped" {
    needs_strace
    manage
    local daemon=(strace -Dqqfo trace -e "trace=clone,clone3,sendmsg,connect" kestan)
    NOTIFY_SOCKET=$PWD/notify WATCHDOG_USEC=15000000 play
    told READY=1
    local ready=${EPOCHREALTIME/./} after_ms
    told WATCHDOG=1
    after_ms=$(((${EPOCHREALTIME/./} - ready) / 1000))
    echo "the first kick came after $after_ms ms"
    ((after_ms > 4800 && after_ms < 15000))  # 15 s: the unit's WatchdogSec=
    kill -STOP "${pid[kestan]}"
    sleep 5.5
    [ "$(<manager.out)" = READY=1WATCHDOG=1 ]
    kill -CONT "${pid[kestan]}"
    told '^READY=1WATCHDOG=1WATCHDOG=1$'
    [[ $(<trace) == *clone*READY=1*"sin_port=htons(9521)"* ]]  # its control process's port
}

# Two kicks, one every 5 s, may be lost.
@test "has units that wait for two kicks, start in order, let through what is meant and are safe" {
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
    command -v systemd-analyze || skip "systemd-analyze is not installed"
    for program in kestan kestan-control kestan-insert; do
        local unit=$PWD/$program@.service
        grep "^ExecStart=${PWD%/lib/*}/bin/$program " "$unit"
        run -0 systemd-analyze verify --man=no "$unit"
        [[ $output != *$program@* ]]
        systemd-analyze security --offline=yes --threshold=24 "$unit"
    done
}

# reaches <port> [seconds]: another host's connection to the port must be accepted.
reaches() { timeout "${2:-20}" "${in_peer[@]}" bash -c "exec 4<>/dev/tcp/192.0.2.1/$1"; }

# loads: nft loads a configuration that has rules of the host's own and then the line.
loads() {
    printf '%s\n' 'flush ruleset' 'table inet own' "$1" >nftables.conf
    nft -f nftables.conf && nft list table inet own
}

@test "the documented line for nftables closes the control ports to other hosts, no other ports" {
    needs_own_network
    command -v nft || skip "nft(8) is not installed"
    nft list ruleset || skip "nft may not filter here"
    local line file=$PWD/usr/share/kestan/control-port.nft
    line=$(sed 's/\\-/-/g' "$packaging"/{control-port.nft,man/kestan.8.in,../docs/operating.md} |
        grep -o 'include "/usr/share/kestan/.*"' | sort -u)
    [[ $line != *$'\n'* ]]  # it is the same everywhere
    line=${line/usr/$PWD\/usr}
    install -D "$packaging/control-port.nft" "$file"
    lay_link link0 192.0.2.1 192.0.2.2
    for port in 9501 9502 9511; do
        start "port$port" socat -u "TCP-LISTEN:$port,fork" /dev/null
        listens "port$port" "$port"
        reaches "$port"
    done
    loads "$line"
    for port in 9501 9511; do
        run -124 reaches "$port" 1
        timeout 20 bash -c "exec 4<>/dev/tcp/127.0.0.1/$port"
    done
    reaches 9502
    rm "$file"
    loads "$line"  # as without the package
    reaches 9501
    run -1 loads "include \"$file\""
}
