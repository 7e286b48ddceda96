#!/usr/bin/env bash
# The main job, end to end: installs what is missing, builds, and runs
# `wayshunt-convert demo`, which moves a generated 3.2 store up to the present
# release and back down to 3.1 in a device image of its own, showing what
# each step changed. Arguments go to the demo (e.g. --records 5000).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/plain -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/plain -j "$(nproc 2>/dev/null || echo 2)" --target wayshunt-convert plat-hub-listener \
  convertwayshunt convertwayshunt_shut convertwayshunt_open >/dev/null
exec build/plain/bin/wayshunt-convert demo "$@"
