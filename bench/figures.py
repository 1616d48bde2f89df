#!/usr/bin/env python3
"""Runs the benchmarks and prints one line per figure, with its target.

Every time is the benchmark thread's processor time, measured in the same run as what it is
compared with, and the verdicts read ratios and per-key costs, so a busy machine moves the
figures together rather than apart. The boot, teardown and show ratios are medians of
interleaved repetitions of both sides.
Targets are for reading, not for failing: nothing here exits non-zero on a missed target.
"""
import json
import os
import resource
import statistics
import subprocess
import time
import sys
import tempfile

bindir = sys.argv[1] if len(sys.argv) > 1 else "build/release/bin"
extra = sys.argv[2:]


# The ratio figures, B1 to B3: each side run this many times, the runs of every side shuffled
# together, and the median of each side taken. A busy moment then lands on a run or two of either
# side, not on one side's only run.
INTERLEAVED = "^B[123]_"
INTERLEAVED_REPETITIONS = 9


def run_benchmarks(flags=()):
    out = subprocess.run([os.path.join(bindir, "nimbal_bench"), "--benchmark_format=json"]
                         + list(flags) + extra,
                         check=True, capture_output=True, text=True).stdout
    runs = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        manual = "/manual_time" in b["name"]
        name = b["name"].split("/iterations:")[0].replace("/manual_time", "")
        scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[b["time_unit"]]
        # Processor time of the benchmark's thread: manual timings measure it themselves; for
        # the others it is Google Benchmark's CPU time. Waiting for a processor is not counted.
        seconds = (b["real_time"] if manual else b["cpu_time"]) * scale / b.get("statements", 1)
        runs.setdefault(name, []).append(dict(b, seconds=seconds))
    return {name: dict(reps[0], seconds=statistics.median(x["seconds"] for x in reps),
                       repetitions=len(reps)) for name, reps in runs.items()}


def run_memory():
    out = subprocess.run([os.path.join(bindir, "nimbal_bench_memory")], check=True,
                         capture_output=True, text=True).stdout
    return {k: float(v) for k, v in (line.split() for line in out.splitlines())}


