#!/usr/bin/env bash
# Runs scripts/demo.sh and then scripts/test.sh on a Debian where nothing is installed yet, in
# a clone of what has been committed. Needs root.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/dependencies.sh
. scripts/clean_root.sh

in_own_namespaces "$@"
install_missing git
make_clean_root
# The tree may belong to the user who called sudo.
git clone --quiet --no-local --upload-pack 'git -c safe.directory=* upload-pack' . \
    "$root/kestan"
for script in demo.sh test.sh; do
    echo "== scripts/$script on a fresh machine"
    in_root "/kestan/scripts/$script"
done
