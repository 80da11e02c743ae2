# Scripts source this to play a multiplex on loopback with programs in any place.
# shellcheck shell=bash disable=SC2154  # the programs are given

declare -A started=()

# start <program> [argument]...: runs the program in the background until this shell ends.
start() {
    trap end_started EXIT
    "$@" &
    started[$!]=$*
}

end_started() {
    local jobs
    mapfile -t jobs < <(jobs -p)
    kill "${jobs[@]}" 2>/dev/null || true
    wait "${jobs[@]}" 2>/dev/null || true
}

# meanwhile <command> [argument]...: runs the command to its end, but fails as soon as a
# program that `start` started has ended.
meanwhile() {
    local command program ended='' status=0
    "$@" &
    command=$!
    # Of a program that ended before, bash knows the status, but `wait -n` does not find it.
    for program in "${!started[@]}"; do
        kill -0 "$program" 2>/dev/null || ended=$program
    done
    if [ "$ended" ]; then
        wait "$ended" || status=$?
    else
        wait -n -p ended "${!started[@]}" "$command" || status=$?
    fi
    [ "$ended" != "$command" ] || return "$status"
    kill "$command" 2>/dev/null || true
    echo "ended with status $status: ${started[$ended]}" >&2
    return 1
}

wait_for_port() { # <port>
    for _ in {1..100}; do
        (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
        sleep 0.1
    done
    echo "nothing listens on port $1" >&2
    return 1
}

# With this before it, kestan-control leaves no record in the user's home.
stateless=(env -u STATE_DIRECTORY -u XDG_STATE_HOME -u HOME)

# play_out <tables.json> <seconds>: plays the tables for that time. kestan-monitor checks that
# all of them come and have no error. It does not check times: an emulator or a busy machine is
# late. The arrays kestan, kestan_control and kestan_monitor are command lines; an emulator or
# chroot can come first. If there is a function while_playing, it is called with kestan's
# process. Run this in a separate network.
play_out() (
    tables=$1 seconds=$2 stream=127.0.0.1:5432
    start "${kestan[@]}" -c -b 10000 -O "${stream/:/\/}"
    pid=$!
    meanwhile wait_for_port 9501
    pushed=$("${stateless[@]}" "${kestan_control[@]}" push "$tables" | grep -c ': version ')
    if declare -F while_playing >/dev/null; then
        (sleep $((seconds / 2)) && while_playing "$pid") &
    fi
    report=$(mktemp)
    trap 'end_started; rm -f "$report"' EXIT
    meanwhile "${kestan_monitor[@]}" "$stream" --duration "$seconds" --json >"$report"
    jq -r '.pids[] | .pid as $pid | .tables[] | select(.table != "PMT")
        | "PID \($pid)  \(.table)  every \(.repetition_ms.mean // 0 | round) ms"' "$report"
    read -r seen errors < <(jq -r '[([.pids[].tables[] | select(.sections > 0)] | length),
        ([.pids[] | .continuity_errors + .crc_errors] | add // 0)] | @tsv' "$report")
    echo "$pushed tables pushed, $seen seen with the TDT, $errors errors in them"
    if [ "$seen" -ne $((pushed + 1)) ] || [ "$errors" -ne 0 ]; then
        echo "not all tables came without an error" >&2
        return 1
    fi
)
