#!/usr/bin/env bash
# Builds the Debian package and tries it in a clean root: apt installs it, the programs play an
# example, an upgrade succeeds even if a service cannot start again, and the removal leaves
# only the administrator's files. Needs root.
#
#   scripts/try-package.sh [PACKAGE]     builds none and tries this one
set -euo pipefail
[ ! -f "${1:-}" ] || set -- "$(realpath "$1")"
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/clean_root.sh
. scripts/play_out.sh

# Builds the packages here and in a copy of the tree in another place: the bytes must be the
# same.
build_package() {
    local tree="$root/tmp/another tree" folder
    mkdir -p "$tree"
    tar -c --exclude='./build*' . | tar -x -C "$tree"
    for folder in "$PWD" "$tree"; do
        (cd "$folder" && rm -f build-package/*deb && quietly cmake --workflow --preset package)
    done
    cmp build-package/*.deb "$tree"/build-package/*.deb
    # cpack writes the folder into the checksums of the symbols: their files must be the same.
    cmp <(dpkg-deb --fsys-tarfile build-package/*.ddeb) \
        <(dpkg-deb --fsys-tarfile "$tree"/build-package/*.ddeb)
    echo "The packages are the same, built in two places"
    rm -rf "$tree"
}

check_package() {
    lintian --allow-root --fail-on error "$package"
    lintian --allow-root --fail-on info --tags \
        hardening-no-bindnow,hardening-no-fortify-functions,hardening-no-pie,hardening-no-relro \
        "$package"
}

apt_in_root() { quietly in_root apt-get -y -qq --no-install-recommends "$@"; }

install_package() {
    cp "$package" "$root/tmp/kestan.deb"
    apt_in_root install /tmp/kestan.deb
    in_root dpkg-query -W -f='${Package} ${Version}: ${Depends}\n' kestan
    in_root kestan --version
    check_symbols
    scripts/own_network.sh scripts/try-package.sh play
}

# This machine's gdb finds the source of the installed program in the package of symbols, if
# there is one.
check_symbols() {
    local symbols=${package/kestan_/kestan-dbgsym_} line
    symbols=${symbols%.deb}.ddeb
    [ -e "$symbols" ] || return 0
    cp "$symbols" "$root/tmp/kestan-dbgsym.ddeb"
    quietly in_root dpkg --install /tmp/kestan-dbgsym.ddeb
    line=$(gdb -nx -batch -ex "set debug-file-directory $root/usr/lib/debug" \
        -ex "file $root/usr/bin/kestan" -ex 'info line send_output')
    echo "$line"
    [[ $line == *'app/output.cpp"'* ]]
    quietly in_root dpkg --purge kestan-dbgsym
}

# Looks like a machine that systemd has started and on which each systemctl command fails.
fail_to_restart() {
    local calls
    mkdir -p "$root/run/systemd/system"
    printf '#!/bin/sh\necho "$*" >>/tmp/systemctl.calls\nexit 1\n' >"$root/usr/bin/systemctl"
    chmod +x "$root/usr/bin/systemctl"
    quietly in_root dpkg --install /tmp/kestan.deb
    calls=$(grep -v daemon-reload "$root/tmp/systemctl.calls") || true
    if [[ $calls != "try-restart "*kestan@0.service* || $calls = *$'\n'* ]]; then
        echo "The upgrade asked systemctl for: $calls" >&2
        return 1
    fi
    echo "Upgraded, although systemctl failed"
}

remove_package() {
    local link=$root/etc/systemd/system/multi-user.target.wants/kestan@0.service
    local drop_in=$root/etc/systemd/system/kestan@0.service.d/local.conf
    mkdir -p "${link%/*}" "${drop_in%/*}"
    ln -s /lib/systemd/system/kestan@.service "$link"
    touch "$drop_in"
    apt_in_root remove kestan
    [ -L "$link" ] || { echo "remove has deleted the link of an instance" >&2; return 1; }
    apt_in_root purge --auto-remove kestan
    [ ! -L "$link" ] || { echo "purge has left the link" >&2; return 1; }
    [ -e "$drop_in" ] || { echo "purge has deleted a drop-in" >&2; return 1; }
    rm -r "${drop_in%/*}" "$root/usr/bin/systemctl" "$root/run/systemd"
    rmdir --ignore-fail-on-non-empty "${link%/*}"
    echo "Removed; the link went with the purge, the drop-in stayed"
}

# Files of apt and caches are not leftovers.
list_files() {
    (cd "$root" && find . -xdev \( -path ./var/cache -o -path ./var/log -o -path ./tmp \
        -o -path ./var/lib/apt -o -path ./var/lib/dpkg -o -path ./etc/ld.so.cache \) \
        -prune -o -print) | sort
}

refuse_leftovers() { # <files before>
    diff <(echo "$1") <(list_files) || { echo "the package left this behind" >&2; return 1; }
    [ -z "$(in_root dpkg-query -W -f='${Package}' kestan 2>/dev/null)" ] ||
        { echo "dpkg still knows the package" >&2; return 1; }
    echo "Removed without leftovers"
}

if [ "${1:-}" = play ]; then
    kestan=(chroot "$KESTAN_ROOT" kestan)
    kestan_control=(chroot "$KESTAN_ROOT" kestan-control)
    kestan_monitor=(chroot "$KESTAN_ROOT" kestan-monitor)
    play_out /usr/share/doc/kestan/examples/small.json 4
    exit
fi
in_own_namespaces "$@"
install_missing "${build_packages[@]}" "${package_packages[@]}" lintian gdb
make_clean_root
package=${1:-}
if [ -z "$package" ]; then
    build_package
    package=$(echo build-package/kestan_*.deb)
fi
check_package
before=$(list_files)
install_package
fail_to_restart
remove_package
refuse_leftovers "$before"
