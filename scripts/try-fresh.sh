#!/usr/bin/env bash
# Tries a first day with Kestan: scripts/demo.sh and then scripts/test.sh, in a clone of what
# has been committed, on a Debian where nothing is installed yet. Needs root.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/clean_root.sh

in_own_namespaces "$@"
install_missing git
make_clean_root
git clone --quiet . "$root/kestan"
for script in demo.sh test.sh; do
    echo "== scripts/$script on a fresh machine"
    in_root "/kestan/scripts/$script"
done
