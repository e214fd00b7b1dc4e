#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs tools/demo on a terminal of its own, as a person would: reads what it says, runs what it proposes, leaves.

usage: demo_terminal.py TOOL BIN

Prints what goes wrong, and ends with status 1 then.
"""
import os
import pty
import re
import select
import subprocess
import sys
import time

DEADLINE = 60


def read_until(terminal, text, seen):
    end = time.monotonic() + DEADLINE
    while text not in seen:
        if time.monotonic() > end or not select.select([terminal], [], [], 1)[0]:
            if time.monotonic() > end:
                sys.exit(f"no {text!r} in:\n{seen}")
            continue
        try:
            seen += os.read(terminal, 65536).decode(errors="replace")
        except OSError:
            sys.exit(f"it ended without {text!r}:\n{seen}")
    return seen


def samples(environment):
    text = subprocess.run(["bash", "-c", f". {environment}; swcli -c 'show sflow | json'"], check=True,
                          capture_output=True, text=True).stdout
    return sum(int(number) for number in re.findall(r'"flow-samples-sent": "([0-9]+)"', text))


def main():
    tool, programs = sys.argv[1:]
    child, terminal = pty.fork()
    if child == 0:
        os.execv(tool, [tool, "--bin", programs])
    seen = read_until(terminal, "Enter or Ctrl-C ends the switch.", "")
    plain = re.sub(r"\x1b\[[0-9;]*m", "", seen).replace("\r", "")
    problems = [f"wider than 80 columns: {line}" for line in plain.split("\n") if len(line) > 80]
    proposed = plain[plain.index("\nNow you\n"):]
    environment = re.search(r"^    \. (\S+)$", proposed, re.MULTILINE)[1]
    # It goes on: more samples come.
    before = samples(environment)
    end = time.monotonic() + DEADLINE
    while samples(environment) <= before:
        if time.monotonic() > end:
            sys.exit("no more samples come")
        time.sleep(0.2)
    accepted, refused = re.findall(r"^    (swcli -c '.*')$", proposed.split("refused")[0], re.MULTILINE), \
        re.findall(r"^    (swcli -c '.*')$", proposed.split("refused")[1], re.MULTILINE)
    if len(accepted) < 4 or len(refused) != 2:
        problems.append(f"commands: {accepted} {refused}")
    for command in accepted + refused:
        status = subprocess.run(["bash", "-c", f". {environment}; {command}"], capture_output=True).returncode
        if (status == 0) == (command == refused[0]):
            problems.append(f"ends with status {status}: {command}")
    os.write(terminal, b"\n")
    _, status = os.waitpid(child, 0)
    if status != 0:
        problems.append(f"the demo ended with status {status}")
    if os.path.exists(environment):
        problems.append(f"{environment} is left")
    sys.exit("\n".join(problems) if problems else 0)


if __name__ == "__main__":
    main()
