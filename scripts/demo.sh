#!/usr/bin/env bash
# Builds the library, its examples and the metrofit tool, runs the tour of
# the library (examples/quickstart.cpp), then shows the
# library's main job: a circle fitted to the edge points of a bore measured in
# an image (examples/data/bore_edge.csv), with its deviation measures and a
# drawing of the fit (build/release/bore_edge.svg).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/deps.sh"
dir="$root/build/release"
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DMETROMATH_TOOLS=ON -DMETROMATH_EXAMPLES=ON >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)" --target metrofit quickstart
"$dir/examples/quickstart"
echo
"$dir/tools/metrofit" circle "$root/examples/data/bore_edge.csv" --svg "$dir/bore_edge.svg" --y-down
echo
echo "drawing: $dir/bore_edge.svg"
