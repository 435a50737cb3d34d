#!/usr/bin/env python3
"""Drives "tvxhost console" through a pseudo terminal as a person does.

    console_test.py <tvxhost>

Two sessions in one preferences folder: the first sets a trace volume and a
debug setting, lists them, the special folders and the commands, and leaves;
the second finds the first one's lines in its history (Up arrow) and
completes a command name with Tab. Then "tvxhost -c" without a terminal.
"""
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

HOST = os.path.abspath(sys.argv[1])
PROMPT = b"tvx> "
failures = []


def check(name, condition, text):
    if not condition:
        failures.append(f"{name}\n    {text[-1500:]!r}")


class Session:
    """tvxhost console on a pty; `until` reads until a pattern or a timeout."""

    def __init__(self, env):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(HOST, [HOST, "console"], env)
        self.seen = b""

    def until(self, pattern, timeout=20):
        end = time.monotonic() + timeout
        start = len(self.seen)
        while time.monotonic() < end:
            if re.search(pattern, self.seen[start:]):
                return self.seen[start:]
            ready, _, _ = select.select([self.fd], [], [], 0.2)
            if ready:
                try:
                    data = os.read(self.fd, 65536)
                except OSError:
                    break
                if not data:
                    break
                self.seen += data
        return self.seen[start:]

    def send(self, text):
        os.write(self.fd, text)

    def command(self, line):
        """Output of one line up to the next prompt, without the echo."""
        self.send(line.encode() + b"\r")
        out = self.until(re.escape(PROMPT) + b"$")
        text = out.decode("utf-8", "replace").replace("\r", "")
        # The echo of the line: the terminal's own may come before libedit's.
        text = text.split("\n", 1)[-1]
        while line and text.startswith(line + "\n"):
            text = text[len(line) + 1:]
        return text.rsplit(PROMPT.decode(), 1)[0]

    def finish(self):
        end = time.monotonic() + 20
        while time.monotonic() < end:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                os.close(self.fd)
                return os.waitstatus_to_exitcode(status)
            self.until(b"$^", timeout=0.2)
        os.kill(self.pid, 9)
        os.waitpid(self.pid, 0)
        return None


# The debug settings the trace handler chain reads at start-up, as listed
# with their defaults.
SWITCHES = ("AddTimestampToLogFileNames = false\nAddUTCTimestampToTraces = false\n"
            "CreateLogFilesThatDoNotExist = false\nTraceAsync = false\n")

# Each line of the first session and the whole text it must print; a
# pattern in the form re:<regular expression>.
FIRST = [
    ("trace.set Foo 9", "trace category Foo set to volume 9\n"),
    ("trace.get Foo", "trace volume for category Foo is 9\n"),
    ("debug.set a = 1", "a = 1\n"),
    # The trace handler switches are listed once read at start-up.
    ("debug.list", "Listing contents of debug database!\n" + SWITCHES + "a = 1\n"),
    ("filesupport.listdirs", r"re:commondirs Functions: \nMain Executable File = \t\S*tvxhost\n"
     r"(.*\n){10}Dir Methods: \n(.*\n){3}Pref Dir = \t\t{cfg}/tvxcore/tvxhost/1\n"
     r"Global Pref Dir = \t\t{cfg}\n(.*\n){2}"),
    ("help", r"re:Currently installed commands\.\n(.*\n)*exit - .*\n(.*\n)*help - .*\n(.*\n)*"
     r"trace\.set <category> <volume> - Sets the volume of this trace category\.\n(.*\n)*"),
    ("  nosuch a", "tvxhost: unknown console command 'nosuch'; 'help' lists the commands\n"),
]


def expected(pattern, cfg, text):
    if pattern.startswith("re:"):
        return re.fullmatch(pattern[3:].replace("{cfg}", re.escape(cfg)), text) is not None
    return text == pattern


