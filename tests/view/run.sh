#!/usr/bin/env bash
# The live-view browser test: run.sh TELI_GRAB ARTIFACT_DIR WORK_DIR. Skips (77) without
# chromium or node; installs the pinned driver into WORK_DIR (in the build tree, never
# the source tree) when its node_modules does not match the lock file, and runs the
# test from there, where its imports resolve.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
work="$3"
chromium="${TAVRI_CHROMIUM:-/usr/bin/chromium}"
if [ ! -x "$chromium" ] || ! command -v node >/dev/null; then
    echo "skipped: needs $chromium and node (scripts/deps.sh installs them)"
    exit 77
fi
mkdir -p "$work"
if ! cmp -s "$here/package-lock.json" "$work/node_modules/.view-lock" 2>/dev/null; then
    cp "$here/package.json" "$here/package-lock.json" "$work/"
    bash "$here/install.sh" "$work"
    cp "$here/package-lock.json" "$work/node_modules/.view-lock"
fi
cp "$here/view.test.mjs" "$work/"
exec node "$work/view.test.mjs" "$1" "$2" "$chromium"
