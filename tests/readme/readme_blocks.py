#!/usr/bin/env python3
"""Runs every ```sh block of README.md, in order, as a reader would paste them
into one terminal, against the simulated adapter, and fails when one does not
do what the README says.

The blocks run in a mirror of the checkout whose `build` is the build folder
under test and whose scripts skip their install and build steps (the folder is
already built). The ports 5988, 5989 and 5990 become free ones (in the commands
and, for the scripts, through TOVRA_PORT, TOVRA_HTTPS_PORT and TOVRA_SERVER);
paths under /tmp/ go to a folder of the run. `scripts/test.sh` is not run (it
is what runs this).

Rules for a command (continuation lines joined):
  - a server (`scripts/serve.sh`, `tovra-cim listen`), which a reader starts in
    a terminal of its own, runs in the background until its block ends; the
    next command waits until its ports answer;
  - lines right after a command of the form `#   text` are expected output:
    each text must appear in what the command printed, or, waited for up to
    30 s, in what a server of the block printed; then any exit status is
    accepted (a refusal shown in the README exits 1);
  - without them it must exit 0.
"""
import os
import re
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time

SKIPPED_COMMANDS = ("scripts/test.sh",)
BUILD_STEPS = re.compile(r"^\s*(scripts/install-deps\.sh|cmake (-S|--build))\b")
SERVER = re.compile(r"^\s*(scripts/serve\.sh|\S*tovra-cim listen)\b")
PORTS = ("5988", "5989", "5990")
COMMAND_SECONDS = 120
EXPECT_SECONDS = 30


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
    """(line number, command, expected texts) for each command of a block.
    An expected line may end in a note set off by two spaces: "(...)"."""
    out = []
    pending = ""
    start = 0
    for number, line in block:
        expected = re.match(r"^#   (.*?)(\s{2,}\(.*\))?$", line)
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


def answers(port):
    try:
        socket.create_connection(("127.0.0.1", int(port)), timeout=0.2).close()
        return True
    except OSError:
        return False


def wait_until(ready, seconds):
    deadline = time.monotonic() + seconds
    while not ready():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.05)
    return True


def read(path):
    with open(path, errors="replace") as f:
        return f.read()


class Terminal:
    """One bash session; each command's output goes to a file of its own."""

    def __init__(self, where, env):
        self.where = where
        self.count = 0
        self.shell = subprocess.Popen(["bash", "--norc", "--noprofile"], cwd=where, env=env,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, start_new_session=True)

    def run(self, command, background=False):
        """(exit status or None when it did not end, output file, pid of a background command)."""
        self.count += 1
        out = os.path.join(self.where, f".out{self.count}")
        # Braces keep assignments and exports in the one shell.
        tail = "& } " if background else "\n} "
        report = 'echo "::rc 0 $!"' if background else 'echo "::rc $? 0"'
        self.shell.stdin.write(f"{{ {command} {tail}>{out} 2>&1 </dev/null; {report}\n")
        self.shell.stdin.flush()
        ready, _, _ = select.select([self.shell.stdout], [], [], COMMAND_SECONDS)
        if not ready:
            return None, out, 0
        fields = self.shell.stdout.readline().split()
        if len(fields) != 3:
            return -1, out, 0
        return int(fields[1]), out, int(fields[2])

    def close(self):
        self.shell.stdin.close()
        try:
            os.killpg(self.shell.pid, signal.SIGTERM)
        except ProcessLookupError:
            pass
        self.shell.wait(timeout=30)


def server_ports(command, ports):
    if "serve.sh" in command:
        return [ports["5988"], ports["5989"]]
    return [p for p in ports.values() if p in command]


def main():
    source, build = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    readme = read(os.path.join(source, "README.md"))
    ports = {p: free_port() for p in PORTS}
    failures = []
    run = 0
    with tempfile.TemporaryDirectory(prefix="tovra-readme-") as where:
        mirror(source, build, where)
        os.mkdir(os.path.join(where, "tmp"))
        env = {k: v for k, v in os.environ.items() if not k.startswith("TOVRA_") and k != "LD_PRELOAD"}
        env.update(HOME=where, TOVRA_CACHE_EPOCHS=os.path.join(where, "epochs"), TOVRA_PORT=ports["5988"],
                   TOVRA_HTTPS_PORT=ports["5989"], TOVRA_SERVER=f"http://127.0.0.1:{ports['5988']}")
        terminal = Terminal(where, env)
        try:
            for block in blocks(readme):
                servers = []  # (pid, output file)
                for number, command, expected in commands(block):
                    if any(command.strip().startswith(s) for s in SKIPPED_COMMANDS):
                        continue
                    for old, new in ports.items():
                        command = command.replace(old, new)
                    command = command.replace("/tmp/", os.path.join(where, "tmp") + "/")
                    run += 1
                    server = SERVER.match(command) is not None
                    if server:
                        command = re.sub(r"\s+#.*$", "", command)  # the comment would hide the `&`
                    rc, out, pid = terminal.run(command, background=server)
                    if rc is None:
                        failures.append(f"README.md:{number}: still running after {COMMAND_SECONDS} s: {command}")
                        return report(run, failures)
                    if server:
                        servers.append((pid, out))
                        wanted = server_ports(command, ports)
                        if not wait_until(lambda: all(answers(p) for p in wanted), EXPECT_SECONDS):
                            failures.append(f"README.md:{number}: the server did not start: {command}\n"
                                            + indent(read(out)))
                        continue

                    def seen(text):
                        return text in read(out) or any(text in read(o) for _, o in servers)

                    missing = [t for t in expected
                               if not (seen(t) or (servers and wait_until(lambda: seen(t), EXPECT_SECONDS)))]
                    if missing or (not expected and rc != 0):
                        failures.append(f"README.md:{number}: {command}\n  exit {rc}; missing {missing}\n"
                                        + indent(read(out)))
                for pid, _ in servers:
                    terminal.run(f"kill {pid}; wait {pid}")
        finally:
            terminal.close()
    return report(run, failures)


def indent(output):
    return "".join("  | " + line + "\n" for line in output.splitlines()[-15:])


def report(run, failures):
    print(f"{run} commands of README.md run, {len(failures)} failed")
    for f in failures:
        print(f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
