# Scripts source this after dependencies.sh. It makes a clean Debian root of the same release
# as this machine's. Needs root. A tar of the new root stays in build-root/ for the next time.
# shellcheck shell=bash disable=SC2154

readonly roots=$PWD/build-root

# in_own_namespaces "$@": runs the rest of the script in new mount and process namespaces, so
# that nothing stays mounted or running when it ends. $root is the directory for the root; it
# is always removed at the end.
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
    # When the namespace's first process ends, the kernel ends all others in it.
    [ -z "$inner" ] || xargs -r kill -KILL <"/proc/$inner/task/$inner/children" || true
    wait
    rm -rf --one-file-system "$root"
} 2>/dev/null

make_clean_root() {
    local codename mirror architecture tar
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    architecture=$(dpkg --print-architecture)
    tar=$roots/$codename-$architecture.tar
    [ -n "$(debian_sources "$architecture")" ] || apt-get update -qq
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
    cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
    rm -f "$root"/etc/apt/sources.list.d/*
    debian_sources "$architecture" >"$root/etc/apt/sources.list"
    apt-config dump Acquire::http Acquire::https >"$root/etc/apt/apt.conf.d/host"
    quietly in_root apt-get update -qq
}

in_root() {
    env -u KESTAN_ROOT DEBIAN_FRONTEND=noninteractive LC_ALL=C chroot "$root" "$@"
}
