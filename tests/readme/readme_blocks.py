#!/usr/bin/env python3
"""Runs every ```sh block of README.md, in order, as a reader would paste them
into one terminal, against the simulated adapter, and fails when one does not
do what the README says.

The blocks run in a mirror of the checkout whose `build` is the build folder
under test and whose scripts skip their install and build steps (the folder is
already built). Port numbers 5988/5989 are replaced by free ones; a command
ending in `&` that starts a server is waited for until its ports answer, and
every process a block starts is stopped at the end. Paths under /tmp/ go to a
folder of the run. `scripts/test.sh` is not run (it is what runs this).

Rules for a command (continuation lines joined):
  - lines right after it of the form `#   text` are its expected output: each
    text must appear in what the command printed (stdout and stderr), and then
    any exit status is accepted (a refusal shown in the README exits 1);
  - without them it must exit 0.
"""
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SKIPPED_COMMANDS = ("scripts/test.sh",)
BUILD_STEPS = re.compile(r"^\s*(scripts/install-deps\.sh|cmake (-S|--build))\b")
SERVER_START = re.compile(r"\bscripts/serve\.sh\b.*&\s*$")
DEFAULT_PORTS = ("5988", "5989")
COMMAND_SECONDS = 120


def blocks(readme):
    """The ```sh blocks: lists of (line number, text)."""
    out, current = [], None
    for number, line in enumerate(readme.splitlines(), 1):
        if current is None and line.strip() == "```sh":
            current = []
        elif current is not None and line.startswith("```"):
            out.append(current)
            current = None
        elif current is not None:
            current.append((number, line))
    return out


def commands(block):
    """(line number, command, expected texts) for each command of a block."""
    out = []
    pending = ""
    start = 0
    for number, line in block:
        expected = re.match(r"^#   (.*?)\s*(\(.*\))?$", line)
        if expected and out and not pending:
            out[-1][2].append(expected.group(1).strip())
            continue
        if line.lstrip().startswith("#") or not line.strip():
            continue
        if not pending:
            start = number
        if line.rstrip().endswith("\\"):
            pending += line.rstrip()[:-1] + " "
            continue
        out.append((start, pending + line, []))
        pending = ""
    return out


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return str(s.getsockname()[1])


def mirror(source, build, where):
    """A checkout whose build folder is `build` and whose scripts do not build."""
    for entry in os.listdir(source):
        if entry in ("build", "scripts", ".git"):
            continue
        os.symlink(os.path.join(source, entry), os.path.join(where, entry))
    os.symlink(build, os.path.join(where, "build"))
    scripts = os.path.join(where, "scripts")
    os.mkdir(scripts)
    for name in os.listdir(os.path.join(source, "scripts")):
        with open(os.path.join(source, "scripts", name)) as f:
            text = "".join(line for line in f if not BUILD_STEPS.match(line))
        path = os.path.join(scripts, name)
        with open(path, "w") as f:
            f.write(text)
        os.chmod(path, 0o755)


def wait_for_ports(ports, seconds=30):
    deadline = time.monotonic() + seconds
    for port in ports:
        while True:
            try:
                socket.create_connection(("127.0.0.1", int(port)), timeout=0.2).close()
                break
            except OSError:
                if time.monotonic() > deadline:
                    return False
                time.sleep(0.05)
    return True


def main():
    source, build = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    with open(os.path.join(source, "README.md")) as f:
        readme = f.read()
    ports = {p: free_port() for p in DEFAULT_PORTS}
    failures = []
    with tempfile.TemporaryDirectory(prefix="tovra-readme-") as where:
        mirror(source, build, where)
        os.mkdir(os.path.join(where, "tmp"))
        env = {k: v for k, v in os.environ.items() if not k.startswith("TOVRA_") and k != "LD_PRELOAD"}
        env["TOVRA_CACHE_EPOCHS"] = os.path.join(where, "epochs")
        env["HOME"] = where
        shell = subprocess.Popen(["bash", "--norc", "--noprofile"], cwd=where, env=env, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                 start_new_session=True)
        run = 0
        try:
            steps = [step for block in blocks(readme) for step in commands(block)]
            for number, command, expected in steps:
                if any(command.strip().startswith(s) for s in SKIPPED_COMMANDS):
                    continue
                for old, new in ports.items():
                    command = command.replace(old, new)
                command = command.replace("/tmp/", os.path.join(where, "tmp") + "/")
                run += 1
                out_file = os.path.join(where, f".out{run}")
                # Braces keep assignments and exports in the one shell.
                shell.stdin.write(f"{{ {command}\n}} >{out_file} 2>&1 </dev/null; echo \"::rc $?\"\n")
                shell.stdin.flush()
                ready, _, _ = select.select([shell.stdout], [], [], COMMAND_SECONDS)
                if not ready:
                    failures.append(f"README.md:{number}: still running after {COMMAND_SECONDS} s "
                                    f"(a server needs `&`): {command}")
                    break
                status = shell.stdout.readline().strip()
                rc = int(status.split()[-1]) if status.startswith("::rc") else -1
                if SERVER_START.search(command) and not wait_for_ports(ports.values()):
                    failures.append(f"README.md:{number}: the server did not start: {command}")
                    break
                with open(out_file, errors="replace") as f:
                    output = f.read()
                missing = [t for t in expected if t not in output]
                if missing or (not expected and rc != 0):
                    failures.append(f"README.md:{number}: {command}\n  exit {rc}; missing {missing}\n"
                                    + "".join("  | " + l + "\n" for l in output.splitlines()[-15:]))
        finally:
            shell.stdin.close()
            try:
                os.killpg(shell.pid, signal.SIGTERM)
            except ProcessLookupError:
                pass
            shell.wait(timeout=30)
        print(f"{run} commands of README.md run, {len(failures)} failed")
    for f in failures:
        print(f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
