#!/usr/bin/env bash
# Sets up the machine, builds the plug-in and teli-grab (default preset) and takes a
# hardware-triggered sequence of 12 images from the simulated rig into out/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

cmake --preset default
cmake --build --preset default --target teli-grab tavri_toshiba_teli

out="out"
build/default/bin/teli-grab --sdk sim sequence 12 -o "$out/"

echo
echo "images:        $(pwd)/$out/image_000.png ... image_011.png"
echo "contact sheet: $(pwd)/$out/contact_sheet.png"
