#!/usr/bin/env python3
"""Runs the orlix tool on files and standard input and compares what it
writes, byte for byte, and how it exits. Usage: cli_test.py ORLIX GROUP

Each group is a table of cases: a name, the arguments, standard input, the
expected standard output (None: not checked), exit status and a pattern for
standard error (None: not checked). Python's base64, json and idna codecs
and date(1) are the oracles where they apply."""
import base64
import json
import os
import re
import subprocess
import sys
import tempfile
from datetime import datetime, timedelta

ORLIX = sys.argv[1]
GROUP = sys.argv[2]
ENV = dict(os.environ, LC_ALL="C.UTF-8", LANG="C.UTF-8")
ENV.pop("LC_CTYPE", None)
ENV.pop("TZ", None)
failures = []


def run(args, stdin=b"", env=ENV):
    args = [os.fsencode(a) for a in args]  # bytes too: text that is not UTF-8
    p = subprocess.run([os.fsencode(ORLIX)] + args, input=stdin, capture_output=True, env=env,
                       timeout=120)
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


def table(rows, env=ENV):
    for row in rows:
        name, args, stdin, out, code, err = row
        expect(name, args, stdin, out, code, err, env)


def temp_file(data):
    f = tempfile.NamedTemporaryFile(delete=False)
    f.write(data)
    f.close()
    return f.name


def group_general():
    version = b"ORLIX Utility Library 2.6,Build on 2019"
    table([
        ("version", ["version"], b"", version + b"\n", 0, ""),
        ("--version", ["--version"], b"", b"orlix 2.6.0 (" + version + b")\n", 0, ""),
        ("-V", ["-V"], b"", b"orlix 2.6.0 (" + version + b")\n", 0, ""),
        ("no command", [], b"", b"", 2, r"usage: orlix (.|\n)*"),
        ("unknown command", ["frobnicate"], b"", b"", 2, r"orlix frobnicate: unknown command\n(.|\n)*"),
        # Messages are words; --verbose (before the command or among its
        # arguments) adds the library's entry with its module and line.
        ("words only", ["hex", "-d"], b"zz", b"", 1,
         r"orlix hex: not hexadecimal: a character that is not a digit\n"),
        ("verbose", ["--verbose", "hex", "-d"], b"zz", b"", 1,
         r"orlix hex: not hexadecimal: a character that is not a digit "
         r"\(hex decode fail: ORLIX_Stream_Hex, line \d+\)\n"),
        ("verbose after", ["hex", "-d", "--verbose"], b"zz", b"", 1, r".*ORLIX_Stream_Hex, line \d+\)\n"),
    ])
    # The bash completion offers commands, their words and zone names.
    completion = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../cli/orlix.bash")
    env = dict(ENV, PATH=os.path.dirname(os.path.abspath(ORLIX)) + ":" + ENV.get("PATH", ""))
    for words, want in [("orlix --verbose ba", "base64"), ("orlix idn t", "to-ascii to-unicode"),
                        ("orlix time now --zone Asia/Sh", "Asia/Shanghai")]:
        script = (f'source "{completion}"; COMP_WORDS=({words}); '
                  'COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _orlix; echo "${COMPREPLY[*]}"')
        p = subprocess.run(["bash", "-c", script], capture_output=True, env=env)
        if p.stdout.decode().strip() != want:
            failures.append(f"completion of {words!r}: {p.stdout!r} {p.stderr!r}")
    rc, so, _ = run(["--help"])
    if rc != 0 or b"json" not in so or b"--version" not in so:
        failures.append("overview help")
    for cmd in ["json", "base64", "hex", "pem", "normalize", "casefold", "ldapprep",
                "nameprep", "idn", "time", "prime", "version"]:
        rc, so, _ = run([cmd, "--help"])
        if rc != 0 or not so.startswith(b"usage: orlix " + cmd.encode()):
            failures.append(f"{cmd} --help")


