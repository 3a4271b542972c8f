#!/usr/bin/env python3
"""Runs the orlix tool on files and standard input and compares what it
writes, byte for byte, and how it exits. Usage: cli_test.py ORLIX GROUP"""
import base64
import os
import re
import subprocess
import sys
import tempfile

ORLIX = sys.argv[1]
GROUP = sys.argv[2]
ENV = dict(os.environ, LC_ALL="C.UTF-8", LANG="C.UTF-8")
ENV.pop("LC_CTYPE", None)
failures = []


def run(args, stdin=b"", env=ENV):
    p = subprocess.run([ORLIX] + args, input=stdin, capture_output=True, env=env, timeout=120)
    return p.returncode, p.stdout, p.stderr


def expect(name, args, stdin=b"", out=None, code=0, err=None, env=ENV):
    rc, so, se = run(args, stdin, env)
    problems = []
    if rc != code:
        problems.append(f"exit {rc}, expected {code}")
    if out is not None and so != out:
        problems.append(f"stdout {so!r}, expected {out!r}")
    if err is not None and not re.fullmatch(err, se.decode("utf-8", "replace")):
        problems.append(f"stderr {se!r} does not match {err!r}")
    if problems:
        failures.append(f"{name}: " + "; ".join(problems))
    return so


def group_general():
    expect("version", ["version"], out=b"ORLIX Utility Library 2.6,Build on 2019\n")
    expect("no command", [], code=2)
    expect("unknown command", ["frobnicate"], code=2, err=r"orlix frobnicate: unknown command\n(.|\n)*")
    rc, so, _ = run(["--help"])
    if rc != 0 or b"json" not in so or b"prime" not in so:
        failures.append("overview help")
    for cmd in ["json", "base64", "hex", "pem", "normalize", "casefold", "ldapprep",
                "nameprep", "idn", "time", "prime", "version"]:
        rc, so, _ = run([cmd, "--help"])
        if rc != 0 or not so.startswith(b"usage: orlix " + cmd.encode()):
            failures.append(f"{cmd} --help")


def group_json():
    doc = b'{"b":[true,null],"a":1.5,"s":"\\n\\u00e9/","n":-0.0000001}'
    expect("compact", ["json"], doc, b'{"b":[true,null],"a":1.5,"s":"\\u000A\xc3\xa9/","n":-0}')
    expect("sorted", ["json", "--sort"], doc, b'{"a":1.5,"b":[true,null],"n":-0,"s":"\\u000A\xc3\xa9/"}')
    expect("pretty", ["json", "--pretty"], b'{"a":1,"b":[true,null]}',
           b'{\n\t"a":1,\n\t"b":[true,null]\n}')
    expect("pretty crlf spaces", ["json", "--pretty", "--crlf", "--spaces", "2"], b'[1,{"x":2}]',
           b'[\r\n  \t1,\r\n  \t{\r\n  \t  \t"x":2\r\n  \t}\r\n]')
    expect("pretty empty", ["json", "--pretty", "--cr"], b"[]", b"[\r]")
    expect("invalid", ["json"], b"[1,]", b"", 1, r"orlix json: invalid JSON\n")
    expect("scalar then blank", ["json"], b"1 ", b"", 1, r"orlix json: invalid JSON\n")
    expect("bad spaces", ["json", "--spaces", "300"], b"[]", code=2)
    expect("bad option", ["json", "--frob"], b"[]", code=2, err=r"orlix json: unknown option --frob\n")
    with tempfile.NamedTemporaryFile(suffix=".json") as f:
        f.write(b' {"k": [1, 2.25, "x"]} ')
        f.flush()
        expect("file", ["json", f.name], out=b'{"k":[1,2.25,"x"]}')
    expect("missing file", ["json", "/nonexistent/x.json"], code=1,
           err=r"orlix json: /nonexistent/x.json: No such file or directory\n")


def group_base64():
    data = bytes(range(256)) * 3 + b"tail"
    std = base64.b64encode(data)
    # Every full line ends with the line ending; a last partial group does too.
    expected = b"".join(std[i:i + 64] + b"\n" for i in range(0, len(std), 64))
    expect("encode", ["base64"], data, expected)
    expect("three bytes: no final line ending", ["base64"], b"abc", b"YWJj")
    expect("one byte", ["base64", "--eol", "crlf"], b"M", b"TQ==\r\n")
    expect("no pad url", ["base64", "--url", "--no-pad", "--eol", "none"], b"\xfb\xff",
           b"-_8")
    # A line length of 5 is kept as 6 (5 + 5 mod 4): lines break once 8
    # characters, two whole groups, are out.
    expect("line rounding", ["base64", "--line", "5", "--eol", "lf"], b"abcdefghi",
           b"YWJjZGVm\nZ2hp")
    expect("decode", ["base64", "-d"], expected, data)
    expect("decode blanks", ["base64", "-d", "--ws", "all"], b"YW Jj\tZA==", b"abcd")
    expect("decode unpadded", ["base64", "-d", "--no-pad"], b"YWJjZA", b"abcd")
    expect("decode invalid", ["base64", "-d"], b"YW*j", b"", 1,
           r"orlix base64: base64 decode fail \(ORLIX_Stream_Base64, line \d+\)\n")
    expect("decode blank refused", ["base64", "-d", "--ws", "none"], b"YWJj\n", b"", 1,
           r"orlix base64: base64 decode fail \(ORLIX_Stream_Base64, line \d+\)\n")
    expect("bad eol", ["base64", "--eol", "dos"], b"", code=2)
    with tempfile.TemporaryDirectory() as d:
        path = os.path.join(d, "in.bin")
        with open(path, "wb") as f:
            f.write(b"abc")
        expect("file argument", ["base64", path], out=b"YWJj")


def group_hex_pem():
    expect("hex", ["hex"], b"\xab\x01", b"ab01")
    expect("hex upper", ["hex", "--upper"], b"\xab\x01", b"AB01")
    expect("hex decode", ["hex", "-d"], b"aB01\n", b"\xab\x01")
    expect("hex decode invalid", ["hex", "-d"], b"a b0", b"", 1,
           r"orlix hex: hex decode fail \(ORLIX_Stream_Hex, line \d+\)\n")
    expect("hex decode odd", ["hex", "-d"], b"abc", b"", 1, r"orlix hex: odd number of digits\n")
    payload = bytes(range(100))
    body = base64.b64encode(payload)
    lines = b"".join(body[i:i + 64] + b"\r\n" for i in range(0, len(body), 64))
    pem = b"-----BEGIN THING-----\r\n" + lines + b"-----END THING-----\r\n"
    expect("pem encode", ["pem", "encode", "THING"], payload, pem)
    expect("pem decode", ["pem", "decode", "THING"], pem, payload)
    expect("pem wrong label", ["pem", "decode", "OTHER"], pem, b"", 1,
           r"orlix pem: not a valid PEM block labelled OTHER\n")
    expect("pem usage", ["pem", "wrap", "X"], code=2)


def group_text():
    expect("nfd", ["normalize", "nfd", "\u00e9"], out="e\u0301\n".encode())
    expect("nfc stdin", ["normalize", "nfc"], "e\u0301\nA\u030a\n".encode(),
           "\u00e9\n\u00c5\n".encode())
    expect("nfkc", ["normalize", "nfkc", "\ufb01"], out=b"fi\n")
    expect("casefold", ["casefold", "Stra\u00dfe"], out=b"strasse\n")
    expect("ldapprep ignore", ["ldapprep", "ignore", "  Foo   Bar "], out=b" foo  bar \n")
    expect("nameprep", ["nameprep", "B\u00fccher"], out="b\u00fccher\n".encode())
    expect("idn to-ascii", ["idn", "to-ascii", "b\u00fccher.example", "\u4f8b\u5b50.\u6d4b\u8bd5"],
           out=b"xn--bcher-kva.example\nxn--fsqu00a.xn--0zwm56d\n")
    expect("idn to-unicode", ["idn", "to-unicode", "xn--bcher-kva.example"],
           out="b\u00fccher.example\n".encode())
    expect("idn refused", ["idn", "to-ascii", "--std3", "a_b.example"], code=1,
           err=r"orlix idn: cannot convert a_b.example to ASCII\n")
    latin1 = dict(ENV, LC_ALL="fr_FR.ISO8859-1")
    expect("locale charset", ["casefold"], "\u00c9T\u00c9\n".encode("latin-1"),
           "\u00e9t\u00e9\n".encode("latin-1"), env=latin1)
    expect("not in charset", ["casefold"], b"\xff\n", code=1,
           err=r"orlix casefold: line 1: not valid text in the locale's charset\n")
    expect("bad form", ["normalize", "nfx"], code=2)


