#!/usr/bin/env bash
# The live-view browser test: run.sh TELI_GRAB ARTIFACT_DIR. Skips (77) without chromium
# or node; installs the pinned driver when node_modules does not match the lock file.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
chromium="${TAVRI_CHROMIUM:-/usr/bin/chromium}"
if [ ! -x "$chromium" ] || ! command -v node >/dev/null; then
    echo "skipped: needs $chromium and node (scripts/deps.sh installs them)"
    exit 77
fi
if ! cmp -s "$here/package-lock.json" "$here/node_modules/.view-lock" 2>/dev/null; then
    bash "$here/install.sh"
    cp "$here/package-lock.json" "$here/node_modules/.view-lock"
fi
exec node "$here/view.test.mjs" "$1" "$2" "$chromium"