def group_json():
    doc = b'{"b":[true,null],"a":1.5,"s":"\\n\\u00e9/","n":-0.0000001}'
    good = temp_file(b' {"k": [1, 2.25, "x"]} ')
    bad = temp_file(b"[1,\n 2,]")
    table([
        ("compact", ["json"], doc, b'{"b":[true,null],"a":1.5,"s":"\\u000A\xc3\xa9/","n":-0}\n', 0, ""),
        ("sorted", ["json", "--sort"], doc, b'{"a":1.5,"b":[true,null],"n":-0,"s":"\\u000A\xc3\xa9/"}\n', 0, ""),
        ("pretty", ["json", "--pretty"], b'{"a":1,"b":[true,null]}', b'{\n\t"a":1,\n\t"b":[true,null]\n}\n', 0, ""),
        ("pretty crlf spaces", ["json", "--pretty", "--crlf", "--spaces", "2"], b'[1,{"x":2}]',
         b'[\r\n  \t1,\r\n  \t{\r\n  \t  \t"x":2\r\n  \t}\r\n]\r\n', 0, ""),
        ("pretty empty cr", ["json", "--pretty", "--cr"], b"[]", b"[\r]\r", 0, ""),
        # What echo writes: whitespace and a line feed after the document.
        ("scalar and newline", ["json"], b"1 \r\n", b"1\n", 0, ""),
        ("container and newline", ["json"], b"[1]\n\n", b"[1]\n", 0, ""),
        ("leading blank before scalar", ["json"], b" 1", b"", 1, r"orlix json: line 1, column 2: unexpected character\n"),
        ("empty", ["json"], b"\n", b"", 1, r"orlix json: line 1, column 1: unexpected end of input\n"),
        ("unpaired surrogate", ["json"], b'["\\ud800x"]', b"", 1, r"orlix json: line 1, column 3: unpaired surrogate escape\n"),
        ("invalid UTF-8", ["json"], b'["\xc3\xa9\xff"]', b"", 1, r"orlix json: line 1, column 4: invalid UTF-8 in string\n"),
        ("invalid number", ["json"], b"[1.]", b"", 1, r"orlix json: line 1, column 2: invalid number\n"),
        ("nesting limit", ["json"], b"[" * 201, b"", 1, r"orlix json: line 1, column 201: nesting limit reached\n"),
        # inf and nan are not JSON: refused rather than printed.
        ("out of range", ["json"], b"[1e400]", b"", 1,
         r"orlix json: a number is out of range \(JSON cannot write infinity\)\n"),
        ("out of range deep", ["json"], b'{"a":[0,{"b":-1e999}]}', b"", 1, r"orlix json: a number is out of range.*\n"),
        ("huge but finite", ["json"], b"[1e300]", None, 0, ""),
        # Several files: each its own document; a bad one is named and the
        # others are still done.
        ("files", ["json", good, bad, good], b"", b'{"k":[1,2.25,"x"]}\n' * 2, 1,
         r"orlix json: " + re.escape(bad) + r": line 2, column 4: unexpected character\n"),
        ("missing file", ["json", "/nonexistent/x.json"], b"", b"", 1,
         r"orlix json: /nonexistent/x.json: No such file or directory\n"),
        ("bad spaces", ["json", "--spaces", "300"], b"[]", b"", 2, None),
        ("bad option", ["json", "--frob"], b"[]", b"", 2, r"orlix json: unknown option --frob\n"),
    ])
    # Where Python's decoder stops at the same place, it gives the position.
    for text, reason in [(b"[1,\n 2,]", "unexpected character"), (b"[1 2]", "unexpected character"),
                         (b'{"a" 1}', "unexpected character"), (b'"abc', "unterminated string"),
                         (b"[1] x", "trailing data"), (b'"\x01"', "control character in string"),
                         (b"nul", "invalid literal"), (b'["a\\x"]', "invalid escape")]:
        try:
            json.loads(text)
            failures.append(f"oracle accepts {text!r}")
            continue
        except json.JSONDecodeError as e:
            where = f"line {e.lineno}, column {e.colno}"
        expect(f"error {text!r}", ["json"], text, b"", 1, re.escape(f"orlix json: {where}: {reason}\n"))
    for f in (good, bad):
        os.unlink(f)


