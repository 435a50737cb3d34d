#!/usr/bin/env python3
"""Drives tvxhost as a person does and checks what they see.

    cli_test.py <tvxhost> <source dir>

Runs every example of the README and of "tvxhost help", the tables of bad
usage and of file failures below, and a sweep of odd argument vectors over
every subcommand. File failures that need a process without root's power to
ignore permissions run as the user "nobody" when the test runs as root.
"""
import json
import os
import re
import shlex
import select
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import zlib

HOST = os.path.abspath(sys.argv[1])
SOURCE = sys.argv[2]
NOBODY = 65534
failures = []


def run(args, cwd, unprivileged=False, timeout=120, stdin=b"", raw=False):
    """(status, stdout, stderr) of tvxhost with `args` (str or bytes each) and
    `stdin` as standard input; stdout as bytes when `raw`."""
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C", "HOME": cwd}
    env.update({k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")})
    kwargs = {}
    if unprivileged and os.geteuid() == 0:
        kwargs = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
    done = subprocess.run([HOST] + list(args), cwd=cwd, env=env, capture_output=True,
                          input=stdin, timeout=timeout, **kwargs)
    return done.returncode, done.stdout if raw else done.stdout.decode("utf-8", "replace"), \
        done.stderr.decode("utf-8", "replace")


def check(name, condition, result):
    if not condition:
        status, out, err = result
        failures.append(f"{name}\n    status {status}\n    stdout {out[:600]!r}\n"
                        f"    stderr {err[:600]!r}")


def check_outcome(name, result, outcome):
    """An example's documented outcome: "prints X", "fails ...", or prose."""
    status, out, err = result
    check(name + ": no text key shown", "$$$/" not in out + err, result)
    if outcome.startswith("prints "):
        check(name, status == 0 and out.rstrip("\n") == outcome[len("prints "):], result)
    elif outcome.startswith("fails"):
        check(name, status == 1 and err.count("tvxhost: ") == 1, result)
    else:
        check(name, status == 0, result)


def examples_from_help(work):
    """(command words, outcome) of every example in "tvxhost help [<command>]"."""
    status, text, _ = run(["help"], work)
    commands = re.findall(r"^  (\w+) ", text.split("Commands:")[1].split("\n\n")[0], re.M)
    examples = []
    for page in [text] + [run(["help", c], work)[1] for c in commands if c != "help"]:
        lines = page.split("Examples:\n")[1].split("\n\n")[0].splitlines() \
            if "Examples:" in page else []
        for command, outcome in zip(lines[0::2], lines[1::2]):
            examples.append((shlex.split(command)[1:], outcome.strip()))
    return commands, examples


def examples_from_readme():
    text = open(os.path.join(SOURCE, "README.md"), encoding="utf-8").read()
    block = text.split("## What tvxhost shows")[1].split("```sh")[1].split("```")[0]
    examples = []
    for line in block.strip().splitlines():
        command, _, outcome = line.partition("#")
        words = shlex.split(command)
        assert words[:2] == ["bash", "scripts/host.sh"], line
        examples.append((words[2:], outcome.strip() or "stores"))
    return examples


def subcommands(page):
    """The subcommands of a command's help; [""] for a command without any."""
    if "Subcommands:\n" not in page:
        return [""]
    return re.findall(r"^  (\w+) ", page.split("Subcommands:\n")[1].split("\n\n")[0], re.M)


def in_scratch(words, work):
    return [w.replace("/tmp/", work + "/") for w in words]


def test_examples(work):
    commands, examples = examples_from_help(work)
    for words, outcome in examples + examples_from_readme():
        check_outcome("example tvxhost " + " ".join(words),
                      run(in_scratch(words, work), work), outcome)
    return commands


def test_help_and_version(work, commands):
    groups = [c for c in commands if c != "help"]
    check("the commands are listed",
          groups == ["alias", "alloc", "console", "copy", "crc", "errors", "fs", "json", "plist",
                     "rle", "text", "threads", "watch"],
          (0, " ".join(commands), ""))
    version = run(["--version"], work)
    check("--version", version[0] == 0 and re.fullmatch(r"tvxhost \S+ \(tvxcore \S+\)\n",
                                                        version[1]), version)
    check("-V is --version", run(["-V"], work) == version, version)
    help_text = run(["help"], work)
    for words in (["--help"], ["-h"]):
        check(" ".join(words) + " is help", run(words, work) == help_text, help_text)
    check("help documents the statuses",
          all(s in help_text[1] for s in ("Exit status:", "  0  ", "  1  ", "  2  ")), help_text)
    man = open(os.path.join(SOURCE, "tools/tvxhost/tvxhost.1"), encoding="utf-8").read()
    completion = open(os.path.join(SOURCE, "tools/tvxhost/tvxhost.bash"), encoding="utf-8").read()
    for group in groups:
        page = run(["help", group], work)
        check(f"help {group}", page[0] == 0 and page[1].startswith("usage: tvxhost " + group),
              page)
        check(f"{group} --help is help {group}", run([group, "--help"], work) == page, page)
        subs = subcommands(page[1])
        check(f"{group} sub --help", run([group] + subs[:1] + ["--help"], work) == page, page)
        for sub in subs:
            check(f"man page has {group} {sub}",
                  f"{group} {sub}".strip() in man.replace('"', ""), (0, "", ""))
            check(f"completion has {group} {sub}", re.search(rf"\b{sub or group}\b", completion),
                  (0, "", ""))


# Bad usage: the arguments, and a piece of the one message expected.
USAGE = [
    (["nosuch"], "unknown command 'nosuch'"),
    (["fs", "nosuch"], "unknown subcommand 'nosuch'"),
    (["fs"], "subcommand is missing"),
    (["help", "nosuch"], "unknown command 'nosuch'"),
    (["--lang"], "--lang needs a language code"),
    (["--lang", ""], "--lang needs a language code"),
    (["--lang", "../../etc/x", "text", "upper", "a"], "--lang needs a language code"),
    (["--nosuch"], "unknown option '--nosuch'"),
    (["alloc", "size", "abc"], "<bytes> must be a whole number from 0 to"),
    (["alloc", "size", "-1"], "<bytes> must be a whole number from 0 to"),
    (["alloc", "size", "1e9"], "<bytes> must be a whole number from 0 to"),
    (["alloc", "size", "18446744073709551616"], "<bytes> must be a whole number from 0 to"),
    (["alloc", "stress", "0"], "<threads> must be a whole number from 1 to 256"),
    (["alloc", "stress", "4", "1", "9"], "unexpected argument '9'"),
    (["threads", "bench", "999"], "<posts> must be a whole number from 1000 to 100000000"),
    (["threads", "bench", "1000", "2"], "unexpected argument '2'"),
    (["plist", "set", "s.plist", "x", "u32", "-1"], "from 0 to 4294967295, not '-1'"),
    (["plist", "set", "s.plist", "x", "i32", "2147483648"], "from -2147483648 to 2147483647"),
    (["plist", "set", "s.plist", "x", "u16[]", "1,70000"], "item 2 of <value>"),
    (["plist", "set", "s.plist", "x", "float", "1e39"], "from -3.4e38 to 3.4e38"),
    (["plist", "set", "s.plist", "x", "double", "nan"], "decimal number"),
    (["plist", "set", "s.plist", "x", "bool", "yes"], "true or false"),
    (["plist", "set", "s.plist", "x", "int", "1"], "unknown <type> 'int'"),
    (["plist", "set", "s.plist", "a//b", "i32", "1"], "has an empty part"),
    (["plist", "set", "s.plist", "", "i32", "1"], "<key/path> is empty"),
    (["plist", "set", "s.plist", "x", "string", "a\x01b"], "can't carry"),
    (["plist", "set", "s.plist", "x", "ustring", b"\xed\xa0\x80"], "not valid UTF-8"),
    (["plist", "set", "s.plist", "x", "string", b"a\xffb"], "not valid UTF-8 text (byte 2 of 3)"),
    (["plist", "set", "s.plist", "x", "i32"], "missing <value>"),
    (["text", "number", "1234.5", "--digits", "400"], "--digits must be a whole number from 0 to"),
    (["text", "number", "1234.5", "--digits"], "--digits needs a value"),
    (["text", "number", "1e999"], "<value> must be a decimal number"),
    (["text", "number", "abc"], "<value> must be a decimal number"),
    (["text", "upper", b"a\xc3"], "<text> is not valid UTF-8"),
    (["text", "upper", "-x"], "unknown option '-x'"),
    (["text", "normalize", "nfx", "a"], "<form> must be nfc, nfd, nfkc or nfkd"),
    (["errors", "substitute", "^1", "i:12x"], "<v1> must be a whole number"),
    (["fs", "copy", "a.txt", ""], "<to> is empty"),
    (["fs", "copy", "a.txt"], "missing <to>"),
    (["copy", "a.txt"], "missing <to>"),
    (["copy", "a.txt", ""], "<to> is empty"),
    (["copy", "-p", "a.txt", "b.txt"], "unknown option '-p'"),
    (["fs", "ls", "-r", "-r", "."], "-r is given twice"),
    (["rle", "x"], "unexpected argument 'x'"),
    (["rle", "-x"], "unknown option '-x'"),
    (["rle", "-d", "--decode"], "-d is given twice"),
    (["rle", "--decode=yes"], "-d takes no value"),
    (["crc", ""], "<file> is empty"),
    (["crc", "--x"], "unknown option '--x'"),
    (["json", "get"], "missing <path>"),
    (["json", "get", "", "call.json"], "<path> is empty"),
    (["json", "get", "params//name", "call.json"], "has an empty part"),
    (["json", "get", b"a\xffb", "call.json"], "<path> is not valid UTF-8"),
    (["json", "get", "--nosuch", "a", "call.json"], "unknown option '--nosuch'"),
    (["json", "pretty", "call.json", "x"], "unexpected argument 'x'"),
    (["json", "validate", ""], "<file> is empty"),
    (["alias", "make"], "missing <target>"),
    (["alias", "make", ""], "<target> is empty"),
    (["alias", "make", "a.txt", "--base"], "--base needs a value"),
    (["alias", "make", "a.txt", "--base", ""], "--base is empty"),
    (["alias", "resolve"], "missing <record>"),
    (["alias", "resolve", "r.json", "--no-mount=1"], "--no-mount takes no value"),
]


def test_usage(work):
    for args, message in USAGE:
        before = snapshot(work)
        result = run(args, work)
        name = "usage " + repr(args)
        check(name, result[0] == 2 and message in result[2] and result[1] == "", result)
        check(name + ": one message", result[2].count("tvxhost: ") == 1, result)
        check(name + ": nothing changed", snapshot(work) == before, result)


def make_tree(work):
    """Files and folders that a person may or may not read, in `work`."""
    os.chmod(work, 0o755)
    for name, text in (("a.txt", "hello\n"), ("unreadable.txt", "secret\n"),
                       ("locked/inside.txt", "x\n"), ("bad.plist", "<prop.map>\n<x>\n</y>\n"),
                       ("unreadable.plist", "<?xml version='1.0'?><prop.map version='4'>"
                                            "<prop.list/></prop.map>\n"),
                       ("call.json", '{"method":"open","params":[{"name":"a.txt","mode":"r"}]}'),
                       ("bad.json", '{"a": [1,\n  2 3]}\n'), ("unreadable.json", "[]")):
        os.makedirs(os.path.dirname(os.path.join(work, name)) or work, exist_ok=True)
        with open(os.path.join(work, name), "w", encoding="utf-8") as f:
            f.write(text)
    for name, mode in (("out", 0o777), ("readonly", 0o555), ("unreadable.txt", 0),
                       ("unreadable.plist", 0), ("unreadable.json", 0), ("locked", 0)):
        if mode:  # the two folders not made above
            os.makedirs(os.path.join(work, name), exist_ok=True)
        os.chmod(os.path.join(work, name), mode)


# File failures: arguments, whether to run without root's power, the status,
# pieces the one message must hold and pieces it must not. {w} is the scratch
# folder.
FILES = [
    (["fs", "copy", "a.txt", "/nonexistent/dir/x"], False, 1,
     ["Could not create the file '/nonexistent/dir/x'. The path is not valid."], []),
    (["--lang", "de", "fs", "copy", "a.txt", "/nonexistent/dir/x"], False, 1,
     ["Die Datei „/nonexistent/dir/x“ konnte nicht erstellt werden. Der Pfad ist ungültig."], []),
    (["fs", "copy", "missing.txt", "out/x"], False, 1,
     ["The file 'missing.txt' could not be found."], []),
    (["fs", "copy", "a.txt", "out/a.txt"], False, 0, [], []),
    (["fs", "copy", "a.txt", "out"], False, 1, ["'out/a.txt' exists already", "--force"], []),
    (["fs", "copy", "--force", "a.txt", "out/a.txt"], False, 0, [], []),
    (["fs", "copy", "--force", "a.txt", "./a.txt"], False, 1, ["are the same file"], []),
    (["fs", "copy", "locked", "out/x"], False, 1, ["'locked' is a directory"], []),
    (["fs", "info", "locked/inside.txt"], True, 1,
     ["'locked/inside.txt'", "Access to the directory 'locked' was denied"], ["nothing at"]),
    (["fs", "info", "a.txt/x"], False, 1, ["'a.txt' is not a directory"], []),
    (["fs", "info", "nothing/here"], False, 1, ["The file 'nothing/here' could not be found."],
     []),
    (["fs", "ls", "locked"], True, 1,
     ["Could not read the directory 'locked'. Access was denied."], ["0 files"]),
    (["fs", "ls", "-r", "locked"], True, 1, ["Could not read the directory 'locked'."], []),
    (["fs", "ls", "a.txt"], False, 1, ["'a.txt' is a file, not a directory."], []),
    (["plist", "validate", "bad.plist"], False, 1,
     ["\"bad.plist\": line 3, column 3: mismatched tag"], []),
    (["plist", "show", "missing.plist"], False, 1,
     ["The file 'missing.plist' could not be found."], []),
    (["plist", "show", "locked"], False, 1, ["'locked' is a directory, not a file."], []),
    (["plist", "set", "bad.plist", "a", "i32", "1"], False, 1, ["mismatched tag"], []),
    (["plist", "show", "unreadable.plist"], True, 1,
     ["Could not read properties list from file \"unreadable.plist\": Permission denied."],
     ["parsing"]),
    (["plist", "validate", "unreadable.plist"], True, 1, ["\"unreadable.plist\": Permission"],
     ["parsing"]),
    # The file that could not be read, the file the user named (never a
    # temporary one).
    (["fs", "copy", "unreadable.txt", "out/y"], True, 1, ["'unreadable.txt'"], ["out/y"]),
    (["plist", "set", "/nonexistent/dir/s.plist", "a", "i32", "1"], False, 1,
     ["'/nonexistent/dir/s.plist'"], []),
    (["plist", "set", "readonly/s.plist", "a", "i32", "1"], True, 1, ["'readonly/s.plist'"], []),
    (["crc", "missing.bin"], False, 1, ["The file 'missing.bin' could not be found."], []),
    (["copy", "missing.txt", "out/x"], False, 1, ["The file 'missing.txt' could not be found."],
     []),
    (["copy", "a.txt", "nowhere/x"], False, 1,
     ["Could not create the file 'nowhere/x'. The path is not valid."], []),
    (["copy", "a.txt", "./a.txt"], False, 1, ["are the same file"], []),
    (["copy", "locked", "out/x"], False, 1, ["'locked' is a directory"], []),
    (["copy", "a.txt", "out"], False, 1, ["'out' is a directory: give the path of the file"], []),
    (["copy", "a.txt", "readonly/x"], True, 1,
     ["Could not create the file 'readonly/x'. Access was denied."], []),
    (["copy", "unreadable.txt", "out/y"], True, 1, ["'unreadable.txt'"], ["out/y"]),
    (["crc", "locked"], False, 1, ["'locked' is a directory, not a file."], []),
    (["crc", "a.txt", "locked/inside.txt"], True, 1,
     ["'locked/inside.txt'", "Access to the directory 'locked' was denied"], []),
    (["crc", "unreadable.txt"], True, 1, ["could not read the file 'unreadable.txt'"], []),
    (["json", "validate", "bad.json"], False, 1,
     ["'bad.json' is not valid JSON: ParseArray unexpected char at line 2, column 5 (byte 15)"],
     []),
    (["json", "pretty", "missing.json"], False, 1,
     ["The file 'missing.json' could not be found."], []),
    (["json", "get", "a", "locked"], False, 1, ["'locked' is a directory, not a file."], []),
    (["json", "get", "params/1", "call.json"], False, 1, ["no value at 'params/1'"], []),
    (["json", "get", "params/0/name/x", "call.json"], False, 1,
     ["no value at 'params/0/name/x'"], []),
    (["json", "validate", "unreadable.json"], True, 1,
     ["could not read 'unreadable.json': Permission denied"], []),
    (["alias", "make", "missing.txt"], False, 1, ["missing.txt' could not be found."], []),
    (["alias", "resolve", "missing.json"], False, 1,
     ["The file 'missing.json' could not be found."], []),
    (["alias", "resolve", "bad.json"], False, 1,
     ["'bad.json' is not a usable alias record: Alias: Magic Error"], []),
    (["alias", "resolve", "call.json"], False, 1,
     ["'call.json' is not a usable alias record: Alias: Magic Error"], []),
    (["alias", "resolve", "locked"], False, 1, ["'locked' is a directory, not a file."], []),
    (["alias", "resolve", "unreadable.json"], True, 1,
     ["could not read 'unreadable.json': Permission denied"], []),
]


def test_files(work, rows):
    for args, unprivileged, status, wanted, unwanted in rows:
        before = snapshot(work)
        result = run(args, work, unprivileged)
        name = "files " + " ".join(args)
        check(name, result[0] == status and all(w in result[2] for w in wanted) and
              not any(u in result[2] for u in unwanted), result)
        check(name + ": one message", result[2].count("tvxhost:") == (status != 0), result)
        if status != 0:
            check(name + ": nothing changed", snapshot(work) == before, result)


def test_plist(work):
    """Values keep their kind unless --force, read back exactly, show shortest."""
    plist = os.path.join(work, "p.plist")
    steps = [
        (["set", plist, "window/width", "i32", "800"], 0, ""),
        (["set", plist, "window/scale", "float", "0.1"], 0, ""),
        (["set", plist, "ratio", "double", "0.1"], 0, ""),
        (["set", plist, "list", "u16[]", "1,2,65535"], 0, ""),
        (["set", plist, "text", "ustring", "tab\there\nnew line\rreturn"], 0, ""),
        (["set", plist, "window", "i32", "5"], 1, "'window' holds a list"),
        (["set", plist, "window/width", "u32", "5"], 1, "holds a value of type i32"),
        (["set", plist, "window/width/deeper", "i32", "5"], 1, "'window/width' holds a value"),
        (["get", plist, "window/width"], 0, "800"),
        (["get", plist, "window/scale"], 0, "0.1"),
        (["get", plist, "list"], 0, "[1, 2, 65535]"),
        (["get", plist, "text"], 0, '"tab\\u0009here\\u000anew line\\u000dreturn"'),
        (["get", plist, "nothing"], 1, "no value at 'nothing'"),
        (["validate", plist], 0, "valid: version 4, 4 top-level keys"),
        (["show", plist], 0, "  scale (float) = 0.1\n  width (i32) = 800\n"),
        (["show", plist], 0, "ratio (double) = 0.1\n"),
        (["set", "--force", plist, "window", "i32", "5"], 0, ""),
        (["get", plist, "window"], 0, "5"),
    ]
    for args, status, text in steps:
        result = run(["plist"] + args, work)
        check("plist " + " ".join(args[:1] + args[2:]), result[0] == status and text in (result[1] if status == 0 else result[2]), result)


def test_codecs(work):
    """rle and crc as filters: known codes, round trips, cut codes, CRCs as zlib gives them."""
    def hex8(data):
        return f"{zlib.crc32(data):08x}\n"

    samples = [b"", b"123456789", b"A", bytes(range(256)) * 300,
               os.urandom(200000) + b"\0" * 70000 + b"xy" * 5000]
    for data in samples:
        name = f"{len(data)} bytes"
        result = run(["crc"], work, stdin=data)
        check("crc of stdin, " + name, result[0] == 0 and result[1] == hex8(data), result)
        coded = run(["rle"], work, stdin=data, raw=True)
        back = run(["rle", "-d"], work, stdin=coded[1], raw=True)
        check("rle round trip, " + name, coded[0] == 0 and back[0] == 0 and back[1] == data and
              coded[2] == back[2] == "", back)
    for plain, coded in ((b"A", b"\x00A"), (b"AAB", b"\xffA\x00B"), (b"ABBB", b"\x00A\xfeB"),
                         (b"A" * 129, b"\x81A\x00A")):
        result = run(["rle"], work, stdin=plain, raw=True)
        check(f"rle of {plain[:8]!r}", result[0] == 0 and result[1] == coded, result)
    result = run(["rle", "--decode"], work, stdin=b"\x80\x80\x00A\x80", raw=True)
    check("rle -d skips 80 headers", result == (0, b"A", ""), result)
    for cut, decoded in ((b"\x02AB", b"AB"), (b"\x00A\xfe", b"A"), (b"\x81", b"")):
        result = run(["rle", "-d"], work, stdin=cut, raw=True)
        check(f"rle -d of the cut code {cut!r}", result[0] == 1 and result[1] == decoded and
              "cut short inside a block" in result[2] and result[2].count("tvxhost:") == 1,
              result)

    with open(os.path.join(work, "out", "check.bin"), "wb") as f:
        f.write(samples[-1])
    one = run(["crc", "out/check.bin"], work)
    check("crc of a file", one == (0, hex8(samples[-1]), ""), one)
    both = run(["crc", "out/check.bin", "a.txt"], work)
    check("crc of files, with names", both == (0, hex8(samples[-1])[:-1] + "\tout/check.bin\n" +
                                             hex8(b"hello\n")[:-1] + "\ta.txt\n", ""), both)


def test_json(work):
    """Standard input, proper escaping, hostile and deeply nested documents."""
    tricky = '{"s": "q\\"b\\\\s\\/ \\t\\n\\u0001\\u007f \\u00e9\\ud83d\\ude00", ' \
             '"n": [5.0, -0, 18446744073709551615, 1e999, 0.1], "z": null, "e": [{}, []]}'
    steps = [
        (["validate"], b"", 0, "valid: no value (the text is empty)\n"),
        (["validate", "-"], b" [1, [2, [3]]] ", 0,
         "valid: an array of 2 elements, 6 values, nested 3 deep\n"),
        (["get", "n/0"], tricky.encode(), 0, "5.0\n"),
        (["get", "n/2", "-"], tricky.encode(), 0, "18446744073709551615\n"),
        (["get", "--raw", "s"], b'{"s": "a\\tb"}', 0, "a\tb\n"),
        (["get", "-r", "e"], tricky.encode(), 0, "[\n  {},\n  []\n]\n"),
        (["get", "s"], b'{"s": "\\ud800x"}', 0, '"\\ud800x"\n'),
        (["pretty"], b"[1,", 1, "ParseArray unexpected char at line 1, column 4 (byte 4)"),
        (["pretty"], b'["\xff"]', 1, "AdvanceString: unexpected char at line 1, column 3"),
        (["pretty"], b'["a\x00b"]', 1, "AdvanceString: unexpected char"),
        (["pretty"], b'["\\x"]', 1, "AdvanceString: unexpected char"),
        (["pretty"], b'["\\u12"]', 1, "EscapeString: unexpected char"),
        (["validate"], b"[1]\x00", 1, "ParseValue unexpected char at line 1, column 4"),
        (["validate"], b"[" + b"9" * 10000 + b"]", 0, "valid: an array of 1 element"),
        (["validate"], b"[" * 1000000, 1, "ParseArray unexpected char"),
        (["validate"], b"[" * 1000000 + b"]" * 1000000, 0, "nested 1000000 deep"),
    ]
    for args, data, status, text in steps:
        result = run(["json"] + args, work, stdin=data)
        check(f"json {' '.join(args)} < {data[:30]!r}", result[0] == status and
              text in (result[1] if status == 0 else result[2]), result)
    # The pretty printer escapes what needs it: Python reads its output as
    # the same document.
    result = run(["json", "pretty"], work, stdin=tricky.encode())
    try:
        same = json.loads(result[1]) == json.loads(tricky)
    except ValueError:
        same = False
    check("json pretty output is JSON of the same document", result[0] == 0 and same, result)
    deep = b'{"a":' * 200000 + b"1" + b"}" * 200000
    result = run(["json", "pretty"], work, stdin=deep)
    check("json pretty of a document 200000 deep", result[0] == 0 and
          len(result[1]) < 100 * len(deep) and result[1].count('"a": {') == 199999, result)


def test_alias(work):
    """A record follows its tree; damaged and hostile records fail in words."""
    tree = os.path.join(work, "project")
    os.makedirs(os.path.join(tree, "media"), exist_ok=True)
    names = ["a.wav", "caf\u00e9.wav", "q\"b\\s.wav"]
    for name in names:
        open(os.path.join(tree, "media", name), "w").close()
    records = {}
    for name in names:
        result = run(["alias", "make", "project/media/" + name, "--base", "project/edit.doc"], work)
        check("alias make " + name, result[0] == 0 and result[1].count("\n") == 1, result)
        records[name] = result[1].encode()
        try:
            fields = json.loads(result[1])["SerializerWrappedObject"]
            check("alias make " + name + ": the record",
                  fields["fullpath"] == os.path.join(tree, "media", name) and
                  fields["ascendcount_base"] == 1 and fields["ascendcount_target"] == 2, result)
        except (ValueError, KeyError):
            check("alias make " + name + " prints JSON", False, result)
    plist = run(["alias", "make", "--plist", "project/media/a.wav", "-b", "project/"], work)
    check("alias make --plist", plist[0] == 0 and "ascendcount_base" in plist[1], plist)
    os.rename(tree, tree + "-moved")
    try:
        for name in names:
            result = run(["alias", "resolve", "-", "--base", "project-moved/edit.doc"], work,
                         stdin=records[name])
            check("alias resolve after the move: " + name, result[0] == 0 and
                  result[1] == os.path.join(tree + "-moved", "media", name) + "\n", result)
        result = run(["alias", "resolve", "-", "--base", "project-moved/"], work,
                     stdin=plist[1].encode())
        check("alias resolve of a property list", result[0] == 0 and
              result[1] == os.path.join(tree + "-moved", "media", "a.wav") + "\n", result)
        gone = run(["alias", "resolve", "-"], work, stdin=records["a.wav"])
        check("alias resolve without the base", gone[0] == 1 and
              "was not found: not at '" + os.path.join(tree, "media", "a.wav") in gone[2], gone)
    finally:
        os.rename(tree + "-moved", tree)
    wrapped = '{"SerializerWrappedObject":{%s}}'
    hostile = [
        (wrapped % '"fullpath":"/x/t","ascendcount_base":1,"ascendcount_target":100000',
         "Alias: Invalid ascend count '99998'."),
        (wrapped % '"fullpath":"/x/t","ascendcount_base":100000,"ascendcount_target":1',
         "was not found: not at '/x/t', nor relative to the base"),
        (wrapped % '"fullpath":"/x/../../etc/passwd"',
         "Alias: invalid file path '/x/../../etc/passwd'."),
        (wrapped % '"fullpath":"/x/t","ascendcount_base":-1', "Invalid ascend count '-1'."),
        (b'{"SerializerWrappedObject":{"fullpath":"/\xff"}}', "Alias: Magic Error"),
        ("\n", "standard input holds no alias record"),
    ]
    for text, message in hostile:
        data = text if isinstance(text, bytes) else text.encode()
        result = run(["alias", "resolve", "-", "--base", "a.txt"], work, stdin=data)
        check(f"alias resolve < {data[:60]!r}", result[0] == 1 and message in result[2] and
              result[2].count("tvxhost: ") == 1, result)


def test_deferred(work):
    result = run(["errors", "test", "--deferred"], work)
    lines = [line for line in result[2].splitlines() if "(deferred)" in line]
    check("each deferred error once", result[0] == 0 and len(lines) == 2 and
          result[2].count("tvxhost:") == 2 and "deferred errors recorded: 2" in result[1], result)
    report = run([], work)
    check("the report runs no stress", report[0] == 0 and "Small-block allocator" in report[1] and
          "threads:" not in report[1], report)


def test_watch(work):
    """A folder watched in the background: a new file is one line, Ctrl-C
    ends with 0; folders that can't be watched fail once, with the reason."""
    folder = os.path.join(work, "watched")
    os.mkdir(folder)
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C", "HOME": work}
    env.update({k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")})
    proc = subprocess.Popen([HOST, "watch", folder], cwd=work, env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)
    out = err = b""
    try:
        ready = select.select([proc.stderr], [], [], 30)[0]
        err = proc.stderr.readline() if ready else b""
        with open(os.path.join(folder, "new"), "w") as f:
            f.write("x")
        ready = select.select([proc.stdout], [], [], 30)[0]
        out = proc.stdout.readline() if ready else b""
        proc.send_signal(signal.SIGINT)
        rest_out, rest_err = proc.communicate(timeout=30)
        out, err = out + rest_out, err + rest_err
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    result = (proc.returncode, out.decode("utf-8", "replace"), err.decode("utf-8", "replace"))
    # Creating, writing and closing the file may reach the monitor in one
    # batch of notifications or in several: one line a delivery.
    check("watch: a new file is a line a delivery, Ctrl-C ends with 0",
          proc.returncode == 0 and re.fullmatch(r"(\d\d:\d\d:\d\d\.\d{3} changed: " +
                                                re.escape(folder) + "\n)+", result[1]), result)
    with open(os.path.join(work, "plain"), "w") as f:
        f.write("x")
    for target, reason in (("missing", "no such folder"), ("plain", "not a folder")):
        path = os.path.join(work, target)
        result = run(["watch", folder, path], work, timeout=60)
        check("watch " + target, result[0] == 1 and result[2].count("tvxhost: ") == 1 and
              path in result[2] and reason in result[2] and result[1] == "", result)
    result = run(["watch"], work, timeout=60)
    check("watch without a folder", result[0] == 2, result)


def test_dictionaries(work):
    result = run(["--lang", "xx", "text", "upper", "a"], work)
    check("an unknown language warns once", result[0] == 0 and result[1] == "A\n" and
          result[2].count("no dictionary for the language 'xx'") == 1, result)
    result = run(["--lang", "de_AT", "errors", "test"], work)
    check("a region falls back to its language", result[0] == 1 and
          "Dies ist ein nicht schwerwiegender Fehler" in result[2], result)


ODD = ["", "-", "--", "--x", "\xff".encode("latin-1"), "a" * 100000, "-1", "1e999", "%s%n",
       "../" * 50, "/"]


def test_odd_arguments(work, commands):
    """Any argument vector gives a message and a status: no crash, no hang."""
    sentinel = os.path.join(work, "sentinel.plist")
    for group in (c for c in commands if c != "help"):
        page = run(["help", group], work)[1]
        for sub in subcommands(page):
            if (group, sub) in (("alloc", "stress"), ("threads", "bench")):
                continue  # their defaults do real work; their arguments are in USAGE
            if (group, sub) == ("watch", ""):
                continue  # runs until interrupted; its arguments are in test_watch
            vectors = [[]] + [[o] for o in ODD] + [[o, o, o, o] for o in ODD]
            vectors.append([sentinel, "", "i32", "1"])
            for extra in vectors:
                before = snapshot(work)
                result = run([group] + ([sub] if sub else []) + extra, work, timeout=60)
                name = f"odd {group} {sub} {[str(e)[:20] for e in extra]}"
                check(name, result[0] in (0, 1, 2), result)
                if result[0] != 0:
                    check(name + ": one message", result[2].count("tvxhost: ") == 1, result)
                    check(name + ": nothing changed", snapshot(work) == before, result)


def test_copy(work):
    """tvxhost copy: a byte-equal copy, and Ctrl-C in the middle of a large one
    leaves neither the target nor a temporary file."""
    data = os.urandom(3 << 20)
    with open(os.path.join(work, "copy-from.bin"), "wb") as f:
        f.write(data)
    result = run(["copy", "copy-from.bin", "out/copy-to.bin"], work)
    with open(os.path.join(work, "out", "copy-to.bin"), "rb") as f:
        check("copy: byte-equal", result[0] == 0 and f.read() == data and
              result[2].startswith("copied 3.0 MiB in "), result)
    os.remove(os.path.join(work, "out", "copy-to.bin"))

    big = os.path.join(work, "copy-big.bin")
    with open(big, "wb") as f:
        f.truncate(1 << 30)
    before = sorted(os.listdir(os.path.join(work, "out")))
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C", "HOME": work}
    env.update({k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")})
    child = subprocess.Popen([HOST, "copy", big, os.path.join(work, "out", "big")], cwd=work,
                             env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
    # Interrupt once the temporary file is there, i.e. the copy is under way.
    for _ in range(2000):
        if any(name.startswith("big") for name in os.listdir(os.path.join(work, "out"))):
            break
        child.poll()
        if child.returncode is not None:
            break
        time.sleep(0.005)
    child.send_signal(signal.SIGINT)
    out, err = child.communicate(timeout=120)
    result = (child.returncode, out.decode(), err.decode())
    check("copy: Ctrl-C cancels", result[0] == 1 and result[2] == "tvxhost: copy cancelled\n",
          result)
    check("copy: Ctrl-C leaves nothing", sorted(os.listdir(os.path.join(work, "out"))) == before,
          result)
    os.remove(big)


def snapshot(folder):
    """Names, sizes and times of everything below `folder` that root can see."""
    seen = {}
    for root, dirs, files in os.walk(folder):
        for name in dirs + files:
            path = os.path.join(root, name)
            info = os.lstat(path)
            seen[path] = (info.st_size, info.st_mtime_ns, stat.S_IMODE(info.st_mode))
    return seen


def main():
    work = tempfile.mkdtemp(prefix="tvxhost-cli-")
    try:
        make_tree(work)
        if os.geteuid() == 0 and run(["--version"], work, unprivileged=True)[0] != 0:
            print("note: the build can't be run as nobody; permission rows are skipped")
            global FILES
            FILES = [row for row in FILES if not row[1]]
        commands = ["alias", "alloc", "console", "crc", "errors", "fs", "json", "plist", "rle",
                    "text", "threads", "watch", "help"]
        sections = [
            lambda: commands.__setitem__(slice(None), test_examples(work)),
            lambda: test_help_and_version(work, commands),
            lambda: test_usage(work),
            lambda: test_files(work, FILES),
            lambda: test_copy(work),
            lambda: test_plist(work),
            lambda: test_codecs(work),
            lambda: test_json(work),
            lambda: test_alias(work),
            lambda: test_deferred(work),
            lambda: test_dictionaries(work),
            lambda: test_watch(work),
            lambda: test_odd_arguments(work, commands),
        ]
        for section in sections:
            try:
                section()
            except Exception as error:  # a section that can't go on is one failure
                failures.append(f"{section.__code__.co_names[-1]}: {error!r}")
    finally:
        for root, dirs, _ in os.walk(work):
            for name in dirs:
                os.chmod(os.path.join(root, name), 0o755)
        shutil.rmtree(work, ignore_errors=True)
    for failure in failures:
        print("FAILED:", failure)
    print(f"{len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
