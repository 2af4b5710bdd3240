#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need,
# and only those that are missing (no network is touched when all are there).
# With FONTVEC_FUZZ=1 also the fuzzing tools.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libpng-dev zlib1g-dev
  # The Python module's test (standard library only).
  python3
  libgtest-dev libbenchmark-dev
  # Tests only: real fonts to load, and libfreetype as an independent oracle
  # to compare the engine against (the library itself never links it).
  fonts-dejavu-core fonts-dejavu-extra fonts-liberation2 fonts-freefont-ttf
  fonts-noto-core
  fonts-blankenburg
  # OpenType fonts with CFF outlines (Noto CJK: a CID font in a collection).
  fonts-urw-base35 fonts-texgyre fonts-cantarell fonts-ebgaramond
  fonts-noto-cjk
  # Embedded strikes: bitmap-only Terminus, a CJK collection with strikes
  # beside its outlines, and colour PNG strikes.
  fonts-terminus-otb fonts-wqy-zenhei fonts-noto-color-emoji
  libfreetype-dev
)
# Fuzzing only (FONTVEC_FUZZ=1, as scripts/fuzz.sh sets it): clang with its
# libFuzzer and sanitizer runtimes, and the font subsetter of the seeds.
if [ "${FONTVEC_FUZZ:-0}" = 1 ]; then
  packages+=(clang libclang-rt-dev fonttools)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
