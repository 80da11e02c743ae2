#!/usr/bin/env bash
# Plays days of stream time at 1,000 kbit/s on the simulated clock, with a table updated
# every few seconds and every packet checked. Thirty days take some minutes.
#
#   scripts/soak.sh [DAYS]     30 by default
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

install_missing "${build_packages[@]}" "${unit_test_packages[@]}"
cmake --preset release -DKESTAN_TESTS=ON >/dev/null
cmake --build --preset release --target soak_test -- --quiet
KESTAN_SOAK_DAYS="${1:-30}" build/tests/soak_test --gtest_filter=Soak.KeepsEachPacketSectionAndIntervalRight
