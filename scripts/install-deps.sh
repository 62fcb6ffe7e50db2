#!/usr/bin/env bash
# Installs the Debian packages needed to build, run and test the service.
# Idempotent; needs root (or nothing to install).
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  libjsoncpp-dev libsqlite3-dev libsodium-dev libssl-dev libmsgpack-dev libarchive-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-14 libclang-rt-14-dev
  libvips-dev libpoppler-cpp-dev libicu-dev
  libreoffice-writer-nogui libreoffice-calc-nogui libreoffice-impress-nogui
  lighttpd lighttpd-mod-webdav curl zip unzip python3 procps
  chromium chromium-driver python3-selenium
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages (${missing[*]}); run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# Debian starts the system lighttpd on port 80 when it (or a module of it) is
# installed; the service runs its own instance, so keep the system one from
# starting.
if [[ " ${missing[*]} " == *" lighttpd"* ]] && [ ! -e /usr/sbin/policy-rc.d ]; then
  printf '#!/bin/sh\nexit 101\n' > /usr/sbin/policy-rc.d
  chmod +x /usr/sbin/policy-rc.d
  trap 'rm -f /usr/sbin/policy-rc.d' EXIT
fi
apt-get install -y -qq --no-install-recommends "${missing[@]}"
