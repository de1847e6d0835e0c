#!/usr/bin/env bash
# Installs a Belvane build into a temporary prefix, builds the first-player
# example against it with pkg-config and with find_package, and plays a
# file served on loopback with each; the installed tool probes the same file.
#   installed_package_test.sh BUILD_DIR EXAMPLE_DIR CXX [EXTRA_FLAGS]
set -euo pipefail
build=$1 example=$2 cxx=$3 flags=${4:-}
work=$(mktemp -d)
server=""
cleanup() {
  [ -n "$server" ] && kill "$server" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
  { tail -n 20 "$work/install.log"; fail "cmake --install (is every target built?)"; }
pc=$(find "$prefix" -name belvane.pc || true)
[ -n "$pc" ] || fail "no belvane.pc installed"
! grep -q "$build\|/usr/local" "$pc" || fail "belvane.pc names an absolute prefix"
kit=$(find "$prefix/share/belvane/applications/RealPlayer" -name HXClientKit.so 2>/dev/null || true)
[ -n "$kit" ] || fail "the RealMedia client kit is not installed"

# The pkg-config way: no -std flag of our own, the .pc file carries it.
export PKG_CONFIG_PATH="$(dirname "$pc")"
libdir=$(pkg-config --variable=libdir belvane)
# shellcheck disable=SC2046,SC2086
"$cxx" $flags "$example/first_player.cpp" -o "$work/first-player-pc" $(pkg-config --cflags --libs belvane) ||
  fail "build with pkg-config"

# The CMake way: the imported target carries the include path and C++20.
cmake -S "$example" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$work/cmake.log" 2>&1 &&
  cmake --build "$work/cmake-build" >>"$work/cmake.log" 2>&1 ||
  { tail -n 30 "$work/cmake.log"; fail "build with find_package"; }

# A loopback server that spells the header "Content-type".
mkdir "$work/www"
cp "$prefix/share/belvane/demo-station.mp3" "$work/www/station.mp3"
python3 -u -m http.server 0 --bind 127.0.0.1 --directory "$work/www" >"$work/server.log" 2>&1 &
server=$!
port=""
for _ in $(seq 100); do
  port=$(sed -n 's/.* port \([0-9]*\).*/\1/p' "$work/server.log" | head -n 1)
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || fail "the loopback server did not start"
url="http://127.0.0.1:$port/station.mp3"

# The installed tool finds its library through its run path alone.
type=$(env -u LD_LIBRARY_PATH "$prefix/bin/belvane" probe "$url") || fail "belvane probe from the prefix"
[ "$type" = "audio/mpeg" ] || fail "belvane probe printed '$type'"

# The example is checked for working, not for leaks: the leak checker's
# suppressions for the media libraries it loads live in the unit tests.
export BELVANE_AUDIO_OUTPUT=null:fast ASAN_OPTIONS=detect_leaks=0
for player in "$work/first-player-pc" "$work/cmake-build/first-player"; do
  out=$(LD_LIBRARY_PATH="$libdir" timeout 60 "$player" "$url" 20) || { echo "$out"; fail "$player failed"; }
  echo "$out"
  grep -q "connecting -> playing" <<<"$out" || fail "$player never played"
  grep -q "^stopped$" <<<"$out" || fail "$player did not stop"
done
echo "installed package: ok"