def group_base64():
    data = bytes(range(256)) * 3 + b"tail"
    std = base64.b64encode(data)
    # Every full line ends with the line ending; a last partial group does too.
    lines = b"".join(std[i:i + 64] + b"\n" for i in range(0, len(std), 64))
    one, two = temp_file(b"hel"), temp_file(b"lo")
    enc_one, enc_two = temp_file(b"aGVs\n"), temp_file(b"bG8=\n")
    table([
        ("encode", ["base64"], data, lines, 0, ""),
        ("three bytes: no final line ending", ["base64"], b"abc", b"YWJj", 0, ""),
        ("one byte", ["base64", "--eol", "crlf"], b"M", b"TQ==\r\n", 0, ""),
        ("no pad url", ["base64", "--url", "--no-pad", "--eol", "none"], b"\xfb\xff", b"-_8", 0, ""),
        # A line length of 5 is kept as 6 (5 + 5 mod 4): lines break once 8
        # characters, two whole groups, are out.
        ("line rounding", ["base64", "--line", "5", "--eol", "lf"], b"abcdefghi", b"YWJjZGVm\nZ2hp", 0, ""),
        ("decode", ["base64", "-d"], lines, data, 0, ""),
        ("decode blanks", ["base64", "-d", "--ws", "all"], b"YW Jj\tZA==", b"abcd", 0, ""),
        ("decode unpadded", ["base64", "-d", "--no-pad"], b"YWJjZA", b"abcd", 0, ""),
        # Input that stops inside a group, or holds a foreign character, is
        # refused; what was decoded before it is written, as coreutils does.
        ("decode incomplete", ["base64", "-d"], b"aGVsbG8", b"hel", 1,
         r"orlix base64: incomplete input: it ends inside a group of four characters\n"),
        ("decode incomplete unpadded", ["base64", "-d", "--no-pad"], b"YWJjZ", b"abc", 1,
         r"orlix base64: incomplete input.*\n"),
        ("decode invalid", ["base64", "-d"], b"YW*j", b"", 1,
         r"orlix base64: not base64: a character outside the alphabet or out of place\n"),
        ("decode blank refused", ["base64", "-d", "--ws", "none"], b"YWJj\n", b"", 1, r"orlix base64: not base64.*\n"),
        ("bad eol", ["base64", "--eol", "dos"], b"", b"", 2, None),
        # Several files: encoded as one text, decoded one by one.
        ("encode files", ["base64", one, two], b"", b"aGVsbG8=\n", 0, ""),
        ("decode files", ["base64", "-d", enc_one, enc_two], b"", b"hello", 0, ""),
        ("decode files, one bad", ["base64", "-d", enc_one, one, enc_two], b"", b"hello", 1,
         r"orlix base64: " + re.escape(one) + r": incomplete input.*\n"),
    ])
    for f in (one, two, enc_one, enc_two):
        os.unlink(f)


