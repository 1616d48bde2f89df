#!/usr/bin/env bash
# Runs the benchmarks and prints how each path scales: time at the large size over time at the
# small one (1.0 means it does not grow with the switch).
set -euo pipefail
bin=${1:-build/release/bin/nimbal_bench}
json=$(mktemp)
trap 'rm -f "$json"' EXIT
"$bin" --benchmark_format=json --benchmark_min_time=0.2 >"$json" 2>/dev/null
python3 - "$json" <<'PY'
import json, sys
runs = {b["name"]: b["real_time"] for b in json.load(open(sys.argv[1]))["benchmarks"]}
for name, t in runs.items():
    print(f"{name:40s} {t:12.3f}")
pairs = [("BM_PortQueueCreateDestroy/1000", "BM_PortQueueCreateDestroy/8"),
         ("BM_VxlanPoolAllocate/511", "BM_VxlanPoolAllocate/0"),
         ("BM_PacketToCpu/1000", "BM_PacketToCpu/8"),
         ("BM_CollectionIsAndLookup/49152", "BM_CollectionIsAndLookup/64")]
print()
for big, small in pairs:
    if big in runs and small in runs:
        print(f"{big} / {small}: {runs[big] / runs[small]:.2f}")
PY