def children_cpu(command):
    """Processor time of a command and the processes it waits for (user + system)."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)


def preflight_figure(repetitions=3):
    """B10: the preflight of the large example against playing it with its traffic removed."""
    sim = os.path.join(bindir, "nimbal-copp-sim")
    scenario = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples",
                            "large-switch.json")
    with open(scenario, encoding="utf-8") as f:
        doc = json.load(f)
    doc["steps"] = [s for s in doc["steps"] if "traffic" not in s]
    with tempfile.NamedTemporaryFile("w", suffix=".json", delete=False) as f:
        json.dump(doc, f)
        quiet = f.name
    try:
        # Interleaved, the best of each: a busy moment slows one repetition, not one side.
        runs, checks = [], []
        for _ in range(repetitions):
            runs.append(children_cpu([sim, quiet]))
            checks.append(children_cpu([sim, "--preflight", scenario]))
    finally:
        os.unlink(quiet)
    return min(checks), min(runs), len(doc["steps"])


def advise_figure(repetitions=3):
    """B11: the advisor on its example: wall time, trials, and one plain play as the baseline."""
    sim = os.path.join(bindir, "nimbal-copp-sim")
    scenario = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples",
                            "advise-dhcp-flood.json")
    advice, plays, trials = [], [], 0
    for _ in range(repetitions):
        start = time.monotonic()
        out = subprocess.run([sim, "--advise", "--format", "json", scenario], capture_output=True,
                             text=True, check=True).stdout
        advice.append(time.monotonic() - start)
        trials = json.loads(out)["trials"]
        start = time.monotonic()
        subprocess.run([sim, scenario], stdout=subprocess.DEVNULL, check=True)
        plays.append(time.monotonic() - start)
    return trials, min(advice), min(plays)


def run_scale():
    """The simulator on the 1,020-interface switch: its peak resident memory."""
    scenario = os.path.join(os.path.dirname(os.path.abspath(__file__)), "scale-1020.json")
    out = subprocess.run([os.path.join(bindir, "nimbal-copp-sim"), scenario], check=True,
                         capture_output=True, text=True).stdout
    # Run before any other child: the largest child so far is this one. In kilobytes.
    return resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, out.strip().splitlines()[-1]


def verdict(ok):
    return "ok" if ok else "MISSED"


def ms(s):
    return f"{s * 1e3:.2f} ms"


def main():
    scale_rss, scale_end = run_scale()
    r = run_benchmarks([f"--benchmark_filter=-{INTERLEAVED}"])
    r.update(run_benchmarks([f"--benchmark_filter={INTERLEAVED}",
                             f"--benchmark_repetitions={INTERLEAVED_REPETITIONS}",
                             "--benchmark_enable_random_interleaving=true"]))
    mem = run_memory()
    check, quiet, steps = preflight_figure()
    lines = []

    def line(text, ok=None):
        lines.append(text + ("" if ok is None else f"  [{verdict(ok)}]"))

    def growth(name, small, big, target=4.5, note=""):
        g = r[big]["seconds"] / r[small]["seconds"]
        line(f"{name} growth, quarter to full scale: x{g:.2f} (target <= {target}{note})", g <= target)

    # B1
    keys = r["B1_Boot/4"]["keys"]
    lib, bare = r["B1_Boot/4"]["seconds"], r["B1_BootBare/4"]["seconds"]
    own = (lib - bare) / keys * 1e9
    line(f"B1 boot, {keys:,.0f} keys: library {ms(lib)}, bare {ms(bare)} (medians of "
         f"{r['B1_Boot/4']['repetitions']} interleaved runs each), ratio {lib / bare:.2f} "
         f"(target <= 1.6)", lib / bare <= 1.6)
    line(f"B1 boot, library's own time: {own:.0f} ns per key (target <= 1000)", own <= 1000)
    qlib, qbare = r["B1_Boot/1"]["seconds"], r["B1_BootBare/1"]["seconds"]
    line(f"B1 boot at a quarter, {r['B1_Boot/1']['keys']:,.0f} keys: library {ms(qlib)}, "
         f"bare {ms(qbare)}, ratio {qlib / qbare:.2f}")
    growth("B1 boot", "B1_Boot/1", "B1_Boot/4")
    # B2
    lib, bare = r["B2_Teardown/4"]["seconds"], r["B2_TeardownBare/4"]["seconds"]
    line(f"B2 teardown, {keys:,.0f} keys: library {ms(lib)}, bare {ms(bare)}, "
         f"ratio {lib / bare:.2f} (target <= 1.3)", lib / bare <= 1.3)
    # B3
    for table in ("Hw", "Sw"):
        full, bare = r[f"B3_Show{table}/4"], r[f"B3_Show{table}Bare/4"]
        ratio = full["seconds"] / bare["seconds"]
        line(f"B3 show {table.lower()} table, {full['lines']:,.0f} lines: library "
             f"{ms(full['seconds'])}, bare {ms(bare['seconds'])}, ratio {ratio:.2f} "
             f"(target <= 1.2)", ratio <= 1.2)
        growth(f"B3 show {table.lower()} table", f"B3_Show{table}/1", f"B3_Show{table}/4")
    # B4
    full = r["B4_VxlanSync/40"]
    line(f"B4 VXLAN sync of {full['keys']:.0f} keys ({full['programmed']:.0f} programmed, "
         f"{full['keys'] - full['programmed']:.0f} left to the retry) and full disable: "
         f"{full['seconds'] * 1e6:.0f} us (target < 1 ms)", full["seconds"] < 1e-3)
    growth("B4 VXLAN sync", "B4_VxlanSync/10", "B4_VxlanSync/40")
    # B5
    poll = r["B5_Poll"]
    line(f"B5 counter poll of {poll['classes']:,.0f} classes: {ms(poll['seconds'])} "
         f"(target < 5 ms)", poll["seconds"] < 5e-3)
    # B6
    off, on = r["B6_TraceDisabled"]["seconds"], r["B6_TraceEnabled"]["seconds"]
    line(f"B6 trace statement, handle off: {off * 1e9:.2f} ns (target <= 1 ns)", off <= 1e-9)
    line(f"B6 trace statement, handle on, to /dev/null: {on * 1e9:.0f} ns")
    # B7
    line(f"B7 memory, {mem['keys']:,.0f} keys: library's own {mem['library_bytes_per_key']:.0f} "
         f"bytes per key (target <= 256)", mem["library_bytes_per_key"] <= 256)
    line(f"B7 memory: platform {mem['platform_bytes_per_key']:.0f} bytes per key "
         f"(target <= 1024)", mem["platform_bytes_per_key"] <= 1024)
    line(f"B7 memory: the library keeps {mem['library_bytes_per_key_after_teardown']:.0f} bytes "
         f"per key once every key is removed (the interfaces' counter records, and the freed "
         f"blocks of the framework's collections, kept for reuse)")
    # B8
    few, quarter, full = (r[f"B8_Packet/{n}"] for n in (0, 256, 1024))
    line(f"B8 packet to the CPU: {few['seconds'] * 1e9:.0f} ns with {few['entries']:.0f} entries, "
         f"{full['seconds'] * 1e9:.0f} ns with {full['entries']:,.0f}: "
         f"x{full['seconds'] / few['seconds']:.2f} (target <= 1.5)",
         full["seconds"] / few["seconds"] <= 1.5)
    growth("B8 packet", "B8_Packet/256", "B8_Packet/1024")
    # B10
    line(f"B10 preflight of examples/large-switch.json (1,024 interfaces, two dry runs): "
         f"{check:.2f} s against {quiet:.2f} s playing it with its traffic removed ({steps} steps): "
         f"x{check / quiet:.2f} (target <= 3)", check <= 3 * quiet)
    # B10b
    short, room = r["B10b_TrafficStep/20/100000"], r["B10b_TrafficStep/0/100000"]
    ratio = short["seconds"] / room["seconds"]
    line(f"B10b traffic step of {short['packets']:,.0f} packets, 32 ports, egress meter pool at 20 "
         f"({short['waiting']:,.0f} keys waiting): {ms(short['seconds'])}, with room "
         f"{ms(room['seconds'])}, ratio {ratio:.2f} (target <= 2)", ratio <= 2)
    # B9
    def capture_run(n):
        out = subprocess.run([os.path.join(bindir, "nimbal_bench_capture"), str(n)],
                             capture_output=True, text=True, check=True).stdout.split()
        return int(out[0]), float(out[1]), float(out[2]), int(out[3])
    small, big = capture_run(100000), capture_run(1000000)
    cost = big[1] / big[2]
    line(f"B9 capture replay through 64 ports, 1,000,000 packets: {big[1]:.0f} ns per packet "
         f"against {big[2]:.0f} ns on the chip's bare packet path: x{cost:.2f} (target <= 2)",
         cost <= 2)
    grow = big[3] / small[3]
    line(f"B9 resident memory: {small[3] / 1024:.1f} MB at 100,000 packets, "
         f"{big[3] / 1024:.1f} MB at 1,000,000: x{grow:.3f} (target within 5 %)",
         abs(grow - 1) <= 0.05)

    # B11
    trials, advice_s, play_s = advise_figure()
    line(f"B11 advice on examples/advise-dhcp-flood.json: {advice_s:.2f} s wall, {trials} "
         f"configurations tried, {advice_s / trials * 1e3:.1f} ms per trial against "
         f"{play_s * 1e3:.1f} ms for one play of the scenario: x{advice_s / trials / play_s:.2f} "
         f"(target: under 30 s)", advice_s < 30)

    # The simulator at scale
    line(f"1,020-interface run ({scale_end}): peak resident memory "
         f"{scale_rss / 1e3:.1f} MB (target <= 40 MB)", scale_rss <= 40e3)
    # The paths the earlier benchmarks follow.
    for big, small, what in (("BM_PortQueueCreateDestroy/1000", "BM_PortQueueCreateDestroy/8",
                              "port-queue create and destroy, 1,000 entries against 8"),
                             ("BM_VxlanPoolAllocate/511", "BM_VxlanPoolAllocate/0",
                              "VXLAN pool allocation, 511 taken against none (the bounded walk)"),
                             ("BM_CollectionIsAndLookup/49152", "BM_CollectionIsAndLookup/64",
                              "collection set and lookup, 49,152 keys against 64")):
        line(f"{what}: x{r[big]['seconds'] / r[small]['seconds']:.2f}")
    print("\n".join(lines))


if __name__ == "__main__":
    main()
