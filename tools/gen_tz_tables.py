#!/usr/bin/env python3
"""Generates the time-zone tables of the Time family from tz source files.

    gen_tz_tables.py --output <file.cpp> --header <file.hpp> <tz source file>...

Reads Rule, Zone and Link lines and writes one C++ source with four constant
arrays (see src/time/tz_data.hpp for the record layouts):

  g_rule_items      every Rule line, grouped by rule set, in source order
  g_rulesets        one descriptor per rule set, in order of first appearance
  g_zone_rows       every Zone line and continuation, zone by zone
  g_timezone_table  zone and link names in ascending byte order, each pointing
                    at its zone's rows (a link shares its target's rows)

Conventions kept on purpose, because the library's results depend on them:

  * In a negative h:mm:ss amount the sign applies to the hours only; minutes
    and seconds are added as positive amounts ("-4:56:02" is -11038 and
    "-0:01:15" is 75).
  * A zone row whose until day is a weekday rule (lastSun, Sun>=1, ...) stores
    the until hour in the weekday field and 0 as the hour.

The row counts below are those of the shipped data; any other count means the
input or this parser is wrong, and the script fails so that the build stops.
"""

import argparse
import os
import sys

INT32_MAX = 0x7FFFFFFF

EXPECTED = {
    "names": 582,
    "zones": 377,
    "zone rows": 1963,
    "rule sets": 135,
    "rule items": 1913,
    "weekday until rows": 18,
}
EXPECTED_IDS = {
    0: "Africa/Abidjan",
    167: "America/New_York",
    303: "Asia/Shanghai",
    414: "Etc/UTC",
    441: "Europe/London",
    512: "PRC",
    577: "UTC",
    581: "Zulu",
}
# Limits the library's fixed-size work areas rely on.
MAX_ROWS_PER_ZONE = 19
MAX_ITEMS_PER_SET = 86

MONTHS = ["january", "february", "march", "april", "may", "june", "july",
          "august", "september", "october", "november", "december"]
WEEKDAYS = ["monday", "tuesday", "wednesday", "thursday", "friday", "saturday",
            "sunday"]  # 1 = Monday

# Time suffixes: wall clock, standard time, universal time.
AT_TYPES = {"w": 0, "s": 1, "u": 2, "g": 2, "z": 2}


class SourceError(Exception):
    pass


def lookup_word(word, table, what):
    """Index of the one table entry that `word` abbreviates."""
    w = word.lower()
    matches = [i for i, name in enumerate(table) if w and name.startswith(w)]
    if len(matches) != 1:
        raise SourceError(f"unknown {what} {word!r}")
    return matches[0]


def parse_hms(text):
    """(hours, minutes, seconds) of an h[:mm[:ss]] amount, sign on the hours."""
    negative = text.startswith("-")
    parts = (text[1:] if negative else text).split(":")
    if not 1 <= len(parts) <= 3 or not all(p.isdigit() for p in parts):
        raise SourceError(f"bad time {text!r}")
    h, m, s = (int(p) for p in parts + ["0"] * (3 - len(parts)))
    return (-h if negative else h), m, s


def parse_amount(text):
    """Seconds of an offset or save; see the sign convention above."""
    if text == "-":
        return 0
    h, m, s = parse_hms(text)
    return h * 3600 + m * 60 + s


def parse_at(text):
    """(type, hour, minute, second) of an AT or until time with its suffix."""
    kind = 0
    if text and text[-1].isalpha():
        if text[-1].lower() not in AT_TYPES:
            raise SourceError(f"bad time suffix in {text!r}")
        kind = AT_TYPES[text[-1].lower()]
        text = text[:-1]
    h, m, s = parse_hms(text)
    return kind, h, m, s


def parse_on(text):
    """(daytype, day, weekday) of an ON or until-day field."""
    if text.isdigit():
        return 0, int(text), -1
    if text.lower().startswith("last"):
        return 1, -1, lookup_word(text[4:], WEEKDAYS, "weekday") + 1
    for op, daytype in ((">=", 2), ("<=", 3)):
        if op in text:
            name, day = text.split(op)
            if not day.isdigit():
                raise SourceError(f"bad day rule {text!r}")
            return daytype, int(day), lookup_word(name, WEEKDAYS, "weekday") + 1
    raise SourceError(f"bad day {text!r}")


def parse_year(text, low):
    if text.lower().startswith("mi") and low:
        raise SourceError("'min' years are not supported")
    if text.lower().startswith("ma") and not low:
        return INT32_MAX
    if not text.isdigit():
        raise SourceError(f"bad year {text!r}")
    return int(text)


