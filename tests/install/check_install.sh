#!/usr/bin/env bash
# check_install.sh BUILD_DIR EXAMPLE_DIR SCRATCH_DIR: installs the library into
# a scratch prefix, builds a small caller against it with CMake's find_package
# and with pkg-config, and runs the installed tavrin, which finds the library
# by its run path.
set -eu
build=$1 example=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -S "$example" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
"$scratch/cmake-build/tavrin_example"

libdir=$(find "$prefix" -name TavrinCommon.pc -printf '%h\n' | head -n 1)
flags=$(PKG_CONFIG_PATH=$libdir pkg-config --cflags --libs TavrinCommon)
# shellcheck disable=SC2086
g++ -std=c++17 "$example/example.cpp" -o "$scratch/example-pc" $flags
LD_LIBRARY_PATH=$(dirname "$libdir") "$scratch/example-pc"
if [ -x "$prefix/bin/tavrin" ]; then
  env -u LD_LIBRARY_PATH "$prefix/bin/tavrin" version
fi
echo "install ok"
