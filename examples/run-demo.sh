#!/usr/bin/env bash
# Runs the alert demo on loopback: an alert service, and a client that raises, acknowledges and clears two
# alarms every few seconds, for VANTREL_DEMO_SECONDS (default 120) or until Ctrl-C. First it prints the
# commands that look at the demo with the vantrel tool from another terminal.
#   examples/run-demo.sh [BUILD_DIR]   domain: VANTREL_DOMAIN (default 91)
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
here=$(cd "$(dirname "$0")/.." && pwd)
domain=${VANTREL_DOMAIN:-91}
seconds=${VANTREL_DEMO_SECONDS:-120}
uri="file://$here/config/cyclonedds-loopback.xml"
tool="$build/tools/vantrel/vantrel"
demo="$build/examples/alert/alert_demo"
export CYCLONEDDS_URI="$uri"

cat <<TEXT
The alert demo runs for $seconds s on DDS domain $domain, on the loopback profile. Look at it from another
terminal with these commands (the tool sees the demo only with the same CYCLONEDDS_URI and domain):

    export CYCLONEDDS_URI=$uri
    export VANTREL_DOMAIN=$domain
    $tool ps
    $tool echo --duration 10 M_Alert.IClient.ReportAlarmLog
    $tool hz --duration 10 'M_Alert.*'

(end of commands)
TEXT

"$demo" service "$domain" "$seconds" > /dev/null &
service=$!
client=""
stop() {
  kill $service $client 2>/dev/null || true
  wait 2>/dev/null || true
  echo "demo: stopped"
  exit 0
}
trap stop INT TERM
# The client in the background and waited for, so that an interrupt is handled at once.
end=$(( SECONDS + seconds - 3 ))
while (( SECONDS < end )) && kill -0 "$service" 2>/dev/null; do
  "$demo" client "$domain" &
  client=$!
  wait "$client" || echo "demo: this round of the client failed; trying again"
  client=""
  sleep 2 &
  wait $!
done
wait "$service"
echo "demo: done"