def main():
    work = tempfile.mkdtemp(prefix="tvxhost-console-")
    cfg = os.path.join(work, "config")
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": work,
           "XDG_CONFIG_HOME": cfg, "TERM": "vt100", "LC_ALL": "C.UTF-8"}
    env.update({k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")})
    try:
        first = Session(env)
        banner = first.until(re.escape(PROMPT) + b"$").decode("utf-8", "replace")
        check("banner", "'help' lists the commands" in banner, banner)
        for line, want in FIRST:
            got = first.command(line)
            check(f"console: {line}", expected(want, cfg, got), got)
        first.send(b"exit\r")
        status = first.finish()
        check("exit ends the console with 0", status == 0, str(status))
        history = os.path.join(cfg, "tvxcore", "tvxhost", "1", "Console History.txt")
        kept = open(history, encoding="utf-8", errors="replace").read().replace("\\040", " ") \
            if os.path.exists(history) else ""
        check("history file", "debug.set a = 1" in kept and "trace.get Foo" in kept, kept)

        second = Session(env)
        second.until(re.escape(PROMPT) + b"$")
        # Newest first: exit, "  nosuch a", help, filesupport.listdirs, debug.list.
        for _ in range(5):
            second.send(b"\x1b[A")
            second.until(b"$^", timeout=0.3)
        out = second.command("")
        check("history kept across runs: Up finds debug.list",
              out.endswith("Listing contents of debug database!\n" + SWITCHES + "a = 1\n"), out)
        second.send(b"\x15")  # Ctrl-U: an empty line
        second.send(b"trace.get.m\t")
        second.until(rb"trace\.get\.master $", timeout=5)
        out = second.command("")
        check("Tab completes trace.get.m", out == "Master trace volume is 10\n", out)
        second.send(b"trace.se\t\t")
        listed = second.until(rb"trace\.set\.master\r?\n", timeout=5).decode("utf-8", "replace")
        check("Tab lists the choices", "trace.set\r\n" in listed.replace("\r\r", "\r") or
              "trace.set\n" in listed, listed)
        second.send(b"\x15\x04")  # an empty line, then Ctrl-D
        status = second.finish()
        check("Ctrl-D ends the console with 0", status == 0, str(status))

        # Without a terminal: plain lines, and -c for one line.
        run = lambda args, data=b"": subprocess.run([HOST] + args, env=env, input=data,
                                                    capture_output=True, timeout=60)
        done = run(["console"], b"trace.get Foo\nexit\ntrace.get Foo\n")
        check("plain lines without a terminal", done.returncode == 0 and
              done.stdout == b"trace volume for category Foo is 9\n" and done.stderr == b"",
              repr(done))
        for args, status, out, err in (
                (["-c", "trace.get Foo"], 0, b"trace volume for category Foo is 9\n", b""),
                (["-c", "  debug.get a"], 0, b"a = 1\n", b""),
                (["-c", "nosuch"], 2, b"", b"tvxhost: unknown console command 'nosuch'; "
                                           b"'help' lists the commands\n"),
                (["-c", " \t"], 2, b"", b"tvxhost: -c needs a console command line\n"),
                (["-c"], 2, b"", b"tvxhost: -c needs a console command line\n"),
                (["-c", "trace.get", "Foo"], 2, b"", b"quote it"),
                (["-c", b"trace.get \xff"], 2, b"", b"not valid UTF-8"),
                (["--verbose", "-c", "debug.get a"], 0, b"a = 1\n", b"start-up 1/6: error manager"
                 b" installed\ntvxhost: start-up 2/6: locale and localizer")):
            done = run(args)
            check(f"tvxhost {args}", done.returncode == status and done.stdout == out and
                  (out == b"" or err in done.stderr) and err in done.stderr and
                  done.stderr.count(b"tvxhost: ") == (1 if status else done.stderr.count(b"tvxhost: ")),
                  repr(done))
        verbose = run(["--verbose", "-c", "debug.get a"]).stderr.decode()
        steps = re.findall(r"tvxhost: (start-up|shutdown) (\d)/6: ([a-zA-Z ]+)", verbose)
        check("--verbose: start-up and shutdown in order",
              [(k, n) for k, n, _ in steps] == [("start-up", str(i)) for i in range(1, 7)] +
              [("shutdown", str(i)) for i in range(1, 7)] and
              [w.strip() for _, _, w in steps][:6] == [
                  "error manager installed", "locale and localizer installed",
                  "client name tvxhost", "trace handler installed", "main thread",
                  "XML parser factory installed"], verbose)
        check("--verbose: the main thread is registered and runs the command from its loop",
              re.search(r"start-up 5/6: main thread \d+ registered \(commands run from its event loop\)",
                        verbose) is not None, verbose)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for failure in failures:
        print("FAIL", failure)
    print(f"{len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
