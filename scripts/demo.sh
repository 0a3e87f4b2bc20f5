#!/usr/bin/env bash
# Sets up the machine, builds the plug-in and teli-grab (default preset) and takes a
# hardware-triggered stereo sequence of 12 images from both cameras of the simulated
# rig, which share one projector, into out/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

cmake --preset default
cmake --build --preset default --target teli-grab tavri_toshiba_teli

out="out"
build/default/bin/teli-grab --sdk sim --all sequence 12 -o "$out/"

echo
echo "images:        $(pwd)/$out/SIM0001/image_000.png ... and $(pwd)/$out/SIM0002/..."
echo "contact sheet: $(pwd)/$out/contact_sheet.png (a row per camera)"
