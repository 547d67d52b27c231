#!/usr/bin/env bash
# Installs the Debian packages the build needs, when they are missing.
# Usage: scripts/deps.sh [extra-package ...]
set -euo pipefail
pkgs=(cmake g++ make googletest libgtest-dev libgmock-dev libbenchmark-dev libeigen3-dev
      libcli11-dev nlohmann-json3-dev libloki-dev python3 python3-dev pybind11-dev python3-numpy python3-pytest
      python3-dask python3-distributed python3-matplotlib "$@")
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
fi
