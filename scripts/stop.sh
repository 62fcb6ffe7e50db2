#!/usr/bin/env bash
# Stops the lighttpd and orvel-syncd of an instance started by start.sh.
set -uo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
if [ -z "${ZEMO_ROOT:-}" ]; then
  if [ "$(id -u)" -eq 0 ]; then ZEMO_ROOT=/var/lib/zemora-orvel; else ZEMO_ROOT=$here/run; fi
fi
target="$ZEMO_ROOT/var/packages/ZemoraOrvel/target/var"
for pidfile in "$target/lighttpd.pid" "$target/orvel-syncd.pid"; do
  [ -f "$pidfile" ] || continue
  pid=$(cat "$pidfile")
  if kill "$pid" 2>/dev/null; then
    for _ in $(seq 1 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
  fi
  rm -f "$pidfile"
done
