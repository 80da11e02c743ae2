# To be sourced: a clean Debian root to try things in, of the same release as this machine's.
# It needs root. A plain root is kept in build-root/ as a tar for the next time.
# scripts/dependencies.sh has to be sourced as well.
# shellcheck shell=bash disable=SC2154

readonly roots=$PWD/build-root

# in_own_namespaces "$@", first in a script: goes on with the script's arguments in mount and
# process namespaces of its own, so that nothing stays mounted or running when it ends. The
# root, at $root, is removed on every way out.
in_own_namespaces() {
    [ -z "${KESTAN_ROOT:-}" ] || { root=$KESTAN_ROOT; return; }
    [ "$(id -u)" -eq 0 ] || { echo "$0 needs root" >&2; exit 1; }
    install_missing debootstrap "${network_packages[@]}"
    mkdir -p "$roots"
    root=$(mktemp -d "$roots/XXXXXX")
    chmod 755 "$root"
    inner=
    trap remove_root EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    KESTAN_ROOT=$root unshare --mount --pid --fork --kill-child --mount-proc \
        "scripts/${0##*/}" "$@" &
    inner=$!
    wait "$inner"
    exit
}

remove_root() {
    # The first process of the namespace takes all others along.
    [ -z "$inner" ] || xargs -r kill -KILL <"/proc/$inner/task/$inner/children" || true
    wait
    rm -rf --one-file-system "$root"
} 2>/dev/null

make_clean_root() {
    local codename mirror architecture tar
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    architecture=$(dpkg --print-architecture)
    tar=$roots/$codename-$architecture.tar
    if [ ! -e "$tar" ]; then
        mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
            'Origin: Debian' "Codename: $codename" | head -n 1)
        quietly debootstrap --variant=minbase "$codename" "$root" "$mirror"
        tar -C "$root" -cf "$tar.new" .
        mv "$tar.new" "$tar"
    else
        tar -C "$root" -xpf "$tar"
    fi
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    cp -L /etc/resolv.conf "$root/etc/resolv.conf"
    rm -f "$root"/etc/apt/sources.list.d/*
    debian_sources "$architecture" >"$root/etc/apt/sources.list"
    apt-config dump Acquire::http Acquire::https >"$root/etc/apt/apt.conf.d/host"
    quietly in_root apt-get update -qq
}

in_root() {
    env -u KESTAN_ROOT DEBIAN_FRONTEND=noninteractive LC_ALL=C chroot "$root" "$@"
}
