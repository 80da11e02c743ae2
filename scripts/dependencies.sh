# Scripts source this. It lists the Debian packages that Kestan needs and installs them.
# shellcheck shell=bash disable=SC2034  # the lists are used elsewhere

build_packages=(
    g++ cmake ninja-build pkg-config
    thrift-compiler libthrift-dev libdvbpsi-dev libboost-dev libsystemd-dev
    nlohmann-json3-dev libcli11-dev libfmt-dev libbitstream-dev
)
package_packages=(dpkg-dev file)
network_packages=(iproute2)
unit_test_packages=(libgtest-dev libgmock-dev)
test_packages=(
    "${unit_test_packages[@]}" "${network_packages[@]}" bats socat jq strace ffmpeg
    systemd nftables tmux python3-jsonschema python3-thrift python3-six
)
fuzz_packages=("${unit_test_packages[@]}" clang-14 libclang-rt-14-dev)
check_packages=(clang-format clang-tidy libbenchmark-dev shellcheck)

# install_missing <package>...: installs the packages that are missing.
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
    quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# find_promtool: puts promtool into PATH without installing its package, which would start a
# server. Without promtool a test is skipped.
find_promtool() {
    local folder=build/promtool
    PATH=$PATH:$PWD/$folder/usr/bin
    [ -z "$(command -v promtool)" ] || return 0
    mkdir -p "$folder"
    (cd "$folder" && quietly apt-get download prometheus &&
        dpkg-deb --fsys-tarfile prometheus_*.deb | tar -x ./usr/bin/promtool) || true
    rm -f "$folder"/prometheus_*.deb
}

# debian_sources <architecture>: prints the Debian package lists that this machine uses, as
# lines of a sources.list.
debian_sources() {
    local line="deb [arch=$1 signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]"
    apt-get indextargets --format "$line \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
        'Created-By: Packages' 'Origin: Debian' | sort -u
}

# quietly <program> [argument]...: runs the program and shows its output only if it fails.
quietly() {
    local output status=0
    output=$("$@" 2>&1 </dev/null) || status=$?
    [ "$status" -eq 0 ] || printf 'Failed with status %d: %s\n%s\n' "$status" "$*" \
        "$(tail -n 30 <<<"$output")" >&2
    return "$status"
}
