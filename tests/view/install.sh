#!/usr/bin/env bash
# install.sh [DIR]: installs the pinned browser driver (puppeteer-core) from the
# package-lock.json in DIR (default: beside this script). It drives Debian's chromium
# (scripts/deps.sh) and never downloads a browser of its own.
set -euo pipefail
cd "${1:-$(dirname "$0")}"
export PUPPETEER_SKIP_DOWNLOAD=1
npm ci --ignore-scripts --no-audit --no-fund