def group_hex_pem():
    payload = bytes(range(100))
    body = base64.b64encode(payload)
    lines = b"".join(body[i:i + 64] + b"\r\n" for i in range(0, len(body), 64))
    pem = b"-----BEGIN THING-----\r\n" + lines + b"-----END THING-----\r\n"
    pem_file, hex_file, odd_file = temp_file(pem), temp_file(b"ab01\r\n"), temp_file(b"abc")
    table([
        ("hex", ["hex"], b"\xab\x01", b"ab01", 0, ""),
        ("hex upper", ["hex", "--upper"], b"\xab\x01", b"AB01", 0, ""),
        ("hex decode", ["hex", "-d"], b"aB01\n", b"\xab\x01", 0, ""),
        ("hex decode invalid", ["hex", "-d"], b"a b0", b"", 1, r"orlix hex: not hexadecimal: a character that is not a digit\n"),
        ("hex decode odd", ["hex", "-d"], b"abc", b"", 1, r"orlix hex: odd number of digits\n"),
        ("hex decode files", ["hex", "-d", hex_file, odd_file, hex_file], b"", b"\xab\x01\xab\x01", 1,
         r"orlix hex: " + re.escape(odd_file) + r": odd number of digits\n"),
        ("hex files", ["hex", hex_file, "-"], b"!", b"616230310d0a21", 0, ""),
        ("pem encode", ["pem", "encode", "THING"], payload, pem, 0, ""),
        ("pem decode", ["pem", "decode", "THING"], pem, payload, 0, ""),
        ("pem decode files", ["pem", "decode", "THING", pem_file, pem_file], b"", payload * 2, 0, ""),
        ("pem wrong label", ["pem", "decode", "OTHER"], pem, b"", 1, r"orlix pem: not a valid PEM block labelled OTHER\n"),
        ("pem usage", ["pem", "wrap", "X"], b"", b"", 2, None),
    ])
    for f in (pem_file, hex_file, odd_file):
        os.unlink(f)


def group_text():
    u = lambda s: s.encode()
    table([
        ("nfd", ["normalize", "nfd", "\u00e9"], b"", u("e\u0301\n"), 0, ""),
        ("nfc stdin", ["normalize", "nfc"], u("e\u0301\nA\u030a\n"), u("\u00e9\n\u00c5\n"), 0, ""),
        ("nfkc", ["normalize", "nfkc", "\ufb01"], b"", b"fi\n", 0, ""),
        ("casefold", ["casefold", "Stra\u00dfe"], b"", b"strasse\n", 0, ""),
        ("ldapprep ignore", ["ldapprep", "ignore", "  Foo   Bar "], b"", b" foo  bar \n", 0, ""),
        ("nameprep", ["nameprep", "B\u00fccher"], b"", u("b\u00fccher\n"), 0, ""),
        ("idn to-unicode", ["idn", "to-unicode", "xn--bcher-kva.example", "xn--bcher-kva.example."], b"",
         u("b\u00fccher.example\nb\u00fccher.example.\n"), 0, ""),
        # Every argument or line gets its own line or a message naming it;
        # the status is 1 when any failed.
        ("idn every argument", ["idn", "to-ascii", "a.example", "bad..name", "b.example"], b"",
         b"a.example\nb.example\n", 1, r"orlix idn: 'bad\.\.name': cannot convert to ASCII\n"),
        ("idn every line", ["idn", "to-ascii"], b"a.example\nbad..name\n\xff\nb.example\n",
         b"a.example\nb.example\n", 1,
         r"orlix idn: line 2: 'bad\.\.name': cannot convert to ASCII\n"
         r"orlix idn: line 3: '\\xFF': not valid text in the charset UTF-8\n"),
        ("idn std3", ["idn", "to-ascii", "--std3", "a_b.example"], b"", b"", 1,
         r"orlix idn: 'a_b\.example': cannot convert to ASCII\n"),
        ("nameprep every line", ["nameprep"], u("A\n\ue000\nB\n"), b"a\nb\n", 1,
         "orlix nameprep: line 2: '\ue000': refused by nameprep\n"),
        ("not in charset", ["casefold"], b"\xff\n", b"", 1,
         r"orlix casefold: line 1: '\\xFF': not valid text in the charset UTF-8\n"),
        ("bad form", ["normalize", "nfx"], b"", b"", 2, None),
    ])
    # IDNA against Python's idna codec (RFC 3490, as the library): the root
    # dot is kept, also when written as an ideographic full stop.
    names = ["b\u00fccher.example", "\u4f8b\u5b50.\u6d4b\u8bd5", "www.example.com.", "M\u00fcnchen.de.",
             "\u4f8b\u5b50\u3002\u6d4b\u8bd5\u3002"]
    want = b"".join(n.encode("idna") + b"\n" for n in names)
    expect("idn to-ascii vs python", ["idn", "to-ascii"] + names, out=want)
    # Without a charset in the locale (cron, systemd, containers: C, POSIX,
    # an empty environment) or with ASCII, text is UTF-8, never Latin-1.
    for env in [{}, {"LC_ALL": "C"}, {"LANG": "POSIX"}, {"LC_ALL": "C.ANSI_X3.4-1968"},
                {"LC_ALL": "", "LC_CTYPE": "", "LANG": "C"}]:
        table([
            (f"utf-8 idn {env}", ["idn", "to-ascii", "b\u00fccher.example"], b"", b"xn--bcher-kva.example\n", 0, ""),
            (f"utf-8 casefold {env}", ["casefold", "\u00c9"], b"", u("\u00e9\n"), 0, ""),
            (f"utf-8 refused {env}", ["casefold", b"a\xe9"], b"", b"", 1,
             r"orlix casefold: 'a\\xE9': not valid text in the charset UTF-8\n"),
        ], env=env)
    latin1 = dict(ENV, LC_ALL="fr_FR.ISO8859-1")
    expect("locale charset", ["casefold"], "\u00c9T\u00c9\n".encode("latin-1"),
           "\u00e9t\u00e9\n".encode("latin-1"), env=latin1)


