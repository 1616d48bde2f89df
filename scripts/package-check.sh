#!/usr/bin/env bash
# Installs the Debian packages that `make package` made (apt-get install ./*.deb), uses them as
# an operator and as a consumer would, with nothing of the build tree, then purges them and
# checks that no file of theirs is left.
#
#   scripts/package-check.sh [PACKAGE_DIR]     (default: build/release/packages)
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
packages_dir=$(realpath "${1:-build/release/packages}")
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive

work=$(mktemp -d)
names=()
installed=0
# A check that fails half way still takes the packages away again.
cleanup() {
  if [ "$installed" -eq 1 ]; then
    $SUDO apt-get purge -y -qq "${names[@]}" >/dev/null 2>&1 || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
start=$SECONDS
step_start=$SECONDS
step() {
  echo "package-check: $1 ($((SECONDS - step_start)) s)"
  step_start=$SECONDS
}
fail() {
  echo "package-check: FAILED: $*" >&2
  exit 1
}

shopt -s nullglob
debs=("$packages_dir"/*.deb)
[ ${#debs[@]} -eq 3 ] || fail "expected 3 packages in $packages_dir, found ${#debs[@]}"
for deb in "${debs[@]}"; do
  names+=("$(dpkg-deb -f "$deb" Package)")
done
version=$(dpkg-deb -f "${debs[0]}" Version)
echo "package-check: ${names[*]} $version"

# A copy left by an earlier run that stopped half way goes first.
for name in "${names[@]}"; do
  if dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null | grep -qv '^not-installed$'; then
    echo "package-check: purging $name left from an earlier run"
    $SUDO apt-get purge -y -qq "$name" >/dev/null
  fi
done

# Every path the packages hold; any that is there already is not theirs to take or leave.
for deb in "${debs[@]}"; do
  dpkg-deb --fsys-tarfile "$deb" | tar -t
done | sed -e 's#^\./#/#' -e 's#/$##' | grep -v '^\.\?$' | sort -u >"$work/paths"
while read -r path; do
  if [ -e "$path" ] || [ -L "$path" ]; then
    [ -d "$path" ] || fail "$path is there before the packages are installed"
    echo "$path"
  fi
done <"$work/paths" >"$work/there-before"

installed=1
(cd "$packages_dir" && $SUDO apt-get install -y -qq ./*.deb) >"$work/install.log" 2>&1 ||
  { cat "$work/install.log"; fail "apt-get install"; }
for name in "${names[@]}"; do
  [ "$(dpkg-query -W -f='${Version}' "$name")" = "$version" ] || fail "$name is not installed"
done
step "installed with apt-get install"

# The operator: the installed program, with no path into the build tree.
sim=/usr/bin/nimbal-copp-sim
[ -x "$sim" ] || fail "$sim is not installed"
if readelf -d "$sim" /usr/lib/libNimbal*.so.* | grep -Eq 'RPATH|RUNPATH'; then
  fail "an installed binary has a run path"
fi
run_sim() { env -u LD_LIBRARY_PATH "$sim" "$@"; }
[ "$(run_sim --version)" = "nimbal-copp-sim $version" ] ||
  fail "--version says \"$(run_sim --version)\", the packages are $version"
(cd "$work" && run_sim >demo.out)
diff -u "$repo/examples/demo.expected" "$work/demo.out" ||
  fail "the installed simulator's demo differs from examples/demo.expected"
docdir=/usr/share/doc/nimbal-copp-sim
[ -f "$docdir/transcript.schema.json" ] || fail "no transcript schema in $docdir"
(cd "$docdir" && run_sim examples/basic.json) >"$work/basic.out"
diff -u "$repo/examples/basic.expected" "$work/basic.out" ||
  fail "the installed example basic.json does not play as examples/basic.expected"
step "demo and an installed example played as their transcripts"

page=$(man -w nimbal-copp-sim) || fail "man -w nimbal-copp-sim finds no page"
[ "$page" = /usr/share/man/man1/nimbal-copp-sim.1.gz ] || fail "man -w finds $page"
warnings=$(LC_ALL=C MANWIDTH=80 man --warnings -P cat nimbal-copp-sim 2>&1 >"$work/man.txt")
[ -z "$warnings" ] || fail "man --warnings: $warnings"
grep -q "Nimbal $version" "$work/man.txt" || fail "the manual page does not carry version $version"
step "man -w nimbal-copp-sim: $page"

# The consumer, from a copy outside the source tree: CMake's find_package, then pkg-config.
cp -r "$repo/tests/install/consumer" "$work/consumer"
cmake -S "$work/consumer" -B "$work/consumer/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/consumer.log" 2>&1 ||
  { cat "$work/consumer.log"; fail "the consumer does not configure against the -dev package"; }
cmake --build "$work/consumer/build" >>"$work/consumer.log" 2>&1 ||
  { cat "$work/consumer.log"; fail "the consumer does not build against the -dev package"; }
nimbal_dir=$(sed -n 's/^Nimbal_DIR:PATH=//p' "$work/consumer/build/CMakeCache.txt")
[ "$nimbal_dir" = /usr/lib/cmake/Nimbal ] || fail "find_package found Nimbal in $nimbal_dir"
# /lib may be /usr/lib under another name: the file it names is what counts.
library=$(realpath /usr/lib/libNimbalQosShared.so.1)
loaded=$(env -u LD_LIBRARY_PATH "$work/consumer/build/consumer") || fail "the consumer fails"
[ "$(realpath "$loaded")" = "$library" ] || fail "the consumer loaded $loaded"

[ "$(pkg-config --modversion nimbal-qos)" = "$version" ] || fail "pkg-config's version is not $version"
# shellcheck disable=SC2046
g++ -o "$work/consumer-pc" "$work/consumer/consumer.cpp" $(pkg-config --cflags --libs nimbal-qos) \
  -ldl || fail "the consumer does not build with pkg-config's flags"
loaded=$(env -u LD_LIBRARY_PATH "$work/consumer-pc") || fail "the pkg-config consumer fails"
[ "$(realpath "$loaded")" = "$library" ] || fail "the pkg-config consumer loaded $loaded"
if grep -rqs "$repo" "$work/consumer/build" || strings "$work/consumer-pc" | grep -q "$repo"; then
  fail "a consumer build refers to $repo"
fi
step "consumer built with find_package(Nimbal) and with pkg-config nimbal-qos"

$SUDO apt-get purge -y -qq "${names[@]}" >"$work/purge.log" 2>&1 ||
  { cat "$work/purge.log"; fail "apt-get purge"; }
installed=0
for name in "${names[@]}"; do
  if dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null | grep -qv '^not-installed$'; then
    fail "$name is still known to dpkg after the purge"
  fi
done
left=$(comm -23 "$work/paths" "$work/there-before" | while read -r path; do
  if [ -e "$path" ] || [ -L "$path" ]; then echo "$path"; fi
done)
[ -z "$left" ] || fail "left after the purge: $left"
step "purged; none of the $(wc -l <"$work/paths") paths of the packages is left"

echo "package-check: passed in $((SECONDS - start)) s"
