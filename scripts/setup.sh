#!/usr/bin/env bash
# Fresh machine to working tool: installs what is missing, builds into build/,
# and runs fontvec's main job on a default font.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
default_font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
echo "fontvec $default_font"
./build/fontvec "$default_font"