def date_oracle(zone, utc):
    """date's reading of a UTC time in a zone, as orlix writes it (no zone)."""
    env = dict(ENV, TZ=zone)
    p = subprocess.run(["date", "-d", utc, "+%Y-%m-%d %H:%M:%S%:z"], capture_output=True, env=env)
    return p.stdout.decode().strip()


def group_time():
    table([
        ("convert", ["time", "convert", "--to", "America/New_York", "2016-07-01 12:00:00"], b"",
         b"2016-07-01 08:00:00-04:00 America/New_York (DST)\n", 0, ""),
        ("convert from", ["time", "convert", "--from", "Asia/Shanghai", "2017-01-01 08:00:00"], b"",
         b"2017-01-01 00:00:00+00:00 Etc/UTC\n", 0, ""),
        ("leap second", ["time", "convert", "2016-12-31 23:59:60"], b"", b"2016-12-31 23:59:60+00:00 Etc/UTC\n", 0, ""),
        ("iso leap second", ["time", "convert", "2016-12-31T23:59:60Z"], b"", b"2016-12-31 23:59:60+00:00 Etc/UTC\n", 0, ""),
        ("iso offset leap second", ["time", "convert", "--to", "Asia/Shanghai", "2017-01-01T08:59:60+09:00"], b"",
         b"2017-01-01 07:59:60+08:00 Asia/Shanghai\n", 0, ""),
        ("iso offset forms", ["time", "convert", "2016-07-01t12:00:00-0230"], b"", b"2016-07-01 14:30:00+00:00 Etc/UTC\n", 0, ""),
        ("iso hours only", ["time", "convert", "2016-03-01T00:30:00+01"], b"", b"2016-02-29 23:30:00+00:00 Etc/UTC\n", 0, ""),
        ("local mean time", ["time", "convert", "--to", "Asia/Shanghai", "1900-01-01T00:00:00Z"], b"",
         b"1900-01-01 08:05:43+08:05:43 Asia/Shanghai\n", 0, ""),
        ("no leap second", ["time", "convert", "2017-12-31 23:59:60"], b"", b"", 1,
         r"orlix time: 2017-12-31 23:59:60 is not a valid time in UTC\n"),
        ("no leap second with offset", ["time", "convert", "2017-12-31T23:59:60Z"], b"", b"", 1,
         r"orlix time: 2017-12-31T23:59:60Z is not a valid time\n"),
        ("no such day", ["time", "convert", "2017-02-29T00:00:00+01:00"], b"", b"", 1, r".*is not a valid time\n"),
        ("offset and from", ["time", "convert", "--from", "Asia/Tokyo", "2017-01-01T00:00:00Z"], b"", b"", 2, None),
        ("bad offset", ["time", "convert", "2017-01-01T00:00:00+1:00"], b"", b"", 2, None),
        ("unknown zone", ["time", "now", "--zone", "Mars/Olympus"], b"", b"", 1, r"orlix time: unknown zone Mars/Olympus\n"),
        ("bad time", ["time", "convert", "yesterday"], b"", b"", 2, None),
    ])
    expect("TZ not in the database", ["time", "now"], code=1, out=b"",
           err=r"orlix time: TZ=CET-1CEST,M3\.5\.0,M10\.5\.0/3 names no zone of the compiled database\n",
           env=dict(ENV, TZ="CET-1CEST,M3.5.0,M10.5.0/3"))
    # Offsets and zone rules against date(1).
    for zone, utc in [("America/New_York", "2016-11-06T06:30:00Z"), ("Europe/London", "2016-03-27T01:00:00Z"),
                      ("Australia/Lord_Howe", "2016-01-15T12:00:00Z"), ("Asia/Kolkata", "2016-06-01T00:00:00Z")]:
        so = expect(f"convert vs date {zone}", ["time", "convert", "--to", zone, utc]).decode()
        if so[:25] != date_oracle(zone, utc) or not so[25:].startswith(f" {zone}"):
            failures.append(f"convert vs date {zone}: {so!r}, date says {date_oracle(zone, utc)}")
    zones = expect("zones", ["time", "zones"]).decode().splitlines()
    if len(zones) != 582 or zones[414] != "414 Etc/UTC" or zones[0] != "  0 Africa/Abidjan":
        failures.append("zones: unexpected listing")
    names = {z[4:] for z in zones}
    rc, so, _ = run(["time", "system-zone"])
    if rc != 0 or so.decode().strip() not in names:
        failures.append(f"system-zone: {so!r}")
    # now: UTC without TZ; TZ as date reads it (a name, ":name", a zoneinfo
    # path, empty for UTC), compared with date's clock.
    for tz, zone in [(None, "Etc/UTC"), ("", "Etc/UTC"), ("Asia/Shanghai", "Asia/Shanghai"),
                     (":Asia/Tokyo", "Asia/Tokyo"), ("/usr/share/zoneinfo/Europe/Paris", "Europe/Paris")]:
        env = dict(ENV) if tz is None else dict(ENV, TZ=tz)
        before = datetime.now()
        rc, so, _ = run(["time", "now"], env=env)
        m = re.fullmatch(rb"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)([+-]\d\d:\d\d) (\S+)( \(DST\))?\n", so)
        if rc != 0 or not m or m.group(3).decode() != zone:
            failures.append(f"now TZ={tz!r}: {so!r}")
            continue
        p = subprocess.run(["date", "+%Y-%m-%d %H:%M:%S%:z"], capture_output=True, env=env)
        ours = datetime.strptime(m.group(1).decode(), "%Y-%m-%d %H:%M:%S")
        theirs = datetime.strptime(p.stdout.decode()[:19], "%Y-%m-%d %H:%M:%S")
        if abs(ours - theirs) > timedelta(seconds=5) + (datetime.now() - before) or \
                m.group(2).decode() != p.stdout.decode().strip()[19:]:
            failures.append(f"now TZ={tz!r}: {so!r}, date says {p.stdout!r}")


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
    table([
        ("prime 1", ["prime", "1"], b"", b"", 2, r"orlix prime: size too small: a prime has at least 2 bits, not 1\n"),
        ("prime 0", ["prime", "0"], b"", b"", 2, r"orlix prime: size too small.*\n"),
        ("prime too large", ["prime", "99999999"], b"", b"", 2,
         r"orlix prime: size too large: at most 1048576 bits, not 99999999\n"),
        ("prime not a number", ["prime", "x"], b"", b"", 2, r"orlix prime: unexpected argument x\n"),
    ])


GROUPS = {"general": group_general, "json": group_json, "base64": group_base64,
          "hex_pem": group_hex_pem, "text": group_text, "time": group_time,
          "prime": group_prime}
GROUPS[GROUP]()
for f in failures:
    print("FAIL", f)
print(f"{GROUP}: {len(failures)} failed")
sys.exit(1 if failures else 0)
