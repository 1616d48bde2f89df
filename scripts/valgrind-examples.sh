#!/usr/bin/env bash
# Plays the demo and every example with the release build's simulator under valgrind: a memory
# error or a leak fails the run, and so does a transcript that differs from the example's.
#
#   scripts/valgrind-examples.sh                  the demo and every example
#   scripts/valgrind-examples.sh demo NAME.json   only those
#
# Nothing is suppressed. Valgrind's logs are left in build/valgrind/.
set -euo pipefail
cd "$(dirname "$0")/.."

sim=build/release/bin/nimbal-copp-sim
if [ ! -x "$sim" ]; then
  echo "scripts/valgrind-examples.sh: $sim is missing; build it with: make release" >&2
  exit 2
fi
command -v valgrind >/dev/null || { echo "valgrind is not installed (scripts/setup.sh)" >&2; exit 2; }

scenarios=("$@")
if [ ${#scenarios[@]} -eq 0 ]; then
  scenarios=(demo examples/*.json)
fi

logs=build/valgrind
mkdir -p "$logs"
passed=0
failed=0
for s in "${scenarios[@]}"; do
  if [ "$s" = demo ]; then
    name=demo
    args=()
  else
    name=$(basename "${s%.json}")
    args=("$s")
  fi
  expected=examples/$name.expected
  start=$(date +%s%N)
  rc=0
  valgrind --error-exitcode=1 --leak-check=full --log-file="$logs/$name.log" \
    "$sim" "${args[@]}" > "$logs/$name.out" 2> "$logs/$name.err" || rc=$?
  ms=$((($(date +%s%N) - start) / 1000000))
  took=$(printf '%d.%d' $((ms / 1000)) $((ms % 1000 / 100)))
  if [ "$rc" -ne 0 ]; then
    echo "valgrind $name: FAILED (exit status $rc) in ${took} s; see $logs/$name.log" >&2
    grep -E '^==[0-9]+== ' "$logs/$name.log" | tail -n 40 >&2 || true
    failed=$((failed + 1))
  elif [ -f "$expected" ] && ! cmp -s "$expected" "$logs/$name.out"; then
    echo "valgrind $name: the transcript differs from $expected" >&2
    diff -u "$expected" "$logs/$name.out" | head -n 40 >&2 || true
    failed=$((failed + 1))
  else
    summary=$(grep -E 'ERROR SUMMARY' "$logs/$name.log" | sed 's/^==[0-9]*== //')
    echo "valgrind $name: clean in ${took} s ($summary)"
    passed=$((passed + 1))
  fi
done
echo "valgrind: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
