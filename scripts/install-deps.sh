#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. As root it
# installs what is missing; otherwise it prints the apt-get line to run.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          nlohmann-json3-dev libcli11-dev zlib1g-dev
          libmicrohttpd-dev libxml2-dev libssl-dev libcrypt-dev libcurl4-openssl-dev sblim-wbemcli curl openssl
          prometheus python3)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "Missing packages. Run as root:" >&2
  echo "  apt-get update && apt-get install -y --no-install-recommends ${missing[*]}" >&2
  exit 1
fi
