#!/usr/bin/env bash
# packaging_test.sh BUILD_DIR: installs the build into a staging folder, builds an outside program against it
# by the CMake package and by pkg-config; each, and the installed Python module, must give the tool's vector.
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
stage=$work/stage

DESTDIR=$stage cmake --install "$build" > /dev/null
pcdir=$(dirname "$(find "$stage" -name fontvec.pc)")
pkgdir=$(dirname "$(find "$stage" -name fontvecConfig.cmake)")
libdir=$(dirname "$(find "$stage" -name 'libfeature_vector.so.1')")
config=$(dirname "$(find "$stage" -name Script.scr)")
module=$(dirname "$(find "$stage" -name fontvec.py)")
expected=$("$build/fontvec" "$font" 2> /dev/null)

fail() { echo "FAILED: $*" >&2; exit 1; }
check() {  # WHAT PROGRAM: needs the SONAME, gives the tool's vector
  readelf -d "$2" | grep -q 'NEEDED.*\[libfeature_vector\.so\.1\]' ||
    fail "$1: does not need libfeature_vector.so.1"
  got=$(LD_LIBRARY_PATH=$libdir "$2" "$font" "$config" 2> /dev/null) || true
  [ "$got" = "$expected" ] || fail "$1: not the tool's vector"
  echo "ok: $1"
}

cmake -S "$here/consumer" -B "$work/cmake" -Dfontvec_DIR="$pkgdir" > /dev/null
cmake --build "$work/cmake" > /dev/null
check "find_package(fontvec)" "$work/cmake/consumer"

flags=$(PKG_CONFIG_PATH=$pcdir PKG_CONFIG_SYSROOT_DIR=$stage pkg-config --cflags --libs fontvec)
cc "$here/consumer/consumer.c" $flags -o "$work/pc-consumer"
check "pkg-config fontvec ($flags)" "$work/pc-consumer"

# The module finds the staged library and configuration from its own place.
got=$(PYTHONPATH=$module python3 -c 'import sys, fontvec
print(",".join("%0.8f" % v for v in fontvec.vector(sys.argv[1])))' "$font" 2> /dev/null) || true
[ "$got" = "$expected" ] || fail "the installed Python module: not the tool's vector"
echo "ok: the installed Python module"
