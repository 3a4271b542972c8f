// Python code shared by the oracle scripts of the normalization,
// preparation and IDNA suites. Each test appends its own part.
#pragma once

#include <string>

namespace unicode_test {

// make_composer(db, candidates) returns (compose, maybe): compose(seq,
// lv_rule) is canonical composition of a decomposed sequence as the library
// does it, built from the composition pairs of the Unicode database `db`
// (unicodedata or its 3.2 version) among `candidates`; with lv_rule, an LV
// syllable also takes any character above U+11A7 that is no trailing
// consonant (when the sum is a scalar value). maybe is the set of
// characters that can combine with what precedes them.
inline const std::string kComposeModel = R"PY(
def make_composer(db, candidates):
    pairs = {}
    for c in candidates:
        d = db.decomposition(chr(c))
        parts = [int(x, 16) for x in d.split()] if d and not d.startswith('<') else []
        if len(parts) == 2 and db.normalize('NFC', chr(c)) == chr(c):
            pairs[tuple(parts)] = c
    maybe = {b for _, b in pairs} | set(range(0x1161, 0x1176)) | set(range(0x11A8, 0x11C3))

    def compose_pair(a, b, lv_rule):
        if (a, b) in pairs:
            return pairs[(a, b)]
        if 0x1100 <= a <= 0x1112 and 0x1161 <= b <= 0x1175:
            return 0xAC00 + ((a - 0x1100) * 21 + b - 0x1161) * 28
        if 0 <= a - 0xAC00 < 11172 and (a - 0xAC00) % 28 == 0:
            if 0x11A7 < b < 0x11A7 + 28 or (lv_rule and b > 0x11A7):
                r = a + b - 0x11A7
                if r <= 0x10FFFF and not 0xD800 <= r <= 0xDFFF:
                    return r
        return None

    def compose(s, lv_rule):
        s = list(s)
        ccc = lambda c: db.combining(chr(c))
        starters = [i for i, c in enumerate(s) if ccc(c) == 0]
        if len(s) < 2 or not starters or starters[0] == len(s) - 1:
            return s
        sp, i, last = starters[0], starters[0] + 1, 0
        while i < len(s):
            c, cc = s[i], ccc(s[i])
            if last == 0 or cc > last:
                r = compose_pair(s[sp], c, lv_rule)
                if r is not None:
                    s[sp] = r
                    del s[i]
                    i, last = sp + 1, 0
                    continue
            if cc == 0:
                sp = i
            last = cc
            i += 1
        return s

    return compose, maybe
)PY";

// Python's nameprep (stringprep and encodings.idna, Unicode 3.2) adjusted by
// the differences the tables hold (named in unicode_prep_test.cpp) and by
// the library's NFKC, which applies the LV rule to text that fails its quick
// check. Defines nameprep(label), installs it as encodings.idna's, and
// leaves random, sys, idna and U (the 3.2 database) imported.
inline const std::string kNameprepOracle = kComposeModel + R"PY(
import random, stringprep, sys
import encodings.idna as idna
from unicodedata import ucd_3_2_0 as U

CHEROKEE = set(range(0x13A0, 0x13F5))
CORRECTED = {0x2F868: 0x36FC, 0x2F874: 0x5F53, 0x2F91F: 0x243AB, 0x2F95F: 0x7AEE,
             0x2F9BF: 0x45D7}
NOW_L = {0x0CBF, 0x0CC6, 0x2132, 0x214E, 0x04CF, 0x2184} | set(range(0x2800, 0x2900)) \
    | set(range(0x2D00, 0x2D26))
compose, MAYBE = make_composer(U, range(0x30000))

def b2(c):
    return c if ord(c) in CHEROKEE else stringprep.map_table_b2(c)

def nfkc(s):
    last = 0
    for c in s:
        cc = U.combining(c)
        if (cc and cc < last) or U.normalize('NFKC', c) != c or ord(c) in MAYBE:
            break
        last = cc
    else:
        return s
    s = ''.join(chr(CORRECTED.get(ord(c), ord(c))) for c in s)
    return ''.join(map(chr, compose([ord(c) for c in U.normalize('NFKD', s)], True)))

def nameprep(label):
    label = nfkc(''.join(b2(c) for c in label if not stringprep.in_table_b1(c)))
    for c in label:
        if any(t(c) for t in (stringprep.in_table_c12, stringprep.in_table_c22,
                              stringprep.in_table_c3, stringprep.in_table_c4,
                              stringprep.in_table_c5, stringprep.in_table_c6,
                              stringprep.in_table_c7, stringprep.in_table_c8,
                              stringprep.in_table_c9)):
            raise UnicodeError('prohibited')
    ral = [stringprep.in_table_d1(c) for c in label]
    if any(ral):
        if any(stringprep.in_table_d2(c) or ord(c) in NOW_L for c in label):
            raise UnicodeError('bidi L')
        if not ral[0] or not ral[-1]:
            raise UnicodeError('bidi ends')
    return label
idna.nameprep = nameprep
)PY";

}  // namespace unicode_test
