#!/usr/bin/env bash
# Makes the Debian packages from the built tree, unpacks them into a fresh root and checks what a vehicle
# image gets: the tool starts there with no environment at all (its libraries by RUNPATH), its manual page
# and completion are there, the downstream example builds against the root through the CMake package and
# through pkg-config and talks on loopback, the Python package imports and sends; lintian finds no errors.
set -euo pipefail
build=$1 source=$2 scratch=$3 python=$4 domain=${KELVA_TEST_DOMAIN:?run through vantrel-with-domain}
uri=${CYCLONEDDS_URI:?the loopback profile}
rm -rf "$scratch"
mkdir -p "$scratch/debs" "$scratch/root"
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$scratch/debs" > "$scratch/cpack.log" 2>&1 || { cat "$scratch/cpack.log"; fail "cpack"; }
for p in libvantrel-cyclone9 libvantrel-cyclone-dev vantrel python3-vantrel; do
  deb=$(ls "$scratch"/debs/${p}_*.deb 2>/dev/null) || fail "no package $p"
  dpkg -x "$deb" "$scratch/root"
  printf '%-24s %8s bytes  Depends: %s\n' "$p" "$(stat -c %s "$deb")" "$(dpkg-deb -f "$deb" Depends)"
done
deb() { ls "$scratch"/debs/"$1"_*.deb; }
dpkg-deb -f "$(deb vantrel)" Depends | grep -q 'libvantrel-cyclone9 (= ' || fail "vantrel does not depend on its libraries"
dpkg-deb -f "$(deb libvantrel-cyclone9)" Depends | grep -q 'libddsc0' || fail "the libraries do not depend on Debian's DDS layer"
dpkg-deb -f "$(deb python3-vantrel)" Depends | grep -q 'python3 (>= ' || fail "the Python package does not depend on python3"
root="$scratch/root/usr"

# The programs and libraries find their libraries relative to themselves.
for f in "$root/bin/vantrel" "$root"/lib/libvantrel-catalog.so.9; do
  readelf -d "$f" | grep -q 'RUNPATH.*\$ORIGIN' || fail "$f has no \$ORIGIN RUNPATH"
done
env -i "$root/bin/vantrel" --version | grep -qx 'vantrel 9.10.0' || fail "vantrel --version"
env -i "$root/bin/vantrel" list M_Alert | grep -q 'IService.CmdRaiseAlarm' || fail "vantrel list from the root"
env -i "$root/bin/vantrel" --help | grep -q VANTREL_DOMAIN || fail "--help without the environment"
zcat "$root/share/man/man1/vantrel.1.gz" | grep -q 'VANTREL_DOMAIN' || fail "manual page without the environment"
bash -c 'source "$1"; COMP_WORDS=(vantrel ec); COMP_CWORD=1; _vantrel; [ "${COMPREPLY[*]}" = echo ]' _ \
  "$root/share/bash-completion/completions/vantrel" || fail "bash completion of a verb"

# The tool from the root on the bus, with nothing but the loopback profile and the domain.
env -i CYCLONEDDS_URI="$uri" VANTREL_DOMAIN="$domain" "$root/bin/vantrel" echo -n 1 --duration 60 \
  M_Alert.IService.CmdRaiseAlarm > "$scratch/echo.out" 2> "$scratch/echo.err" &
echo_pid=$!
for _ in $(seq 1 60); do grep -q 'waiting for writers' "$scratch/echo.err" && break; sleep 0.5; done
env -i CYCLONEDDS_URI="$uri" VANTREL_DOMAIN="$domain" "$root/bin/vantrel" call -q M_Alert.CmdRaiseAlarm \
  '{"Condition": {"SubsystemName": "Power", "ComponentName": "Battery", "Measure": "Voltage", "Nature": "Low", "AlarmDescription": "from the package"}}' || fail "vantrel call"
wait "$echo_pid" || fail "vantrel echo"
grep -q 'from the package' "$scratch/echo.out" || fail "vantrel echo did not see the call: $(cat "$scratch/echo.out")"

# The downstream example: through the CMake package, and through pkg-config.
cmake -S "$source/examples/downstream" -B "$scratch/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$root" > /dev/null
cmake --build "$scratch/cmake-build" > /dev/null
env -i CYCLONEDDS_URI="$uri" "$scratch/cmake-build/watchdog_ping" "$domain" || fail "downstream (CMake package)"
export PKG_CONFIG_PATH="$root/lib/pkgconfig"
[ "$(pkg-config --modversion vantrel-cyclone)" = 9.10.0 ] || fail "pkg-config --modversion"
# shellcheck disable=SC2046
g++ -std=c++17 -O0 -o "$scratch/ping-pc" "$source/examples/downstream/watchdog_ping.cpp" \
  $(pkg-config --cflags --libs vantrel-cyclone) -Wl,-rpath,"$root/lib" || fail "downstream (pkg-config)"
env -i CYCLONEDDS_URI="$uri" "$scratch/ping-pc" "$domain" || fail "downstream (pkg-config) run"

# The Python package where Debian's python3 looks for it, on the root's libraries.
env -i CYCLONEDDS_URI="$uri" PYTHONPATH="$root/lib/python3/dist-packages" "$python" - "$domain" "$root" <<'PY' || fail "Python package"
import sys
import vantrel
from vantrel import M_Alert
assert vantrel.__file__.startswith(sys.argv[2]), vantrel.__file__
with M_Alert.Client.createWriteOnly(vantrel.Session(int(sys.argv[1])), "package-check") as client:
    client.CmdRaiseAlarm(M_Alert.AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "packaged"))
PY

lintian --fail-on error "$scratch"/debs/*.deb > "$scratch/lintian.log" 2>&1 || { cat "$scratch/lintian.log"; fail "lintian errors"; }
echo "lintian: no errors; $(grep -c '^W: ' "$scratch/lintian.log" || true) warnings:"
grep '^W: ' "$scratch/lintian.log" | sed 's/^/  /' || true
echo "packages: all checks passed"
