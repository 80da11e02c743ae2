# To be sourced: plays a multiplex on loopback with programs wherever they are.

wait_for_port() { # <port>
    local try
    for try in {1..100}; do
        (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
        sleep 0.1
    done
    echo "nothing listens on port $1" >&2
    return 1
}

# play_out <tables.json> <seconds>: lets kestan play the tables for so long, while
# kestan-monitor looks whether all of them come and without an error. (Not whether in time:
# that is no property of an emulator or of a busy machine.) The arrays kestan, kestan_control
# and kestan_monitor are the programs' command lines, with an emulator before them, say, or in
# a chroot. Meanwhile while_playing is called with kestan's process, where there is such a
# function.
play_out() (
    tables=$1 seconds=$2 stream=127.0.0.1:5432
    "${kestan[@]}" -c -b 10000 -O "${stream/:/\/}" &
    pid=$!
    trap 'kill "$pid"' EXIT
    wait_for_port 9501
    pushed=$("${kestan_control[@]}" push "$tables" | wc -l)
    if declare -F while_playing >/dev/null; then
        (sleep $((seconds / 2)) && while_playing "$pid") &
    fi
    report=$("${kestan_monitor[@]}" "$stream" --duration "$seconds")
    grep -v ' PMT ' <<<"$report"
    read -r seen errors < <(awk '/^0x/ { seen++; errors += $(NF - 6) + $(NF - 5) }
                                 END { print seen + 0, errors + 0 }' <<<"$report")
    echo "$pushed tables pushed, $seen seen with the TDT, $errors errors in them"
    [ "$seen" -eq $((pushed + 1)) ] && [ "$errors" -eq 0 ]
)
