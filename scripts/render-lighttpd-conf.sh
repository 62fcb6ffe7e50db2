#!/bin/sh
# Renders scripts/lighttpd.conf.in into a lighttpd configuration.
# usage: render-lighttpd-conf.sh ROOT PORT DOCROOT CGI_PATH OUT [LOGDIR]
#   ROOT      the ZEMO_ROOT handed to entry.cgi ("" or "/" for the real one)
#   PORT      the port to listen on (127.0.0.1 only)
#   DOCROOT   folder of the static web UI
#   CGI_PATH  path of the entry.cgi program
#   OUT       the file to write; its folder gets lighttpd's pid file
#   LOGDIR    folder of lighttpd's error log (default: OUT's folder)
# The data folder (for the X-Sendfile hand-over folder) is ORVEL_DATA_DIR,
# by default ROOT/volume1/ZemoraOrvel as in orvel.conf's default.
# How entry.cgi runs: WEBAPI_MODE in the environment ("fastcgi" or "cgi"),
# else the key "webapi_mode" of ROOT's orvel.conf, else "fastcgi".
set -eu

if [ "$#" -ne 5 ] && [ "$#" -ne 6 ]; then
  echo "usage: $0 ROOT PORT DOCROOT CGI_PATH OUT [LOGDIR]" >&2
  exit 2
fi
root=$1 port=$2 docroot=$3 cgi=$4 out=$5

case "$port" in
  ''|*[!0-9]*) echo "$0: bad port: $port" >&2; exit 2 ;;
esac
for path in "$docroot" "$cgi"; do
  case "$path" in
    /*) ;;
    *) echo "$0: not an absolute path: $path" >&2; exit 2 ;;
  esac
done
if [ ! -x "$cgi" ]; then
  echo "$0: not an executable: $cgi" >&2
  exit 2
fi

here=$(cd "$(dirname "$0")" && pwd)
rundir=$(cd "$(dirname "$out")" && pwd)
logdir=${6:-$rundir}
mkdir -p "$logdir"
logdir=$(cd "$logdir" && pwd)

datadir=${ORVEL_DATA_DIR:-${root%/}/volume1/ZemoraOrvel}
handover=$(realpath -m "$datadir/@tmp/handover")/

# Values go between double quotes in the configuration: refuse ones that
# would end the string.
for value in "$root" "$docroot" "$cgi" "$logdir" "$rundir" "$handover"; do
  case "$value" in
    *'"'*|*'\'*) echo "$0: unsupported character in: $value" >&2; exit 2 ;;
  esac
done

conf="${root%/}/var/packages/ZemoraOrvel/target/etc/orvel.conf"
mode=${WEBAPI_MODE:-}
if [ -z "$mode" ] && [ -f "$conf" ]; then
  mode=$(sed -n 's/.*"webapi_mode"[[:space:]]*:[[:space:]]*"\([^"]*\)".*/\1/p' "$conf" | head -n 1)
fi
mode=${mode:-fastcgi}
case "$mode" in
  cgi|fastcgi) ;;
  *) echo "$0: webapi_mode must be \"cgi\" or \"fastcgi\", not: $mode" >&2; exit 2 ;;
esac

# sed replacement text: escape the delimiter and "&".
esc() { printf '%s' "$1" | sed -e 's/[|&]/\\&/g'; }

tmp="$out.tmp.$$"
trap 'rm -f "$tmp"' EXIT
sed -e "s|@ROOT@|$(esc "$root")|g" \
    -e "s|@PORT@|$(esc "$port")|g" \
    -e "s|@DOCROOT@|$(esc "$docroot")|g" \
    -e "s|@CGI@|$(esc "$cgi")|g" \
    -e "s|@LOGDIR@|$(esc "$logdir")|g" \
    -e "s|@RUNDIR@|$(esc "$rundir")|g" \
    -e "s|@HANDOVER@|$(esc "$handover")|g" \
    -e "s|^#$mode# ||" -e "/^#[a-z]*# /d" \
    "$here/lighttpd.conf.in" > "$tmp"
mv "$tmp" "$out"
trap - EXIT
