#!/usr/bin/env bash
# Installs everything the build and the tests need, from Debian packages only.
# Idempotent: a machine that already has every package skips apt entirely.
set -euo pipefail

packages=(
  cmake g++ make pkg-config ninja-build
  libgtest-dev libgmock-dev libbenchmark-dev libutf8proc-dev duktape-dev
  libcli11-dev nlohmann-json3-dev bsdutils
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64
  dpkg-dev clang libclang-rt-14-dev python3
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi
