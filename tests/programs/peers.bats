# No peer on TCP can hold up or block the daemon.
# shellcheck disable=SC2034,SC2154  # variables of programs.bash

load programs

# The limit allows for the daemon's start. With a time-out per receive alone, slow bytes would
# take 11 s.
@test "is not held up by any answer to its start notification" {
    local name='\x80\1\0\2\0\0\0\x13NotifyKestanStarted\0\0\0\0'
    echo 'for byte in $(seq 36); do dd bs=1 count=1 status=none || exit; sleep 0.3; done <reply' \
        >slowly
    while IFS='|' read -r said bytes answer; do
        printf %b "$bytes" >reply
        start peer socat TCP-LISTEN:9521,reuseaddr SYSTEM:"${answer:-cat reply; sleep 9}"
        listens peer 9521
        local begin=$SECONDS
        play
        says kestan "MuxNotify client $said"
        echo "$said, $bytes: $((SECONDS - begin)) s"
        ((SECONDS - begin < 5))
        stop kestan
        stop peer || true
    done <<END
EXCEPTION: .*Exceeded size limit|\0\0\0\x0c\x80\1\0\2\x7f\xff\xff\xff\0\0\0\0
EXCEPTION: .*Exceeded size limit|\0\0\0\x26${name/\\2/\\3}\xb\0\1\x7f\xff\xff\xff
EXCEPTION: .*Exceeded size limit|\0\0\0\x27$name\xf\0\1\xc\x7f\xff\xff\xff
EXCEPTION: .*oversized frame|\0\1\0\1
EXCEPTION: .*[Tt]imed out|\0\0\0\x20${name/Started/Stopped}\0
EXCEPTION: .*[Tt]imed out|\0\0\0\x20$name\0|sh slowly
EXCEPTION: .*[Tt]imed out|
EXCEPTION: .*No more data||head -c 36 >call
EXCEPTION: ||true
END
}

@test "has the kernel probe a silent client" {
    needs_strace
    daemon=(strace -Dqqfo calls -e trace=setsockopt kestan)
    play
    kestan-control clear-cat
    for option in SO_KEEPALIVE=1 TCP_KEEPIDLE=60 TCP_KEEPINTVL=10 TCP_KEEPCNT=3 \
        TCP_USER_TIMEOUT=90000; do
        grep -F "${option/=/, [}]" calls
    done
}
