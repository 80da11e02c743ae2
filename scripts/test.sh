#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test.
#
#   scripts/test.sh         the release build
#   scripts/test.sh --all   also the format check, shellcheck and clang-tidy, some seconds
#                           of the fuzzers, and the tests under AddressSanitizer +
#                           UndefinedBehaviorSanitizer and, built with clang, under
#                           ThreadSanitizer
#   scripts/test.sh --lint  clang-tidy alone
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

build_and_test() { # <preset>
    echo "== $1"
    cmake --preset "$1" -DKESTAN_TESTS=ON >/dev/null
    cmake --build --preset "$1" -- --quiet
    ctest --preset "$1" --no-tests=error --parallel "$(nproc)"
}

fuzz() {
    echo "== fuzz"
    scripts/fuzz.sh 5
}

# sources <name>...: finds this tree's files by name, also without git.
sources() {
    local names=(-false) name
    for name in "$@"; do names+=(-o -name "$name"); done
    find . \( -name .git -o -path './build*' \) -prune -o -type f \( "${names[@]}" \) -print0
}

check_format() {
    echo "== format"
    sources '*.h' '*.cpp' | xargs -0 clang-format --dry-run -Werror
}

check_scripts() {
    echo "== shellcheck"
    { sources '*.sh' '*.bash' '*.bats' 'post*.in' 'pre*.in' && printf '.ci/run\0'; } |
        xargs -0 shellcheck
}

check_lint() {
    # clang-tidy takes no check, and says so with status 0, if its configuration has a mistake.
    clang-tidy --dump-config 2>&1 | (! grep -m 1 'error:')
    cmake --preset lint >/dev/null
    cmake --build --preset lint --target kestan_thrift -- --quiet
    jq -r --arg tree "$PWD/" '.[].file | ltrimstr($tree)
        | select(test("^(build-lint/)?tests/|/kestan_thrift[.]dir/") | not)' \
        build-lint/compile_commands.json |
        xargs -d '\n' -P "$(nproc)" -n 1 clang-tidy -p build-lint --quiet 2>/dev/null
}

case "${1:-}" in
    "")
        install_missing "${build_packages[@]}" "${test_packages[@]}"
        find_promtool
        build_and_test release
        ;;
    --all)
        install_missing "${build_packages[@]}" "${test_packages[@]}" "${fuzz_packages[@]}" \
            "${check_packages[@]}"
        find_promtool
        check_format
        scripts/check_includes.sh
        check_scripts
        check_lint
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
