"""Checks the manual page of nimbal-copp-sim as man shows it: groff has nothing to warn
about, and the page documents every option and every step that --help lists, and no option
that --help does not know.

    CheckManPage.py PAGE.1 SIMULATOR
"""
import os
import re
import subprocess
import sys


def rendered(page):
    env = dict(os.environ, LC_ALL="C", MANWIDTH="80")
    r = subprocess.run(["man", "--warnings", "-E", "ascii", "-P", "cat", "-l", page],
                       capture_output=True, text=True, env=env)
    problems = []
    if r.returncode != 0:
        problems.append(f"man ended with {r.returncode}")
    if r.stderr:
        problems.append("man --warnings says:\n" + r.stderr)
    # Bold and underline as overstrikes, in case man keeps them.
    return re.sub(r".\x08", "", r.stdout), problems


def section(text, name):
    match = re.search(r"^" + name + r"\n(.*?)(?=^\S)", text, re.M | re.S)
    return match.group(1) if match else ""


def main():
    page, simulator = sys.argv[1:3]
    text, problems = rendered(page)
    help_text = subprocess.run([simulator, "--help"], capture_output=True, text=True,
                               check=True).stdout

    options_part, _, footer = help_text.partition("\nA scenario is")
    help_options = set(re.findall(r"^\s+(?:-\w,)?(--[a-z][a-z-]*)", options_part, re.M))
    steps_part = footer.split("Each step is an object with exactly one key:\n", 1)[1]
    help_steps = re.findall(r"^  ([a-z]+) ", steps_part.split("\n\n", 1)[0], re.M)

    page_options = set(re.findall(r"^ {7}(--[a-z][a-z-]*)", section(text, "OPTIONS"), re.M))
    # Table rows: the step's name in the first cell.
    page_steps = set(re.findall(r"^\s+\|([a-z]+)\s*\|", section(text, "SCENARIO"), re.M))

    if not help_options or not help_steps:
        problems.append("found no options or no steps in --help")
    for option in sorted(help_options - page_options):
        problems.append(f"{option} is in --help but not under OPTIONS")
    for option in sorted(page_options - help_options):
        problems.append(f"{option} is under OPTIONS but --help does not know it")
    for step in help_steps:
        if step not in page_steps:
            problems.append(f"step {step} is in --help but not in the table of steps")
    for name in ("NAME", "SYNOPSIS", "OPTIONS", "EXIT STATUS", "EXAMPLES", "FILES"):
        if not section(text, name).strip():
            problems.append(f"no section {name}")

    for p in problems:
        print(p)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