def parse_rule(fields):
    # Rule NAME FROM TO TYPE IN ON AT SAVE LETTER/S
    if len(fields) != 10:
        raise SourceError("a Rule line has 10 fields")
    fromyear = parse_year(fields[2], True)
    toyear = fromyear if fields[3].lower().startswith("o") else parse_year(fields[3], False)
    if fields[4] != "-":
        raise SourceError(f"rule types are not supported ({fields[4]!r})")
    month = lookup_word(fields[5], MONTHS, "month") + 1
    daytype, day, weekday = parse_on(fields[6])
    attype, hour, minute, second = parse_at(fields[7])
    save = parse_amount(fields[8])
    return (fromyear, toyear, daytype, month, day, weekday, attype, hour, minute, second, save)


def parse_zone_row(fields):
    """One zone period: GMTOFF RULES FORMAT [UNTIL...]."""
    if len(fields) < 3 or len(fields) > 7:
        raise SourceError("a zone line has 3 to 7 fields after the name")
    row = {"gmtoff": parse_amount(fields[0])}
    rules = fields[1]
    if rules == "-" or rules[0].isdigit() or rules[0] == "-":
        row.update(rulekind=1, rules=None, save=parse_amount(rules))
    else:
        row.update(rulekind=0, rules=rules, save=0)
    until = fields[3:]
    row.update(untiltype=0, untildaytype=0, untilyear=INT32_MAX, untilmonth=1, untilday=1,
               untilweekday=-1, untilhour=0, untilminute=0, untilsecond=0)
    if until:
        row["untilyear"] = parse_year(until[0], False)
        if len(until) > 1:
            row["untilmonth"] = lookup_word(until[1], MONTHS, "month") + 1
        if len(until) > 2:
            daytype, day, weekday = parse_on(until[2])
            row.update(untildaytype=daytype, untilday=day, untilweekday=weekday)
        if len(until) > 3:
            attype, hour, minute, second = parse_at(until[3])
            row.update(untiltype=attype, untilhour=hour, untilminute=minute,
                       untilsecond=second)
        if row["untildaytype"] != 0:
            # The table keeps the hour where the weekday would be.
            row["untilweekday"] = row["untilhour"]
            row["untilhour"] = 0
    return row


def read_sources(paths):
    rules = {}        # name -> list of items, in source order
    zones = []        # (name, rows)
    links = []        # (target, name)
    for path in paths:
        with open(path, encoding="utf-8") as f:
            continuing = None
            for number, line in enumerate(f, 1):
                fields = line.split("#", 1)[0].split()
                if not fields:
                    continue
                try:
                    keyword = fields[0]
                    if continuing is not None and keyword not in ("Rule", "Zone", "Link"):
                        row = parse_zone_row(fields)
                        continuing.append(row)
                    elif keyword == "Rule":
                        continuing = None
                        rules.setdefault(fields[1], []).append(parse_rule(fields))
                    elif keyword == "Zone":
                        rows = [parse_zone_row(fields[2:])]
                        zones.append((fields[1], rows))
                        continuing = rows
                    elif keyword == "Link":
                        continuing = None
                        if len(fields) != 3:
                            raise SourceError("a Link line has 3 fields")
                        links.append((fields[1], fields[2]))
                    else:
                        raise SourceError(f"unexpected line starting {keyword!r}")
                    if continuing is not None and continuing[-1]["untilyear"] == INT32_MAX:
                        continuing = None
                except SourceError as e:
                    raise SourceError(f"{path}:{number}: {e}") from None
    return rules, zones, links


def check(rules, zones, links, names):
    problems = []
    counts = {
        "names": len(names),
        "zones": len(zones),
        "zone rows": sum(len(rows) for _, rows in zones),
        "rule sets": len(rules),
        "rule items": sum(len(items) for items in rules.values()),
        "weekday until rows": sum(1 for _, rows in zones for r in rows
                                  if r["untildaytype"] != 0),
    }
    for what, expected in EXPECTED.items():
        if counts[what] != expected:
            problems.append(f"{counts[what]} {what}, expected {expected}")
    for index, name in EXPECTED_IDS.items():
        got = names[index][0] if index < len(names) else None
        if got != name:
            problems.append(f"identifier {index} is {got!r}, expected {name!r}")
    for name, rows in zones:
        if len(rows) > MAX_ROWS_PER_ZONE:
            problems.append(f"zone {name} has {len(rows)} rows")
        for r in rows:
            if r["rulekind"] == 0 and r["rules"] not in rules:
                problems.append(f"zone {name} uses the unknown rule set {r['rules']}")
    for name, items in rules.items():
        if len(items) > MAX_ITEMS_PER_SET:
            problems.append(f"rule set {name} has {len(items)} items")
    return problems


