#!/usr/bin/env bash
# Configures and builds the project in BUILD_DIR (default: build/ in the checkout).
#   build.sh [cmake --build arguments...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -DBUILD_TESTING=ON >/dev/null
cmake --build "$build" -j"$(nproc)" "$@"
