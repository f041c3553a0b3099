#!/usr/bin/env bash
# Installs what the build needs on a fresh Debian machine, once: only the
# packages that are missing, after one apt-get update. libjs-chart.js is
# Chart.js, which the build puts into the pages of --html. Package names given
# as arguments are installed too (the tests' and benchmarks' peers: tshark,
# whose wireshark-common brings capinfos, is set up without its question on
# capture privileges).
set -euo pipefail

packages=(cmake make g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev libpugixml-dev libpcap-dev
          zlib1g-dev nlohmann-json3-dev libcli11-dev clang libclang-rt-14-dev libjs-chart.js "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  echo "wireshark-common wireshark-common/install-setuid boolean false" | $sudo debconf-set-selections
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
