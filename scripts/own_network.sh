#!/usr/bin/env bash
# own_network.sh COMMAND...: runs the command in a separate network with only a loopback
# interface, so that it cannot reach a Kestan that is on air. Where that is not permitted, the
# command runs in this machine's network, if nothing listens on Kestan's ports there.
set -euo pipefail

for spaces in -n -rn; do
    if unshare "$spaces" true 2>/dev/null; then
        exec unshare "$spaces" sh -c 'ip link set lo up && exec "$@"' sh "$@"
    fi
done
for port in 9501 9521; do
    if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
        echo "port $port is in use by another program: end it first" >&2
        exit 1
    fi
done
exec "$@"
