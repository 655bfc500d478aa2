#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds examples/downstream against it with find_package,
# and runs it on loopback.
set -euo pipefail
build=$1 source=$2 scratch=$3 domain=${KELVA_TEST_DOMAIN:?run through vantrel-with-domain}
rm -rf "$scratch"
cmake --install "$build" --prefix "$scratch/prefix" > /dev/null
cmake -S "$source/examples/downstream" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" > /dev/null
cmake --build "$scratch/build" > /dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib:${LD_LIBRARY_PATH:-}" "$scratch/build/watchdog_ping" "$domain"
