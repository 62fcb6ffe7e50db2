#!/bin/sh
# Runs the web client's browser tests in headless Chromium against a build
# folder: each test class makes its own temp ZEMO_ROOT (scripts/make-root.sh),
# starts orvel-syncd and lighttpd serving this repository's web/ folder on a
# free port, adds a user with orvelctl, and stops everything at the end.
# usage: tests/browser/run.sh [BUILD_DIR] [unittest arguments...]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../../build}
[ "$#" -gt 0 ] && shift
ORVEL_BUILD_DIR=$(cd "$build" && pwd)
export ORVEL_BUILD_DIR
for tool in /usr/bin/chromium /usr/bin/chromedriver; do
  if [ ! -x "$tool" ]; then
    echo "$0: $tool is missing: run scripts/install-deps.sh" >&2
    exit 1
  fi
done
cd "$here"
exec /usr/bin/python3 -m unittest -v "$@" test_web_client test_client_views test_collections
