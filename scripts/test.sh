#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test.
#
#   scripts/test.sh         the release build, and some seconds of the fuzzers
#   scripts/test.sh --all   also the format check, and the tests under AddressSanitizer +
#                           UndefinedBehaviorSanitizer and under ThreadSanitizer
#   scripts/test.sh --lint  clang-tidy alone, which takes some minutes
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

build_and_test() { # <preset>
    echo "== $1"
    cmake --preset "$1" -G Ninja >/dev/null
    cmake --build --preset "$1" -- --quiet
    ctest --preset "$1" --no-tests=error --parallel "$(nproc)"
}

fuzz() {
    echo "== fuzz"
    scripts/fuzz.sh 5
}

check_format() {
    echo "== format"
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
}

check_lint() {
    cmake --preset release -G Ninja >/dev/null
    cmake --build --preset release -- --quiet
    git ls-files '*.cpp' | grep -vE '^(tests|fuzz)/' |
        xargs -P "$(nproc)" -n 1 clang-tidy -p build --quiet 2>/dev/null
}

case "${1:-}" in
    "")
        install_missing "${build_packages[@]}" "${test_packages[@]}"
        fuzz
        build_and_test release
        ;;
    --all)
        install_missing "${build_packages[@]}" "${test_packages[@]}" "${check_packages[@]}"
        check_format
        scripts/check_includes.sh
        build_and_test release
        fuzz
        build_and_test asan
        build_and_test tsan
        ;;
    --lint)
        install_missing "${build_packages[@]}" "${test_packages[@]}" "${check_packages[@]}"
        check_lint
        ;;
    *)
        echo "usage: scripts/test.sh [--all | --lint]" >&2
        exit 2
        ;;
esac
