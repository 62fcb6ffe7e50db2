#!/usr/bin/env bash
# Prepares a ZEMO_ROOT for the service: folders, configuration (kept when it
# exists), the module in the framework's modules folder and the archiver.
# Usage: make-root.sh ROOT BUILD_DIR
set -euo pipefail
root=$1
build=$(cd "$2" && pwd)
target="$root/var/packages/ZemoraOrvel/target"

mkdir -p "$target/etc" "$target/var" "$root/tmp" "$root/usr/lib/zemo/webapi" "$root/usr/bin" \
         "$root/volume1/ZemoraOrvel/@db"
chmod 0755 "$root" "$root/var" "$root/var/packages" "$root/var/packages/ZemoraOrvel" "$target" \
      "$root/usr" "$root/usr/lib" "$root/usr/lib/zemo" "$root/usr/lib/zemo/webapi" "$root/volume1"
chmod 1777 "$root/tmp"
chmod 0700 "$root/volume1/ZemoraOrvel/@db"

if [ ! -e "$target/etc/orvel.conf" ]; then
  account="www-data"
  [ "$(id -u)" -eq 0 ] || account=""
  cat > "$target/etc/orvel.conf" <<CONF
{
  "web_account": "$account",
  "upload_max_bytes": 68719476736,
  "session_idle_seconds": 3600,
  "session_max_seconds": 604800
}
CONF
fi

ln -sfn "$build/server/ui-web/libZemoraOrvelFiles.so" "$root/usr/lib/zemo/webapi/libZemoraOrvelFiles.so"
ln -sfn "$build/server/ui-web/libZemoraOrvelClient.so" "$root/usr/lib/zemo/webapi/libZemoraOrvelClient.so"
if [ -x "$build/platform/archiver/zip" ]; then
  ln -sfn "$build/platform/archiver/zip" "$root/usr/bin/zip"
fi
