#!/usr/bin/env bash
# Installs the pinned browser driver (puppeteer-core) from package-lock.json. It drives
# Debian's chromium (scripts/deps.sh) and never downloads a browser of its own.
set -euo pipefail
cd "$(dirname "$0")"
export PUPPETEER_SKIP_DOWNLOAD=1
npm ci --ignore-scripts --no-audit --no-fund
