#!/usr/bin/env bash
# Builds the fuzzers with clang's sanitizers and runs each for a while: on fuzz/seeds, on
# fuzz/cases, which were found before, and on inputs made from these. Inputs that reach new
# code stay in build-fuzz/corpus for the next run. Inputs that fail are written to
# build-fuzz/findings; move them to fuzz/cases together with the repair.
#
#   scripts/fuzz.sh [SECONDS]     of each fuzzer, 60 by default
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

install_missing "${build_packages[@]}" "${fuzz_packages[@]}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzzers -- --quiet
mkdir -p build-fuzz/findings
for fuzzer in build-fuzz/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    inputs=("build-fuzz/corpus/$name" "fuzz/seeds/$name" "fuzz/cases/$name")
    mkdir -p "${inputs[@]}"
    echo "== $name"
    "$fuzzer" -max_total_time="${1:-60}" -timeout=20 -malloc_limit_mb=100 -verbosity=0 \
        -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$name-" \
        "${inputs[@]}"
done
