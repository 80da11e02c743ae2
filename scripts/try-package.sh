#!/usr/bin/env bash
# Builds the Debian package and tries it in a clean root: apt installs it, the programs play
# an example, and its removal leaves nothing behind. Needs root for the root.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/play_out.sh

root=$PWD/build/clean-root

build_package() {
    cmake --preset release -G Ninja >/dev/null
    cmake --build --preset release -- --quiet
    rm -f build/kestan_*.deb
    (cd build && cpack -G DEB >/dev/null)
    lintian --allow-root --fail-on error build/kestan_*.deb
}

# The same Debian as this machine's, from its own mirror.
make_clean_root() {
    local codename mirror
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
        'Origin: Debian' "Codename: $codename" | head -n 1)
    rm -rf "$root"
    debootstrap --variant=minbase "$codename" "$root" "$mirror" >"$root.log"
    in_root apt-get update -qq
}

in_root() {
    DEBIAN_FRONTEND=noninteractive LC_ALL=C chroot "$root" "$@"
}

# What apt itself keeps, and caches, are no leftovers.
list_files() {
    (cd "$root" && find . -xdev \( -path ./var/cache -o -path ./var/log -o -path ./tmp \
        -o -path ./var/lib/apt -o -path ./var/lib/dpkg -o -path ./etc/ld.so.cache \) \
        -prune -o -print) | sort
}

refuse_leftovers() { # <list before> <list after>
    diff "$1" "$2" || { echo "the package left this behind" >&2; return 1; }
    [ -z "$(in_root dpkg-query -W -f='${Package}' kestan 2>/dev/null)" ]
    echo "Removed without leftovers"
}

install_missing "${build_packages[@]}" "${test_packages[@]}" debootstrap dpkg-dev lintian
build_package
make_clean_root
list_files >"$root.before"
cp build/kestan_*.deb "$root/tmp/"
in_root sh -c 'apt-get install -y -qq --no-install-recommends /tmp/kestan_*.deb' \
    >"$root.log" 2>&1
in_root dpkg-query -W -f='${Package} ${Version}: ${Depends}\n' kestan
in_root kestan --version
kestan=(chroot "$root" kestan)
kestan_control=(chroot "$root" kestan-control)
kestan_monitor=(chroot "$root" kestan-monitor)
play_out /usr/share/doc/kestan/examples/small.json 4
in_root apt-get purge -y -qq --auto-remove kestan >"$root.log" 2>&1
list_files >"$root.after"
refuse_leftovers "$root.before" "$root.after"
rm -rf "$root"
