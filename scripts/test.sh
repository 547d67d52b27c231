#!/usr/bin/env bash
# Builds the library and runs every test twice: a Release build, then a build
# with AddressSanitizer and UndefinedBehaviorSanitizer.
# Usage: scripts/test.sh   (from anywhere; builds below ./build)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/deps.sh"
jobs="$(nproc 2>/dev/null || echo 2)"

run() {  # name, cmake options...
  local dir="$root/build/$1"; shift
  cmake -S "$root" -B "$dir" -DBUILD_TESTING=ON -DMETROMATH_TOOLS=ON -DMETROMATH_EXAMPLES=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest -j "$jobs" --output-on-failure --timeout 600)
}

echo "== release build and tests =="
run release -DCMAKE_BUILD_TYPE=Release
echo "== address and undefined-behaviour sanitizer build and tests =="
ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run sanitize -DCMAKE_BUILD_TYPE=Debug -DMETROMATH_SANITIZE=ON
