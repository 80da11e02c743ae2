#!/usr/bin/env bash
# Builds the Debian package and tries it in a clean root: apt installs it, the programs play
# an example, an upgrade goes on where a service cannot start again, and the removal leaves
# nothing behind but what is the administrator's. Needs root.
#
#   scripts/try-package.sh [PACKAGE]    tries this package, of another architecture perhaps
#                                       (whose programs say their version), and builds none
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/clean_root.sh
. scripts/play_out.sh

# Builds it here and in a copy of the tree elsewhere: the bytes have to be the same.
build_package() {
    local tree="$root/tmp/another tree" folder
    mkdir -p "$tree"
    tar -c --exclude='./build*' --exclude=./.git . | tar -x -C "$tree"
    for folder in "$PWD" "$tree"; do
        (cd "$folder" && rm -f build-package/*.deb && quietly cmake --workflow --preset package)
    done
    cmp build-package/*.deb "$tree"/build-package/*.deb
    echo "The package is the same, built in two places"
    rm -rf "$tree"
}

check_package() {
    lintian --allow-root --fail-on error "$package"
    lintian --allow-root --fail-on info --tags \
        hardening-no-bindnow,hardening-no-fortify-functions,hardening-no-pie,hardening-no-relro \
        "$package"
}

# The package's programs, on a processor that is not this machine's by an emulator.
set_up_programs() {
    local architecture emulator=()
    architecture=$(dpkg-deb -f "$package" Architecture)
    if [ "$architecture" != "$(dpkg --print-architecture)" ]; then
        install_missing qemu-user-static
        cp /usr/bin/qemu-arm-static "$root/tmp/"
        emulator=(/tmp/qemu-arm-static)
        in_root dpkg --add-architecture "$architecture"
        debian_sources "$architecture" >>"$root/etc/apt/sources.list"
        quietly in_root apt-get update -qq
    fi
    kestan=(chroot "$root" "${emulator[@]}" /usr/bin/kestan)
    kestan_control=(chroot "$root" "${emulator[@]}" /usr/bin/kestan-control)
    kestan_monitor=(chroot "$root" "${emulator[@]}" /usr/bin/kestan-monitor)
    is_emulated=${#emulator[@]}
}

apt_in_root() { quietly in_root apt-get -y -qq --no-install-recommends "$@"; }

install_package() {
    cp "$package" "$root/tmp/kestan.deb"
    apt_in_root install /tmp/kestan.deb
    in_root dpkg-query -W -f='${Package} ${Version} ${Architecture}: ${Depends}\n' kestan
    "${kestan[@]}" --version
    "${kestan_control[@]}" --version
    if [ "$is_emulated" -eq 0 ]; then scripts/own_network.sh scripts/try-package.sh play; fi
}

# As on a machine that systemd has started, and on which everything it is told to do fails.
fail_to_restart() {
    local calls
    mkdir -p "$root/run/systemd/system"
    printf '#!/bin/sh\necho "$*" >>/tmp/systemctl.calls\nexit 1\n' >"$root/usr/bin/systemctl"
    chmod +x "$root/usr/bin/systemctl"
    quietly in_root dpkg --install /tmp/kestan.deb
    calls=$(grep -v daemon-reload "$root/tmp/systemctl.calls")
    [ "$calls" = "try-restart kestan@0.service kestan@1.service" ] || { echo "$calls"; return 1; }
    echo "Upgraded, although systemctl failed"
}

remove_package() {
    local link=$root/etc/systemd/system/multi-user.target.wants/kestan@0.service
    local drop_in=$root/etc/systemd/system/kestan@0.service.d/local.conf
    mkdir -p "${link%/*}" "${drop_in%/*}"
    ln -s /lib/systemd/system/kestan@.service "$link"
    touch "$drop_in"
    apt_in_root remove kestan
    [ -L "$link" ]
    apt_in_root purge --auto-remove kestan
    [ ! -L "$link" ]
    [ -e "$drop_in" ]
    rm -r "${drop_in%/*}" "$root/usr/bin/systemctl" "$root/run/systemd"
    rmdir --ignore-fail-on-non-empty "${link%/*}"
    echo "Removed; the link went with the purge, the drop-in stayed"
}

# What apt itself keeps, and caches, are no leftovers.
list_files() {
    (cd "$root" && find . -xdev \( -path ./var/cache -o -path ./var/log -o -path ./tmp \
        -o -path ./var/lib/apt -o -path ./var/lib/dpkg -o -path ./etc/ld.so.cache \) \
        -prune -o -print) | sort
}

refuse_leftovers() { # <files before>
    diff <(echo "$1") <(list_files) || { echo "the package left this behind" >&2; return 1; }
    [ -z "$(in_root dpkg-query -W -f='${Package}' kestan 2>/dev/null)" ]
    echo "Removed without leftovers"
}

if [ "${1:-}" = play ]; then
    root=$KESTAN_ROOT
    package=$root/tmp/kestan.deb
    set_up_programs
    play_out /usr/share/doc/kestan/examples/small.json 4
    exit
fi
in_own_namespaces "$@"
install_missing "${build_packages[@]}" dpkg-dev lintian
make_clean_root
package=${1:-}
if [ -z "$package" ]; then
    build_package
    package=$(echo build-package/kestan_*.deb)
fi
check_package
set_up_programs
before=$(list_files)
install_package
fail_to_restart
remove_package
refuse_leftovers "$before"
