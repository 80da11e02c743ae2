# A device's own framework in the place of the host's, without an edit of this tree.
# shellcheck disable=SC2154  # variables of programs.bash

load programs

# Its build folder stays, so that a second run builds what has changed only.
@test "links a framework that is two closed archives, converters and constants included" {
    local source=$BATS_TEST_DIRNAME/../.. build=$KESTAN_BIN/../foreign_framework
    for part in framework tables; do
        c++ -std=c++17 -I"$source" -I"$KESTAN_BIN/../generated" \
            -c "$source/tests/data/foreign_$part.cpp"
        ar rc "lib$part.a" "foreign_$part.o"
    done
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DKESTAN_FRAMEWORK="$PWD/libframework.a;$PWD/libtables.a"
    cmake --build "$build" --target kestan
    run -1 grep -i libsystemd "$build/CMakeCache.txt"

    daemon=("$build/bin/kestan")
    "${daemon[@]}" -v
    start kestan "${daemon[@]}" -I lo
    says kestan "foreign 6 Out Address:127.0.0.1/6000 TTL 1 lo$"
    timeout 20 socat -u UDP-RECVFROM:6000 - | grep -q G
    run -1 kestan-control push "$small"
    [[ $output == *rejected* ]]
    run -1 grep -E " New | 4 PAT" kestan.err
}
