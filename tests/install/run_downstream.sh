#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds examples/downstream against it with find_package,
# and runs it on loopback; then imports the installed Python package and sends with it.
set -euo pipefail
build=$1 source=$2 scratch=$3 python=$4 domain=${KELVA_TEST_DOMAIN:?run through vantrel-with-domain}
rm -rf "$scratch"
cmake --install "$build" --prefix "$scratch/prefix" > /dev/null
cmake -S "$source/examples/downstream" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" > /dev/null
cmake --build "$scratch/build" > /dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib:${LD_LIBRARY_PATH:-}" "$scratch/build/watchdog_ping" "$domain"

# The Python package from the same prefix: importable as installed, and sending through the installed libraries.
python_dir=$(find "$scratch/prefix/lib" -maxdepth 3 -type d -name dist-packages)
PYTHONPATH="$python_dir" "$python" - "$domain" <<'PY'
import sys
import vantrel
from vantrel import M_Alert
assert "/prefix/" in vantrel.__file__, vantrel.__file__  # the installed package, not the build tree
with M_Alert.Client.createWriteOnly(vantrel.Session(int(sys.argv[1])), "installed-check") as client:
    client.CmdRaiseAlarm(M_Alert.AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "installed"))
print("installed package:", vantrel.__file__)
PY