def group_time():
    expect("convert", ["time", "convert", "--to", "America/New_York", "2016-07-01 12:00:00"],
           out=b"2016-07-01 08:00:00 America/New_York (DST)\n")
    expect("convert from", ["time", "convert", "--from", "Asia/Shanghai", "2017-01-01 08:00:00"],
           out=b"2017-01-01 00:00:00 Etc/UTC\n")
    expect("leap second", ["time", "convert", "2016-12-31 23:59:60"],
           out=b"2016-12-31 23:59:60 Etc/UTC\n")
    expect("no leap second", ["time", "convert", "2017-12-31 23:59:60"], code=1,
           err=r"orlix time: 2017-12-31 23:59:60 is not a valid time in UTC\n")
    expect("unknown zone", ["time", "now", "--zone", "Mars/Olympus"], code=1,
           err=r"orlix time: unknown zone Mars/Olympus\n")
    expect("bad time", ["time", "convert", "yesterday"], code=2)
    expect("two times", ["time", "convert", "2016-07-01 12:00:00", "2016-07-01 13:00:00"], code=2)
    zones = expect("zones", ["time", "zones"]).decode().splitlines()
    if len(zones) != 582 or zones[414] != "414 Etc/UTC" or zones[0] != "  0 Africa/Abidjan":
        failures.append("zones: unexpected listing")
    names = {z[4:] for z in zones}
    rc, so, _ = run(["time", "system-zone"])
    if rc != 0 or so.decode().strip() not in names:
        failures.append(f"system-zone: {so!r}")
    rc, so, _ = run(["time", "now"])
    if rc != 0 or not re.fullmatch(rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d Etc/UTC\n", so):
        failures.append(f"now: {so!r}")


def is_prime(n):
    if n < 2:
        return False
    for p in (2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37):
        if n % p == 0:
            return n == p
    d, s = n - 1, 0
    while d % 2 == 0:
        d, s = d // 2, s + 1
    for a in (2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37):
        x = pow(a, d, n)
        if x in (1, n - 1):
            continue
        for _ in range(s - 1):
            x = x * x % n
            if x == n - 1:
                break
        else:
            return False
    return True


def group_prime():
    for args, check in [(["prime", "128"], lambda p: p.bit_length() == 128),
                        (["prime", "96", "--safe"], lambda p: p.bit_length() == 96
                         and is_prime((p - 1) // 2)),
                        (["prime", "64", "--two-high", "--fast"], lambda p: p >> 62 == 3)]:
        rc, so, _ = run(args)
        if rc != 0 or not so.endswith(b"\n"):
            failures.append(f"{' '.join(args)}: exit {rc}")
            continue
        p = int(so)
        if not is_prime(p) or not check(p):
            failures.append(f"{' '.join(args)}: {p} is not right")
    expect("prime too small", ["prime", "1"], code=2)


GROUPS = {"general": group_general, "json": group_json, "base64": group_base64,
          "hex_pem": group_hex_pem, "text": group_text, "time": group_time,
          "prime": group_prime}
GROUPS[GROUP]()
for f in failures:
    print("FAIL", f)
print(f"{GROUP}: {len(failures)} failed")
sys.exit(1 if failures else 0)
