#!/usr/bin/env bash
# Builds Kestan for 32-bit ARM (armhf) on another Debian machine, runs the unit tests and plays
# a multiplex of 100 services under qemu-arm, and prints the program's size and memory.
# Everything goes into build-arm/: the armhf packages are fetched with a separate state of apt
# and unpacked there. The state of the system's apt does not change.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/play_out.sh

build=$PWD/build-arm
sysroot=$build/sysroot
emulator=(qemu-arm -L "$sysroot")
programs=(kestan kestan-control kestan-insert kestan-monitor)
libraries=(
    libstdc++-12-dev libthrift-dev libdvbpsi-dev libboost-dev libsystemd-dev
    nlohmann-json3-dev libcli11-dev libfmt-dev libbitstream-dev libgtest-dev libgmock-dev
)

# Uses the system's Debian mirrors for armhf.
set_up_apt() {
    local apt=$build/apt
    mkdir -p "$apt"/{state/lists/partial,cache/archives/partial}
    : >"$apt/status"
    debian_sources armhf >"$apt/sources"
    cat >"$apt/conf" <<EOF
Dir::State "$apt/state";
Dir::State::status "$apt/status";
Dir::Cache "$apt/cache";
Dir::Etc::sourcelist "$apt/sources";
Dir::Etc::sourceparts "-";
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
EOF
}

fetch() {
    APT_CONFIG=$build/apt/conf apt-get update -qq ||
        echo "A list of packages is missing: going on with the others"
    APT_CONFIG=$build/apt/conf apt-get install -y -qq --no-install-recommends \
        --download-only "${libraries[@]}" >/dev/null
}

# Makes a root whose lib is a link to usr/lib, as in Debian, and whose links stay within the
# root.
unpack() {
    rm -rf "$sysroot"
    mkdir -p "$sysroot"/usr/{bin,sbin,lib}
    local name package link
    for name in bin sbin lib; do ln -s "usr/$name" "$sysroot/$name"; done
    for package in "$build"/apt/cache/archives/*.deb; do
        dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$sysroot"
    done
    find "$sysroot" -lname '/*' -print0 | while IFS= read -r -d '' link; do
        ln -sfnr "$sysroot$(readlink "$link")" "$link"
    done
    touch "$sysroot/.complete"
}

build_and_test() {
    cmake -S . -B "$build" -G Ninja --toolchain cmake/armhf-toolchain.cmake \
        -DKESTAN_SYSROOT="$sysroot" -DKESTAN_WERROR=ON -DKESTAN_TESTS=ON >/dev/null
    cmake --build "$build" -- --quiet
    # The emulator cannot run a program that another program starts. So the tests of whole
    # programs are left out, and those of assertions, which start themselves again. The soak is
    # left out because it takes minutes.
    GTEST_FILTER='-*DeathTest*' ctest --test-dir "$build" --output-on-failure \
        --no-tests=error --label-exclude program --exclude-regex soak_test
}

# The emulator has no time stamps of datagrams, so this machine's monitor measures.
build_monitor() {
    cmake --preset release >/dev/null
    cmake --build --preset release --target kestan-monitor -- --quiet
}

refuse_unused_libraries() {
    local program
    for program in "${programs[@]}"; do
        "${emulator[@]}" -E LD_TRACE_LOADED_OBJECTS=1 -E LD_DEBUG=unused -E LD_WARN=yes \
            -E LD_BIND_NOW=yes "$build/bin/$program" || return 1
    done
    echo "No program links a library that it does not use"
}

hundred_services() {
    local programs=() services=() pmts=() service pid
    for service in {1..100}; do
        pid=$((256 + service * 16))
        programs+=("{\"program_number\": $service, \"pid\": $pid}")
        services+=("{\"service_id\": $service, \"running_status\": 4, \"descriptors\": [
            {\"service\": {\"service_type\": 1, \"provider_name\": \"\",
                           \"service_name\": \"TV $service\"}}]}")
        pmts+=("{\"pid\": $pid, \"program_number\": $service, \"version_number\": 1,
            \"pcr_pid\": $((pid + 1)), \"streams\": [
            {\"stream_type\": 27, \"elementary_pid\": $((pid + 1))},
            {\"stream_type\": 4, \"elementary_pid\": $((pid + 2)), \"descriptors\": [
                {\"iso_639_language\": [{\"language\": \"eng\"}]}]}]}")
    done
    local IFS=,
    cat <<EOF
{"pat": {"transport_stream_id": 1, "version_number": 1, "programs": [${programs[*]}]},
 "sdt": {"transport_stream_id": 1, "original_network_id": 1, "version_number": 1,
         "services": [${services[*]}]},
 "pmts": [${pmts[*]}]}
EOF
}

# Sums the resident memory of the emulated program. The emulator maps it at the address of -B;
# the emulator's memory is elsewhere.
guest_base=0x200000000
while_playing() { # <pid>
    awk '/^[0-9a-f]+-[0-9a-f]+ / { is_guest = $1 ~ /^2........-2/ }
         is_guest && /^Rss:/ { resident += $2 }
         is_guest && /^Private_Dirty:/ { private += $2 }
         END { print "Resident memory of kestan with 100 services: " resident \
                     " kB, of it " private " kB its own" }' "/proc/$1/smaps" >"$build/memory"
}

report() {
    local program
    for program in "${programs[@]}"; do
        arm-linux-gnueabihf-strip -o "$build/stripped" "$build/bin/$program"
        echo "$program: $(stat -c %s "$build/stripped") bytes stripped"
    done
    cat "$build/memory"
}

if [ "${1:-}" = play ]; then
    kestan=("${emulator[@]}" -B "$guest_base" "$build/bin/kestan")
    kestan_control=("${emulator[@]}" "$build/bin/kestan-control")
    kestan_monitor=(build/bin/kestan-monitor)
    play_out "$build/hundred.json" 6
    exit
fi
install_missing "${build_packages[@]}" "${network_packages[@]}" g++-arm-linux-gnueabihf \
    qemu-user debian-archive-keyring
if [ ! -e "$sysroot/.complete" ]; then
    set_up_apt
    fetch
    unpack
fi
build_and_test
build_monitor
refuse_unused_libraries
hundred_services >"$build/hundred.json"
rm -f "$build/memory"
scripts/own_network.sh scripts/cross-arm.sh play
report
