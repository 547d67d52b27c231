#!/usr/bin/env bash
# Builds the library with its example programs and runs the main example.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/deps.sh"
dir="$root/build/release"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)"
"$dir/examples/quickstart"
