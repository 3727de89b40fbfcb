#!/usr/bin/env bash
# Installs the Debian packages that building and testing q417plg need. Runs as root (or with
# sudo available); skips the install when everything is present already.
set -euo pipefail
pkgs=(
  build-essential cmake pkg-config ccache
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
  libfontconfig-dev libfreetype-dev libpng-dev
  fonts-dejavu-core fonts-dejavu-extra fonts-liberation2
  clang libclang-rt-14-dev
  cups cups-daemon cups-client cups-filters libcups2-dev
  libcairo2-dev ghostscript time
  libgs-dev libjpeg-dev libcups2-dev
)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
