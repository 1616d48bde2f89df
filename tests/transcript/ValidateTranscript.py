"""Checks the simulator's JSON Lines transcript against host/transcript/transcript.schema.json.

    ValidateTranscript.py SCHEMA SIM [SCENARIO]   plays SCENARIO (the demo when absent) with
                                                  --format json and validates every line
    ValidateTranscript.py SCHEMA --self-check      the schema refuses events that are wrong
    ValidateTranscript.py SCHEMA --preflight SIM SCENARIO
                                                  the JSON form of --preflight fits the schema
    ValidateTranscript.py SCHEMA --advise SIM SCENARIO
                                                  the JSON form of --advise fits the schema

Run with Debian's /usr/bin/python3 and python3-jsonschema (scripts/setup.sh installs it).
"""
import json
import subprocess
import sys

import jsonschema


def validator(path):
    with open(path, encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft7Validator.check_schema(schema)
    return jsonschema.Draft7Validator(schema)


def fail(message):
    print(message, file=sys.stderr)
    sys.exit(1)


def play(check, sim, scenario):
    run = subprocess.run([sim, "--format", "json"] + scenario, capture_output=True, text=True)
    if run.returncode != 0:
        fail(f"exit status {run.returncode}; standard error:\n{run.stderr}")
    lines = run.stdout.splitlines()
    if not lines:
        fail("no events")
    events = []
    for number, line in enumerate(lines, 1):
        try:
            event = json.loads(line)
        except json.JSONDecodeError as e:
            fail(f"line {number} is not JSON ({e}): {line}")
        errors = sorted(check.iter_errors(event), key=lambda e: e.path)
        if errors:
            fail(f"line {number} does not fit the schema: {errors[0].message}\n{line}")
        events.append(event)
    if events[0]["event"] != "scenario" or events[-1]["event"] != "end":
        fail("the transcript does not run from the scenario to the end")
    steps = [e["step"] for e in events]
    times = [e["time"] for e in events]
    if steps != sorted(steps) or times != sorted(times):
        fail("steps or times go backwards")
    print(f"{len(events)} events fit the schema")


def self_check(check):
    good = {"event": "traffic", "time": 1.5, "step": 2, "interface": "Ethernet1", "queue": 1,
            "queueName": "CoppSystemBgp", "vxlan": False, "offered": 10, "allowed": 7,
            "dropped": 3, "flow": 0, "pattern": "constant"}
    if list(check.iter_errors(good)):
        fail("a good traffic event is refused")
    wrong = {
        "without a time": {k: v for k, v in good.items() if k != "time"},
        "an unknown kind": dict(good, event="trafic"),
        "a negative counter": dict(good, dropped=-3),
        "a counter as text": dict(good, offered="10"),
        "a field of no kind": dict(good, colour="red"),
        "a queue above 47": dict(good, queue=48),
        "sw rows in a hw table": {"event": "show", "time": 0, "step": 1, "table": "hw",
                                  "rows": [{"interface": "Ethernet1", "queue": "CoppSystemBgp",
                                            "dropped": 1, "allowed": 2}]},
    }
    for what, event in wrong.items():
        if not list(check.iter_errors(event)):
            fail(f"an event with {what} passes the schema")
    print(f"the schema refuses {len(wrong)} wrong events")


def preflight(check, sim, scenario):
    run = subprocess.run([sim, "--preflight", "--format", "json", scenario],
                         capture_output=True, text=True)
    if run.returncode not in (0, 3):
        fail(f"exit status {run.returncode}; standard error:\n{run.stderr}")
    events = [json.loads(line) for line in run.stdout.splitlines()]
    if [e["event"] for e in events] != ["switch", "preflight"]:
        fail(f"not the switch and the preflight: {run.stdout}")
    for event in events:
        errors = list(check.iter_errors(event))
        if errors:
            fail(f"does not fit the schema: {errors[0].message}\n{json.dumps(event)}")
    report = events[1]
    if report["fits"] != (run.returncode == 0):
        fail(f"fits is {report['fits']} with exit status {run.returncode}")
    wrong = {
        "fits as text": dict(report, fits="no"),
        "an unknown pool": dict(report, pools=[dict(report["pools"][0], pool="tcam")]),
        "a shortfall without items": dict(report, shortfalls=[
            {"what": "kernelKey", "reason": "egressCoppEntry", "fromStep": 0, "fromTime": 0,
             "items": []}]),
    }
    for what, event in wrong.items():
        if not list(check.iter_errors(event)):
            fail(f"a preflight with {what} passes the schema")
    keys = sum(len(s["items"]) for s in report["shortfalls"])
    print(f"the preflight fits the schema, {len(report['shortfalls'])} shortfalls of {keys} items")


def advice(check, sim, scenario):
    run = subprocess.run([sim, "--advise", "--format", "json", scenario],
                         capture_output=True, text=True)
    if run.returncode not in (0, 3):
        fail(f"exit status {run.returncode}; standard error:\n{run.stderr}")
    events = [json.loads(line) for line in run.stdout.splitlines()]
    if [e["event"] for e in events] != ["advice"]:
        fail(f"not one advice: {run.stdout}")
    report = events[0]
    errors = list(check.iter_errors(report))
    if errors:
        fail(f"does not fit the schema: {errors[0].message}\n{json.dumps(report)}")
    if report["met"] != (run.returncode == 0) or report["met"] != (not report["unmet"]):
        fail(f"met is {report['met']} with exit status {run.returncode}")
    wrong = {
        "met as text": dict(report, met="yes"),
        "a loss above 1": dict(report, classes=[dict(report["classes"][0], before=dict(
            report["classes"][0]["before"], loss=1.5))]),
        "a rate without its burst": dict(report, classes=[dict(report["classes"][0],
                                                               advised={"rate": 5})]),
    }
    for what, event in wrong.items():
        if not list(check.iter_errors(event)):
            fail(f"advice with {what} passes the schema")
    print(f"the advice fits the schema, {len(report['classes'])} classes, {report['trials']} trials")


def main():
    if len(sys.argv) < 3:
        fail(__doc__)
    check = validator(sys.argv[1])
    if sys.argv[2] == "--self-check":
        self_check(check)
    elif sys.argv[2] == "--preflight":
        preflight(check, sys.argv[3], sys.argv[4])
    elif sys.argv[2] == "--advise":
        advice(check, sys.argv[3], sys.argv[4])
    else:
        play(check, sys.argv[2], sys.argv[3:])


if __name__ == "__main__":
    main()
