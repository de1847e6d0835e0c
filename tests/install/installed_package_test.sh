#!/usr/bin/env bash
# Installs a Belvane build into a temporary prefix and plays a loopback
# station (the installed tool's demo station) with each example built or run
# against that prefix alone: the C++ host (pkg-config and find_package), the
# C host (pkg-config) and the Python script (the installed package). Each
# must play and print the station's first title; the installed tool probes
# the same station.
#   installed_package_test.sh BUILD_DIR SOURCE_DIR CXX CC PYTHON PYTHON_DIR [EXTRA_FLAGS [PRELOAD]]
# EXTRA_FLAGS build the hosts (a sanitizer build's library needs hosts with
# the same runtime); PRELOAD is that runtime, for the Python interpreter.
set -euo pipefail
build=$1 source=$2 cxx=$3 cc=$4 python=$5 python_dir=$6 flags=${7:-} preload=${8:-}
example=$source/examples/cpp-host
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

# A sanitized library brings C++ checks whose runtime a C link leaves out.
cflags=$flags
[ -n "$flags" ] && cflags="$flags -fsanitize-link-c++-runtime -lstdc++"
# shellcheck disable=SC2046,SC2086
"$cc" -std=c99 -Wall -Wextra -Werror $cflags "$source/examples/c-host/c_host.c" -o "$work/c-host" \
  $(pkg-config --cflags --libs belvane-c glib-2.0) || fail "build the C host with pkg-config belvane-c"

# The installed tool serves its demo station; it finds its library through
# its run path alone.
env -u LD_LIBRARY_PATH "$prefix/bin/belvane" demo-station >"$work/server.log" 2>"$work/server.err" &
server=$!
url=""
for _ in $(seq 100); do
  url=$(head -n 1 "$work/server.log")
  [ -n "$url" ] && break
  sleep 0.1
done
[ -n "$url" ] || fail "the demo station did not start"

type=$(env -u LD_LIBRARY_PATH "$prefix/bin/belvane" probe "$url") || fail "belvane probe from the prefix"
[ "$type" = "audio/mpeg" ] || fail "belvane probe printed '$type'"

# The examples are checked for working, not for leaks: the leak checker's
# suppressions for the media libraries they load live in the unit tests.
export BELVANE_AUDIO_OUTPUT=null:fast ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0
for player in "$work/first-player-pc" "$work/cmake-build/first-player" "$work/c-host"; do
  out=$(LD_LIBRARY_PATH="$libdir" timeout 60 "$player" "$url" 5) || { echo "$out"; fail "$player failed"; }
  echo "$out"
  grep -q "connecting -> playing" <<<"$out" || fail "$player never played"
  grep -q "^title: Belvane Demo - Morning in C" <<<"$out" || fail "$player printed no title"
done

# The Python script finds the package in the prefix and the library beside it.
out=$(env -u BELVANE_LIBRARY -u LD_LIBRARY_PATH PYTHONPATH="$prefix/$python_dir" LD_PRELOAD="$preload" \
  timeout 5 "$python" -u "$source/examples/python/play_station.py" "$url") || [ $? -eq 124 ] ||
  { echo "$out"; fail "the Python script failed"; }
echo "$out"
grep -q "^state: playing" <<<"$out" || fail "the Python script never played"
grep -q "^title: Belvane Demo - Morning in C" <<<"$out" || fail "the Python script printed no title"
echo "installed package: ok"