def c_int(v):
    return "kMax" if v == INT32_MAX else str(v)


def c_string(s):
    if not all(c.isprintable() and c not in '"\\' for c in s):
        raise SourceError(f"name {s!r} needs escaping")
    return f'"{s}"'


def emit(out, rules, zones, names):
    set_names = list(rules)
    set_index = {name: i for i, name in enumerate(set_names)}
    item_start, n = {}, 0
    for name in set_names:
        item_start[name] = n
        n += len(rules[name])
    zone_start, n = {}, 0
    for name, rows in zones:
        zone_start[name] = n
        n += len(rows)

    w = out.write
    w("// Generated by tools/gen_tz_tables.py from the tz source files; do not edit.\n")
    w('#include "time/tz_data.hpp"\n\n')
    w("namespace orlix::time {\n\nnamespace {\nconstexpr int32_t kMax = INT32_MAX;\n}\n\n")

    w(f"const RuleItem g_rule_items[{sum(len(v) for v in rules.values())}] = {{\n")
    for name in set_names:
        w(f"    // {name}\n")
        for item in rules[name]:
            w("    {" + ", ".join(c_int(v) for v in item) + "},\n")
    w("};\n\n")

    w(f"const RuleSet g_rulesets[{len(set_names)}] = {{\n")
    for name in set_names:
        w(f"    {{{c_string(name)}, {len(rules[name])}, g_rule_items + {item_start[name]}}},\n")
    w("};\n\n")

    fields = ("untiltype", "untildaytype", "untilyear", "untilmonth", "untilday",
              "untilweekday", "untilhour", "untilminute", "untilsecond")
    w(f"const ZoneRow g_zone_rows[{sum(len(r) for _, r in zones)}] = {{\n")
    for name, rows in zones:
        w(f"    // {name}\n")
        for r in rows:
            ruleset = ("nullptr" if r["rules"] is None
                       else f"g_rulesets + {set_index[r['rules']]}")
            values = [c_int(r["gmtoff"]), str(r["rulekind"]), ruleset, c_int(r["save"])]
            values += [c_int(r[f]) for f in fields]
            w("    {" + ", ".join(values) + "},\n")
    w("};\n\n")

    rows_of = dict(zones)
    w(f"const ZoneName g_timezone_table[{len(names)}] = {{\n")
    for index, (name, zone) in enumerate(names):
        w(f"    {{{c_string(name)}, {len(rows_of[zone])}, g_zone_rows + {zone_start[zone]}}},"
          f"  // {index}\n")
    w("};\n\n}  // namespace orlix::time\n")


def emit_header(out):
    w = out.write
    w("// Generated by tools/gen_tz_tables.py: the table sizes it wrote, each checked\n")
    w("// against the shipped tz sources. Do not edit.\n#pragma once\n\n#include <cstdint>\n\n")
    w("namespace orlix::time {\n\n")
    for constant, what in (("kZoneNameCount", "names"), ("kZoneRowCount", "zone rows"),
                           ("kRuleSetCount", "rule sets"), ("kRuleItemCount", "rule items")):
        w(f"constexpr int32_t {constant} = {EXPECTED[what]};\n")
    w("\n}  // namespace orlix::time\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--output", required=True)
    parser.add_argument("--header", required=True)
    parser.add_argument("sources", nargs="+")
    args = parser.parse_args()
    try:
        rules, zones, links = read_sources(args.sources)
        zone_names = {name for name, _ in zones}
        resolved = {name: name for name in zone_names}
        pending = dict((name, target) for target, name in links)
        while pending:
            progress = False
            for name, target in list(pending.items()):
                if target in resolved:
                    resolved[name] = resolved[target]
                    del pending[name]
                    progress = True
            if not progress:
                raise SourceError("links without a zone: " + ", ".join(sorted(pending)))
        if len(resolved) != len(zone_names) + len(links):
            raise SourceError("a name is defined twice")
        names = sorted(resolved.items(), key=lambda kv: kv[0].encode("utf-8"))
        problems = check(rules, zones, links, names)
        if problems:
            raise SourceError("the tz tables are not as expected:\n  " + "\n  ".join(problems))
        for path, write in ((args.header, emit_header),
                            (args.output, lambda out: emit(out, rules, zones, names))):
            tmp = path + ".tmp"
            with open(tmp, "w", encoding="utf-8") as out:
                write(out)
            os.replace(tmp, path)
    except (SourceError, OSError) as e:
        print(f"gen_tz_tables: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
