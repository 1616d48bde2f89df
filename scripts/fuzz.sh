#!/usr/bin/env bash
# Runs the libFuzzer targets of the sanitizer build (build it first: make fuzz).
#
#   scripts/fuzz.sh smoke            every regression input once, then 20 s per target (CI;
#                                    10 s for capture)
#   scripts/fuzz.sh long [SECONDS]   SECONDS per target (default 3600), corpus kept in build/fuzz
#
# Targets: loader (bytes as a scenario file), steps (bytes decoded into a switch and valid
# steps, played by the simulated agent) and capture (bytes as a pcap or pcapng file, replayed).
# Committed inputs live in fuzz/corpus/TARGET (seeds) and fuzz/regressions/TARGET (inputs that
# once found a bug); the loader also starts from every example, the demo and the invalid and
# aborting scenarios. New inputs go to build/fuzz/corpus/TARGET, crashes and hangs to
# build/fuzz/artifacts/TARGET/.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-smoke}
case "$mode" in
  smoke) seconds=20 ;;
  long) seconds=${2:-3600} ;;
  *) echo "usage: scripts/fuzz.sh smoke | long [SECONDS]" >&2; exit 2 ;;
esac

bin=build/sanitize/bin
targets=(loader steps capture)
for t in "${targets[@]}"; do
  if [ ! -x "$bin/nimbal-fuzz-$t" ]; then
    echo "scripts/fuzz.sh: $bin/nimbal-fuzz-$t is missing; build it with: make fuzz" >&2
    exit 2
  fi
done

work=build/fuzz
seeds=$work/seeds/loader
rm -rf "$seeds"
mkdir -p "$seeds"
cp examples/*.json tests/scenarios/invalid/*.json tests/scenarios/abort/*.json "$seeds"/
"$bin/nimbal-copp-sim" --print-demo > "$seeds/demo.json"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:symbolize=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

failed=0
passed=0
for t in "${targets[@]}"; do
  fuzzer=$bin/nimbal-fuzz-$t
  artifacts=$work/artifacts/$t
  mkdir -p "$work/corpus/$t" "$artifacts"
  options=(-timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$artifacts/")
  extra=()
  if [ "$t" = loader ]; then
    options+=(-max_len=8192 -dict=fuzz/loader.dict)
    extra=("$seeds")
  elif [ "$t" = capture ]; then
    options+=(-max_len=4096)
  else
    options+=(-max_len=512)
  fi
  # Capture bytes reach little code: a short smoke covers it, and the smoke budget is tight.
  budget=$seconds
  if [ "$mode" = smoke ] && [ "$t" = capture ]; then
    budget=10
  fi

  # Every input that once found a bug runs on its own first.
  mapfile -t regressions < <(find "fuzz/regressions/$t" -type f 2>/dev/null | sort)
  if [ ${#regressions[@]} -gt 0 ]; then
    echo "fuzz $t: replaying ${#regressions[@]} regression inputs"
    if ! "$fuzzer" "${options[@]}" "${regressions[@]}" > "$work/$t-regressions.log" 2>&1; then
      echo "fuzz $t: a regression input fails again; see $work/$t-regressions.log" >&2
      tail -n 30 "$work/$t-regressions.log" >&2
      failed=$((failed + 1))
      continue
    fi
  fi

  echo "fuzz $t: $budget s"
  log=$work/$t-$mode.log
  dirs=("$work/corpus/$t" "fuzz/corpus/$t" "fuzz/regressions/$t" "${extra[@]}")
  existing=()
  for d in "${dirs[@]}"; do
    [ -d "$d" ] && existing+=("$d")
  done
  if "$fuzzer" "${options[@]}" "-max_total_time=$budget" "${existing[@]}" > "$log" 2>&1; then
    passed=$((passed + 1))
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::average_exec_per_sec)' "$log" |
      sed "s/^/fuzz $t: /" || true
  else
    failed=$((failed + 1))
    echo "fuzz $t: FAILED; the input is in $artifacts/; see $log" >&2
    tail -n 60 "$log" >&2
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
