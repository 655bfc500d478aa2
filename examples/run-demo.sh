#!/usr/bin/env bash
# Runs the alert demo: a service process and a client process on loopback; ends by itself.
set -euo pipefail
build=${1:-build}
here=$(cd "$(dirname "$0")/.." && pwd)
export CYCLONEDDS_URI="file://$here/config/cyclonedds-loopback.xml"
domain=$(( 1 + $$ % 200 ))
"$build/examples/alert/alert_demo" service "$domain" 8 &
service=$!
"$build/examples/alert/alert_demo" client "$domain"
status=$?
wait "$service"
exit $status
