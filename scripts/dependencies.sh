# To be sourced: the Debian packages that Kestan needs, and how they are installed.

build_packages=(
    g++ cmake ninja-build pkg-config
    thrift-compiler libthrift-dev libdvbpsi-dev libboost-dev libsystemd-dev
    nlohmann-json3-dev libcli11-dev
)
test_packages=(libgtest-dev libgmock-dev bats socat jq iproute2 ffmpeg systemd tmux
    prometheus)
fuzz_packages=(clang-14 libclang-rt-14-dev)
check_packages=(clang-format clang-tidy libbenchmark-dev)

# install_missing <package>...: installs those that are not there yet.
install_missing() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null |
            grep -qx installed || missing+=("$package")
    done
    [ "${#missing[@]}" -eq 0 ] && return
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null >/dev/null
}
