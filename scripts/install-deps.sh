#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need. Packages
# already present are skipped; nothing is fetched when all are there.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  python3 python3-dev pybind11-dev python3-numpy python3-pytest
  clang libclang-rt-14-dev
  libpng-dev libtiff-dev libjpeg62-turbo-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libboost-dev
  libcereal-dev libpugixml-dev libssl-dev libtinyxml2-dev
  libopencv-core-dev libopencv-imgcodecs-dev libopencv-imgproc-dev libeigen3-dev libagg-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "installing: ${missing[*]}"
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
