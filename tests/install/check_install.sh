#!/usr/bin/env bash
# usage: check_install.sh BUILD_DIR CONSUMER_SOURCE SCRATCH_DIR
set -euo pipefail
build=$1 consumer=$2 scratch=$3
rm -rf "$scratch"
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

# find_package
cmake -S "$consumer" -B "$scratch/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$scratch/cmake-build/consumer"

# pkg-config
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
pkg-config --exists tessaly-core
# shellcheck disable=SC2046
c++ -o "$scratch/consumer-pc" "$consumer/main.cpp" $(pkg-config --cflags --libs tessaly-core)
LD_LIBRARY_PATH="$prefix/lib" "$scratch/consumer-pc"
echo "install: find_package and pkg-config consumers built and ran"
