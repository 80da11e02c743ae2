#!/usr/bin/env bash
# run_bats.sh <directory of the programs> <file.bats>: runs tests of whole programs in a
# separate network: their ports collide with nothing, and nothing leaves this machine.
set -euo pipefail

export KESTAN_BIN=$1 KESTAN_OWN_NETWORK=yes
# ctest sets these variables. Without ctest they come from the build.
cached() { sed -n "s/^$1:[A-Z]*=//p" "$KESTAN_BIN/../CMakeCache.txt"; }
export KESTAN_FPGA_ADDRESS=${KESTAN_FPGA_ADDRESS-$(cached KESTAN_FPGA_ADDRESS)}
export KESTAN_SANITIZE=${KESTAN_SANITIZE-$(cached KESTAN_SANITIZE)}
readonly bats=(bats --timing --print-output-on-failure "$2")

for spaces in -n -rn; do
    if unshare "$spaces" true 2>/dev/null; then
        exec unshare "$spaces" sh -c 'ip link set lo up && exec "$@"' sh "${bats[@]}"
    fi
done
echo "no separate network namespace: using the ports of this machine" >&2
export KESTAN_OWN_NETWORK=
exec flock -o /tmp/kestan-test-ports "${bats[@]}"
