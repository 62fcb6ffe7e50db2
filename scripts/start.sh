#!/usr/bin/env bash
# Installs what is needed, builds, prepares a demo ZEMO_ROOT with a first
# user and starts orvel-syncd and lighttpd on 127.0.0.1.
#   ZEMO_ROOT  where the instance lives (default /var/lib/zemora-orvel as root,
#              ./run otherwise)
#   PORT       HTTP port (default 8580)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
port=${PORT:-8580}
if [ -z "${ZEMO_ROOT:-}" ]; then
  if [ "$(id -u)" -eq 0 ]; then ZEMO_ROOT=/var/lib/zemora-orvel; else ZEMO_ROOT=$here/run; fi
fi
export ZEMO_ROOT
build=$here/build

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)"

scripts/stop.sh >/dev/null 2>&1 || true
scripts/make-root.sh "$ZEMO_ROOT" "$build"
target="$ZEMO_ROOT/var/packages/ZemoraOrvel/target"
logdir="$target/var/log"
mkdir -p "$logdir"

# The daemon: the only writer of the package's data.
nohup "$build/platform/syncd/orvel-syncd" >>"$logdir/orvel-syncd.log" 2>&1 &
echo $! > "$target/var/orvel-syncd.pid"
for _ in $(seq 1 100); do
  [ -S "$ZEMO_ROOT/tmp/cloud-syncservice" ] && break
  sleep 0.1
done
[ -S "$ZEMO_ROOT/tmp/cloud-syncservice" ] || { echo "orvel-syncd did not start; see $logdir/orvel-syncd.log" >&2; exit 1; }

# A demo user.
user=${DEMO_USER:-demo}
password=${DEMO_PASSWORD:-demo-password}
if ! "$build/tools/orvelctl/orvelctl" user list | grep -qw "$user"; then
  "$build/tools/orvelctl/orvelctl" user add "$user" --password "$password"
fi

# lighttpd runs entry.cgi for /webapi/entry.cgi and serves the web UI.
scripts/render-lighttpd-conf.sh "$ZEMO_ROOT" "$port" "$here/web" "$build/platform/webapi/entry.cgi" \
  "$target/var/lighttpd.conf" "$logdir"
lighttpd -f "$target/var/lighttpd.conf"

cat <<MSG

ZemoraOrvel is running on http://127.0.0.1:$port/ (ZEMO_ROOT=$ZEMO_ROOT)
Open http://127.0.0.1:$port/ in a browser and sign in as '$user' with password
'$password', or log in with curl:

  curl -s 'http://127.0.0.1:$port/webapi/entry.cgi?api=ZEMO.API.Auth&version=1&method=login&account=$user&passwd=$password'

Stop it with: ZEMO_ROOT=$ZEMO_ROOT scripts/stop.sh
MSG
