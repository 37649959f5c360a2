#!/usr/bin/env python3
"""Checks the launch agent Keyferry.app writes, with Python's property list reader.

    check-launch-agent.py <keyferry_write_launch_agent>

In a temporary home folder the writer registers a bundle executable (a path with blanks and XML-reserved
characters); the file must be home/Library/LaunchAgents/com.quillix.companion.plist and hold exactly the
four entries that start that executable with --background at login. Exits 0 on success, 1 otherwise.
"""
import os
import plistlib
import subprocess
import sys
import tempfile

EXECUTABLE = "/Applications/Keyferry & Co <beta>.app/Contents/MacOS/Keyferry"


def main(writer):
    with tempfile.TemporaryDirectory(prefix="keyferry-launch-agent-") as home:
        expected_file = os.path.join(home, "Library", "LaunchAgents", "com.quillix.companion.plist")
        written = subprocess.run([writer, home, EXECUTABLE], capture_output=True, text=True, timeout=30)
        if written.returncode != 0:
            print(f"the writer failed: {written.stderr.strip()}")
            return 1
        if written.stdout.strip() != expected_file or not os.path.isfile(expected_file):
            print(f"the launch agent is at {written.stdout.strip()!r}, not {expected_file!r}")
            return 1
        with open(expected_file, "rb") as file:
            content = plistlib.load(file, fmt=plistlib.FMT_XML)
        expected = {
            "Label": "com.quillix.companion",
            "ProgramArguments": [EXECUTABLE, "--background"],
            "RunAtLoad": True,
            "ProcessType": "Interactive",
        }
        if content != expected:
            print(f"the launch agent holds {content!r}, not {expected!r}")
            return 1
        print(f"{expected_file} starts {EXECUTABLE} --background at login")
        return 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        print(__doc__.strip(), file=sys.stderr)
        sys.exit(2)
    sys.exit(main(sys.argv[1]))
