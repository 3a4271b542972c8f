#!/usr/bin/env python3
"""Generates the Unicode tables of the Unicode string family.

    gen_unicode_tables.py --data <data dir> --output <file.cpp> --header <file.hpp>

Reads the Unicode Character Database files in <data dir>/unicode and the
RFC 3454 tables in <data dir>/stringprep and writes one C++ source with the
constant tables declared in src/ustring/ORLIX_UString_Tables.hpp:

  the sorted row tables that the normalizer, the case folding and the
  string preparation profiles search by binary search, and

  a two-stage property trie that answers, for any code point, everything the
  row tables would answer (combining class, quick-check membership, whether a
  decomposition, folding or composition row exists and where) in one look-up,
  plus the length of the full decompositions. The trie is derived from the
  very rows written out here, and the test suite compares the two over every
  code point.

Every table's row count is fixed below. A count that differs means that the
data or this parser is wrong, and the script fails so that the build stops.
The counts are also written, as the constants the declarations use, into the
header given with --header (ORLIX_UString_Tables.hpp includes it).
"""

import argparse
import os
import sys

EXPECTED = {
    "g_CombiningClass_Table": 751,
    "g_CanonicalDecomposition_Table": 2060,
    "g_CompatibilityDecomposition_Table": 3661,
    "g_CanonicalComposition_Table": 1025,
    "g_Full_Composition_Exclusion_Table": 1115,
    "g_NFD_Quick_Check_No_Table": 13232,
    "g_NFKD_Quick_Check_No_Table": 16893,
    "g_NFC_Quick_Check_No_Table": 1120,
    "g_NFC_Quick_Check_Maybe_Table": 110,
    "g_NFKC_Quick_Check_No_Table": 4793,
    "g_NFKC_Quick_Check_Maybe_Table": 110,
    "g_FullCaseFolding_Table": 1321,
    "g_FC_NFKC_ClosureCaseFolding_Table": 633,
    "g_unassignedCodePoint_Table": 9055,
    "g_CombiningMarks_Table": 1065,
    "g_BidiChar_Table": 1270,
    "g_NonL_Table": 5733,
    "g_CommonMaptoNothing_Table": 27,
    "g_NonASCIISpace_Table": 17,
    "g_NonASCIIControl_Table": 62,
}

# The constant that holds each table's row count in the generated header.
ROW_CONSTANTS = {
    "g_CombiningClass_Table": "kCombiningClassRows",
    "g_CanonicalDecomposition_Table": "kCanonicalDecompositionRows",
    "g_CompatibilityDecomposition_Table": "kCompatibilityDecompositionRows",
    "g_CanonicalComposition_Table": "kCanonicalCompositionRows",
    "g_Full_Composition_Exclusion_Table": "kFullCompositionExclusionRows",
    "g_NFD_Quick_Check_No_Table": "kNfdQuickCheckNoRows",
    "g_NFKD_Quick_Check_No_Table": "kNfkdQuickCheckNoRows",
    "g_NFC_Quick_Check_No_Table": "kNfcQuickCheckNoRows",
    "g_NFC_Quick_Check_Maybe_Table": "kNfcQuickCheckMaybeRows",
    "g_NFKC_Quick_Check_No_Table": "kNfkcQuickCheckNoRows",
    "g_NFKC_Quick_Check_Maybe_Table": "kNfkcQuickCheckMaybeRows",
    "g_FullCaseFolding_Table": "kFullCaseFoldingRows",
    "g_FC_NFKC_ClosureCaseFolding_Table": "kClosureCaseFoldingRows",
    "g_unassignedCodePoint_Table": "kUnassignedCodePointRows",
    "g_CombiningMarks_Table": "kCombiningMarksRows",
    "g_BidiChar_Table": "kBidiCharRows",
    "g_NonL_Table": "kNonLRows",
    "g_CommonMaptoNothing_Table": "kCommonMaptoNothingRows",
    "g_NonASCIISpace_Table": "kNonAsciiSpaceRows",
    "g_NonASCIIControl_Table": "kNonAsciiControlRows",
}

# Longest mapping of each kind the row layouts have room for.
MAX_COMPATIBILITY_MAPPING = 18
MAX_FOLDING_MAPPING = 4

# Hangul syllables decompose by arithmetic, not through the tables.
S_BASE, L_BASE, V_BASE, T_BASE = 0xAC00, 0x1100, 0x1161, 0x11A7
L_COUNT, V_COUNT, T_COUNT = 19, 21, 28
N_COUNT = V_COUNT * T_COUNT
S_COUNT = L_COUNT * N_COUNT

# CJK ideographs, extension A to the end of the unified block (the
# hexagrams between them included): class 0 and no quick-check row in any
# form, which the generator checks.
QC_IDEOGRAPHS_FIRST, QC_IDEOGRAPHS_END = 0x3400, 0xA000

# Property bits of the trie; the same values are spelled out in
# ORLIX_UString_Tables.hpp.
BITS = {
    "nfd_no": 1 << 8,
    "nfkd_no": 1 << 9,
    "nfc_no": 1 << 10,
    "nfc_maybe": 1 << 11,
    "nfkc_no": 1 << 12,
    "nfkc_maybe": 1 << 13,
    "canonical": 1 << 14,
    "compatibility": 1 << 15,
    "composition_first": 1 << 16,
    "composition_second": 1 << 17,
    "composition_excluded": 1 << 18,
    "folds": 1 << 19,
    "closure_folds": 1 << 20,
    "map_to_nothing": 1 << 21,
    "non_ascii_space": 1 << 22,
    "non_ascii_control": 1 << 23,
    "rand_al": 1 << 24,
    "non_l": 1 << 25,
    "unassigned": 1 << 26,
    "mark": 1 << 27,
}
# log2 of the tries' block sizes; ORLIX_UString_Tables.hpp uses the same.
BLOCK_SHIFT = 7
QC_BLOCK_SHIFT = 7
QC_MASK = 0x3FFF  # the combining class and the six quick-check bits


NORMALIZATION_FIRST = 1 << 14
NORMALIZATION_SECOND = 1 << 15


def normalization_bits(bits):
    """The 16 bits the normalizer's hot loops read: the combining class and
    the quick-check bits as they are, then the composition first and second
    bits moved down to bits 14 and 15."""
    return (bits & QC_MASK) | (bits >> 2 & 0xC000)
MAX_CODE_POINT = 0x10FFFF


class DataError(Exception):
    pass


def hex_cp(text):
    value = int(text, 16)
    if value > MAX_CODE_POINT:
        raise DataError(f"code point {text} out of range")
    return value


def read_unicode_data(path):
    """The lines of a UnicodeData file as (code point, fields), in file order,
    plus the set of code points that a line or a First>/Last> range covers."""
    rows, present, first = [], set(), None
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line:
                continue
            fields = line.split(";")
            if len(fields) != 15:
                raise DataError(f"{path}:{number}: expected 15 fields")
            cp = hex_cp(fields[0])
            name = fields[1]
            if name.endswith(", First>"):
                first = cp
                continue
            if name.endswith(", Last>"):
                if first is None:
                    raise DataError(f"{path}:{number}: Last> without First>")
                present.update(range(first, cp + 1))
                first = None
                continue
            present.add(cp)
            rows.append((cp, fields))
    return rows, present


def read_property_file(path):
    """(code point, property, values...) for every code point of every line of
    a DerivedNormalizationProps file, ranges expanded."""
    out = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            fields = [x.strip() for x in line.split(";")]
            bounds = fields[0].split("..")
            low, high = hex_cp(bounds[0]), hex_cp(bounds[-1])
            for cp in range(low, high + 1):
                out.append((cp, fields[1], fields[2:]))
    return out


def read_case_folding(path):
    rows = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            fields = [x.strip() for x in line.split(";")]
            if fields[1] in ("C", "F"):
                rows.append((hex_cp(fields[0]), [hex_cp(x) for x in fields[2].split()]))
    return rows


def read_stringprep(path):
    tables = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            cp, table = [x.strip() for x in line.split(";")]
            tables.setdefault(table, []).append(hex_cp(cp))
    return tables


def in_unassigned_ranges(cp):
    """The ranges the unassigned-code-point predicate checks besides its table."""
    if (0x10A59 <= cp <= 0x11FFF or 0x12474 <= cp <= 0x1CFFF or 0x1D800 <= cp <= 0x1FFFD
            or 0x2A6D7 <= cp <= 0x2F7FF or 0xE01F0 <= cp <= 0xEFFFD):
        return True
    return 0x30000 <= cp <= 0xDFFFD and (cp & 0xFFFF) < 0xFFFE


def is_noncharacter(cp):
    return 0xFDD0 <= cp <= 0xFDEF or (cp & 0xFFFE) == 0xFFFE


def check_sorted(name, keys):
    for a, b in zip(keys, keys[1:]):
        if not a < b:
            raise DataError(f"{name} is not strictly ascending at {a!r}, {b!r}")


class Tables:
    def __init__(self, data_dir):
        uni = os.path.join(data_dir, "unicode")
        ud8, _ = read_unicode_data(os.path.join(uni, "UnicodeData-8.0.0.txt"))
        ud5, present5 = read_unicode_data(os.path.join(uni, "UnicodeData-5.0.0.txt"))
        props8 = read_property_file(os.path.join(uni, "DerivedNormalizationProps-8.0.0.txt"))
        props5 = read_property_file(os.path.join(uni, "DerivedNormalizationProps-5.0.0.txt"))
        folding = read_case_folding(os.path.join(uni, "CaseFolding-8.0.0.txt"))
        prep = read_stringprep(os.path.join(data_dir, "stringprep", "rfc3454-tables.txt"))

        self.combining_class = sorted((cp, int(f[3])) for cp, f in ud8 if f[3] != "0")
        self.canonical, self.compatibility = [], []
        for cp, f in ud8:
            mapping = f[5]
            if not mapping:
                continue
            if mapping.startswith("<"):
                parts = mapping.split()[1:]
                self.compatibility.append((cp, [hex_cp(x) for x in parts]))
            else:
                self.canonical.append((cp, [hex_cp(x) for x in mapping.split()]))
        self.canonical.sort()
        self.compatibility.sort()
        self.composition = sorted(
            (m[0], m[1], cp) for cp, m in self.canonical if len(m) == 2)

        def selected(rows, prop, values=None):
            return sorted(set(cp for cp, p, v in rows if p == prop and (values is None or v == values)))

        self.exclusion = selected(props5, "Full_Composition_Exclusion")
        self.nfd_no = selected(props8, "NFD_QC", ["N"])
        self.nfkd_no = selected(props8, "NFKD_QC", ["N"])
        self.nfc_no = selected(props8, "NFC_QC", ["N"])
        self.nfc_maybe = selected(props8, "NFC_QC", ["M"])
        self.nfkc_no = selected(props8, "NFKC_QC", ["N"])
        self.nfkc_maybe = selected(props8, "NFKC_QC", ["M"])
        self.folding = sorted(folding)
        self.closure = sorted((cp, [hex_cp(x) for x in v[0].split()])
                              for cp, p, v in props8 if p == "FC_NFKC")

        # Unicode 5.0: the code points below U+E0100 that no line covers,
        # apart from non-characters and what the predicate's ranges cover.
        self.unassigned = [cp for cp in range(0xE0100)
                           if cp not in present5 and not is_noncharacter(cp)
                           and not in_unassigned_ranges(cp)]
        self.marks = sorted(cp for cp, f in ud5 if f[2] in ("Mn", "Mc", "Me"))
        self.rand_al = sorted(cp for cp, f in ud5 if f[4] in ("R", "AL"))
        self.non_l = sorted(cp for cp, f in ud5 if f[4] != "L" and cp <= 0xE01EF)

        self.map_to_nothing = sorted(prep.get("B.1", []))
        self.non_ascii_space = sorted(prep.get("C.1.2", []))
        self.non_ascii_control = sorted(prep.get("C.2.2", []))
        self.check()

    def counts(self):
        return {
            "g_CombiningClass_Table": len(self.combining_class),
            "g_CanonicalDecomposition_Table": len(self.canonical),
            "g_CompatibilityDecomposition_Table": len(self.compatibility),
            "g_CanonicalComposition_Table": len(self.composition),
            "g_Full_Composition_Exclusion_Table": len(self.exclusion),
            "g_NFD_Quick_Check_No_Table": len(self.nfd_no),
            "g_NFKD_Quick_Check_No_Table": len(self.nfkd_no),
            "g_NFC_Quick_Check_No_Table": len(self.nfc_no),
            "g_NFC_Quick_Check_Maybe_Table": len(self.nfc_maybe),
            "g_NFKC_Quick_Check_No_Table": len(self.nfkc_no),
            "g_NFKC_Quick_Check_Maybe_Table": len(self.nfkc_maybe),
            "g_FullCaseFolding_Table": len(self.folding),
            "g_FC_NFKC_ClosureCaseFolding_Table": len(self.closure),
            "g_unassignedCodePoint_Table": len(self.unassigned),
            "g_CombiningMarks_Table": len(self.marks),
            "g_BidiChar_Table": len(self.rand_al),
            "g_NonL_Table": len(self.non_l),
            "g_CommonMaptoNothing_Table": len(self.map_to_nothing),
            "g_NonASCIISpace_Table": len(self.non_ascii_space),
            "g_NonASCIIControl_Table": len(self.non_ascii_control),
        }

    def check(self):
        problems = []
        for name, count in self.counts().items():
            if count != EXPECTED[name]:
                problems.append(f"{name}: {count} rows, expected {EXPECTED[name]}")
        if problems:
            raise DataError("; ".join(problems))

        for name, keys in [
            ("g_CombiningClass_Table", [r[0] for r in self.combining_class]),
            ("g_CanonicalDecomposition_Table", [r[0] for r in self.canonical]),
            ("g_CompatibilityDecomposition_Table", [r[0] for r in self.compatibility]),
            ("g_CanonicalComposition_Table", [r[:2] for r in self.composition]),
            ("g_FullCaseFolding_Table", [r[0] for r in self.folding]),
            ("g_FC_NFKC_ClosureCaseFolding_Table", [r[0] for r in self.closure]),
        ]:
            check_sorted(name, keys)
        for name in ("exclusion", "nfd_no", "nfkd_no", "nfc_no", "nfc_maybe", "nfkc_no",
                     "nfkc_maybe", "unassigned", "marks", "rand_al", "non_l", "map_to_nothing",
                     "non_ascii_space", "non_ascii_control"):
            check_sorted(name, getattr(self, name))

        if any(not 1 <= len(m) <= 2 for _, m in self.canonical):
            raise DataError("a canonical mapping is not 1 or 2 code points long")
        if any(not 1 <= len(m) <= MAX_COMPATIBILITY_MAPPING for _, m in self.compatibility):
            raise DataError("a compatibility mapping does not fit its row")
        if any(not 1 <= len(m) <= MAX_FOLDING_MAPPING for _, m in self.folding + self.closure):
            raise DataError("a case folding does not fit its row")
        if set(r[0] for r in self.canonical) & set(r[0] for r in self.compatibility):
            raise DataError("a code point has both a canonical and a compatibility mapping")

        # What the quick-check sets must be, derived from the mappings.
        hangul = set(range(S_BASE, S_BASE + S_COUNT))
        canonical = set(r[0] for r in self.canonical)
        compatibility = set(r[0] for r in self.compatibility)
        if set(self.nfd_no) != canonical | hangul:
            raise DataError("NFD_QC=No is not the canonical decompositions plus Hangul")
        if set(self.nfkd_no) != canonical | compatibility | hangul:
            raise DataError("NFKD_QC=No is not every decomposition plus Hangul")
        if self.nfc_maybe != self.nfkc_maybe:
            raise DataError("the NFC and NFKC Maybe sets differ")

        # The folding walk looks at every code point it produces again (U+03F9
        # folds to U+03F2, which the closure rows fold on to U+03C3); it must
        # come to rest.
        folds = dict(self.folding)
        closure = dict(self.closure)
        for table in (folds, closure):
            for start in table:
                pending, steps = [start], 0
                while pending:
                    cp = pending.pop()
                    mapping = folds.get(cp) or closure.get(cp)
                    if mapping:
                        pending.extend(mapping)
                        steps += 1
                        if steps > 8:
                            raise DataError(f"folding U+{start:04X} does not come to rest")

        # First and last rows as the family's documentation states them.
        expect = [
            (self.combining_class[0], (0x0300, 230)),
            (self.combining_class[-1], (0x1E8D6, 220)),
            (self.canonical[0], (0x00C0, [0x0041, 0x0300])),
            (self.canonical[-1], (0x2FA1D, [0x2A600])),
            (self.compatibility[0], (0x00A0, [0x0020])),
            (self.compatibility[-1][0], 0x1F251),
            (self.composition[0], (0x003C, 0x0338, 0x226E)),
            (self.exclusion[0], 0x0340),
            ((self.nfc_maybe[0], self.nfc_maybe[-1]), (0x0300, 0x115AF)),
            (self.folding[0], (0x0041, [0x0061])),
            (self.folding[-1][0], 0x118BF),
            (self.closure[0], (0x037A, [0x0020, 0x03B9])),
            ((self.unassigned[0], self.unassigned[-1]), (0x0370, 0xE00FF)),
            ((self.marks[0], self.marks[-1]), (0x0300, 0xE01EF)),
            ((self.non_l[0], self.non_l[-1]), (0x0000, 0xE01EF)),
            ((self.non_ascii_space[0], self.non_ascii_space[-1]), (0x00A0, 0x3000)),
            ((self.non_ascii_control[0], self.non_ascii_control[-1]), (0x0080, 0x1D17A)),
        ]
        for got, want in expect:
            if got != want:
                raise DataError(f"unexpected table edge {got!r}, expected {want!r}")
        if dict(self.combining_class).get(0x1172B) != 9:
            raise DataError("U+1172B does not have combining class 9")
        if dict(self.compatibility).get(0xFDFA, []).__len__() != 18:
            raise DataError("U+FDFA does not map to 18 code points")

    # ---- the property trie --------------------------------------------------

    def full_length(self, cp, compatibility):
        """UTF-16 units of the full decomposition of cp: the one-level tables
        applied again to every code point they produce, in the normalizer's
        order (canonical, then compatibility, then Hangul)."""
        canonical = self._canonical_map
        compat = self._compat_map
        if cp in canonical:
            return sum(self.full_length(c, compatibility) for c in canonical[cp])
        if compatibility and cp in compat:
            return sum(self.full_length(c, compatibility) for c in compat[cp])
        if S_BASE <= cp < S_BASE + S_COUNT:
            return 2 if (cp - S_BASE) % T_COUNT == 0 else 3
        return 1 if cp < 0x10000 else 2

    def full_decomposition(self, cp, compatibility):
        """The code points of the full decomposition of cp, in the order the
        one-level tables give them: canonical, then compatibility, then the
        Hangul arithmetic, applied again to everything they produce."""
        canonical = self._canonical_map
        compat = self._compat_map
        if cp in canonical:
            return [c for m in canonical[cp] for c in self.full_decomposition(m, compatibility)]
        if compatibility and cp in compat:
            return [c for m in compat[cp] for c in self.full_decomposition(m, compatibility)]
        if S_BASE <= cp < S_BASE + S_COUNT:
            s = cp - S_BASE
            out = [L_BASE + s // N_COUNT, V_BASE + s % N_COUNT // T_COUNT]
            return out + ([T_BASE + s % T_COUNT] if s % T_COUNT else [])
        return [cp]

    def full_decomposition_pool(self):
        """The full decompositions of every code point with a row, canonical
        and compatibility, as one pool: at each offset the count, then the
        code points. Offset 0 holds nothing (it means no decomposition), and
        equal sequences share one place. Returns the pool and, per code
        point, the offsets of its canonical and compatibility decompositions
        (0 for a form in which it has none)."""
        self._canonical_map = dict(self.canonical)
        self._compat_map = dict(self.compatibility)
        pool, where, offsets = [0], {}, {}

        def place(seq):
            key = tuple(seq)
            if key not in where:
                where[key] = len(pool)
                pool.append(len(seq))
                pool.extend(seq)
            return where[key]

        for cp in sorted(set(self._canonical_map) | set(self._compat_map)):
            canonical = place(self.full_decomposition(cp, False)) if cp in self._canonical_map else 0
            offsets[cp] = (canonical, place(self.full_decomposition(cp, True)))
        if len(pool) > 0xFFFF:
            raise DataError("the full decomposition pool outgrows 16-bit offsets")
        return pool, offsets

    def properties(self):
        """One record per code point: (bits, decomposition, folding,
        composition, canonical length, compatibility length, canonical and
        compatibility pool offsets). Indices are
        row index + 1, 0 meaning no row: decomposition in the canonical or
        the compatibility table (the bits say which), folding in the full
        folding table or, for code points without a row there, in the
        closure table, composition the first row whose first code point is
        this one. Lengths count UTF-16 units and are 0 when the code point
        is its own decomposition or is a Hangul syllable (the normalizer
        computes those). The pool offsets locate the full decompositions in
        full_decomposition_pool(), 0 meaning none in that form."""
        self._canonical_map = dict(self.canonical)
        self._compat_map = dict(self.compatibility)
        n = MAX_CODE_POINT + 1
        bits = [0] * n
        for cp, cc in self.combining_class:
            bits[cp] |= cc
        for name in ("nfd_no", "nfkd_no", "nfc_no", "nfc_maybe", "nfkc_no", "nfkc_maybe"):
            for cp in getattr(self, name):
                bits[cp] |= BITS[name]
        for cp in self.exclusion:
            bits[cp] |= BITS["composition_excluded"]
        for name, attr in (("map_to_nothing", "map_to_nothing"),
                           ("non_ascii_space", "non_ascii_space"),
                           ("non_ascii_control", "non_ascii_control"),
                           ("rand_al", "rand_al"), ("non_l", "non_l"), ("mark", "marks")):
            for cp in getattr(self, attr):
                bits[cp] |= BITS[name]
        unassigned = set(self.unassigned)
        for cp in range(n):
            if cp in unassigned or in_unassigned_ranges(cp):
                bits[cp] |= BITS["unassigned"]

        extra = {}

        def record(cp):
            return extra.setdefault(cp, [0, 0, 0, 0, 0, 0, 0])

        for i, (cp, _) in enumerate(self.canonical):
            bits[cp] |= BITS["canonical"]
            record(cp)[0] = i + 1
        for i, (cp, _) in enumerate(self.compatibility):
            bits[cp] |= BITS["compatibility"]
            record(cp)[0] = i + 1
        for i, (cp, _) in enumerate(self.folding):
            bits[cp] |= BITS["folds"]
            record(cp)[1] = i + 1
        for i, (cp, _) in enumerate(self.closure):
            bits[cp] |= BITS["closure_folds"]
            if record(cp)[1] == 0:
                record(cp)[1] = i + 1
        for i, (first, second, _) in enumerate(self.composition):
            bits[first] |= BITS["composition_first"]
            bits[second] |= BITS["composition_second"]
            r = record(first)
            if r[2] == 0:
                r[2] = i + 1
        pool, offsets = self.full_decomposition_pool()
        for cp in set(self._canonical_map) | set(self._compat_map):
            r = record(cp)
            if cp in self._canonical_map:
                r[3] = self.full_length(cp, False)
            r[4] = self.full_length(cp, True)
            r[5], r[6] = offsets[cp]
        for r in extra.values():
            if max(r) > 0xFFFF or r[3] > 0xFF or r[4] > 0xFF:
                raise DataError("a trie record field overflows")

        values = {}
        value_list = []
        index = [0] * n
        for cp in range(n):
            key = (bits[cp],) + tuple(extra.get(cp, (0, 0, 0, 0, 0, 0, 0)))
            v = values.get(key)
            if v is None:
                v = values[key] = len(value_list)
                value_list.append(key)
            index[cp] = v
        if len(value_list) > 0xFFFF:
            raise DataError("too many distinct property records")

        size = 1 << BLOCK_SHIFT
        blocks, block_ids, stage1 = [], {}, []
        for start in range(0, n, size):
            block = tuple(index[start:start + size])
            b = block_ids.get(block)
            if b is None:
                b = block_ids[block] = len(blocks)
                blocks.append(block)
            stage1.append(b)
        if len(blocks) * size > 0x10000:
            raise DataError("the trie's second stage outgrows 16-bit offsets")
        return value_list, stage1, blocks

    def quick_check_inert_below(self):
        """The smallest code point with a combining class, a quick-check row or
        a decomposition: below it every code point passes every quick check
        and decomposes to itself."""
        return min(self.combining_class[0][0], self.canonical[0][0],
                   self.compatibility[0][0], self.nfd_no[0], self.nfkd_no[0],
                   self.nfc_no[0], self.nfc_maybe[0], self.nfkc_no[0], self.nfkc_maybe[0])

    def quick_check_yes_below(self):
        """Per form (NFD, NFC, NFKD, NFKC), the smallest code point with a
        combining class or a No or Maybe in that form's quick check."""
        first_mark = self.combining_class[0][0]
        return [min(first_mark, *(t[0] for t in tables)) for tables in
                ((self.nfd_no,), (self.nfc_no, self.nfc_maybe), (self.nfkd_no,),
                 (self.nfkc_no, self.nfkc_maybe))]

    def check_quick_check_ranges(self):
        """The ranges the quick check passes without look-ups: the CJK
        ideographs in every form, the Hangul syllables in the composing
        forms. Each must hold starters that pass those forms' checks."""
        marks = {cp for cp, _ in self.combining_class}
        every = marks | set(self.nfd_no) | set(self.nfkd_no) | set(self.nfc_no) | \
            set(self.nfc_maybe) | set(self.nfkc_no) | set(self.nfkc_maybe)
        composing = marks | set(self.nfc_no) | set(self.nfc_maybe) | set(self.nfkc_no) | \
            set(self.nfkc_maybe)
        if any(cp in every for cp in range(QC_IDEOGRAPHS_FIRST, QC_IDEOGRAPHS_END)):
            raise DataError("the ideograph range does not pass every quick check")
        if any(cp in composing for cp in range(S_BASE, S_BASE + S_COUNT)):
            raise DataError("the Hangul syllables do not pass the composing quick checks")

    def max_decomposition_units(self):
        """The most UTF-16 units any full decomposition takes."""
        self._canonical_map = dict(self.canonical)
        self._compat_map = dict(self.compatibility)
        return max(self.full_length(cp, True) for cp in self._compat_map.keys() | self._canonical_map.keys())

    def first_composition_second(self):
        """The smallest code point that is the second of a composition pair."""
        return min(r[1] for r in self.composition)


# The composition hash: open addressing over 2^COMPOSITION_HASH_BITS slots,
# the slot of a pair being the top bits of (first << 21 | second) times
# COMPOSITION_HASH_MULTIPLIER, probed upwards. The generator places every
# pair and checks that none is further than COMPOSITION_HASH_MAX_PROBES
# slots from its own.
COMPOSITION_HASH_BITS = 12
COMPOSITION_HASH_MULTIPLIER = 0x5678E4727FD3D577
COMPOSITION_HASH_MAX_PROBES = 3


def composition_hash(pairs):
    """Slots of (first << 21 | second) << 21 | composite, 0 for an empty
    slot, holding every pair of the composition table whose composite is
    not excluded."""
    size = 1 << COMPOSITION_HASH_BITS
    slots = [0] * size
    longest = 0
    for first, second, composite in pairs:
        key = first << 21 | second
        h = ((key * COMPOSITION_HASH_MULTIPLIER) & 0xFFFFFFFFFFFFFFFF) >> (64 - COMPOSITION_HASH_BITS)
        probes = 1
        while slots[h] != 0:
            h = (h + 1) & (size - 1)
            probes += 1
        slots[h] = key << 21 | composite
        longest = max(longest, probes)
    if longest > COMPOSITION_HASH_MAX_PROBES:
        raise DataError(f"a composition pair lies {longest} slots from its own")
    return slots


def quick_check_trie(values, stage1, blocks, primary_pairs):
    """A second, smaller trie of normalization_bits(), for the normalizer's
    hot loops: blocks of QC_BLOCK_SHIFT bits, numbered in a byte."""
    per_cp = [normalization_bits(values[i][0]) for b in stage1 for i in blocks[b]]
    # The composition bits count only the pairs whose composite is not
    # excluded: the others never compose, and a letter that only they name
    # (most Hebrew and many Devanagari letters) is then inert.
    for cp in range(len(per_cp)):
        per_cp[cp] &= ~(NORMALIZATION_FIRST | NORMALIZATION_SECOND)
    for first, second, _ in primary_pairs:
        per_cp[first] |= NORMALIZATION_FIRST
        per_cp[second] |= NORMALIZATION_SECOND
    # The first bit also marks the starters that compose by arithmetic: the
    # leading consonants (L + V) and the LV syllables (LV + T, and the LV
    # rule), so that one bit tells whether a starter may take a follower.
    for cp in range(L_BASE, L_BASE + L_COUNT):
        per_cp[cp] |= NORMALIZATION_FIRST
    for cp in range(S_BASE, S_BASE + S_COUNT, T_COUNT):
        per_cp[cp] |= NORMALIZATION_FIRST
    size = 1 << QC_BLOCK_SHIFT
    qc_blocks, ids, qc_stage1 = [], {}, []
    for start in range(0, len(per_cp), size):
        block = tuple(per_cp[start:start + size])
        if block not in ids:
            ids[block] = len(qc_blocks)
            qc_blocks.append(block)
        qc_stage1.append(ids[block])
    if len(qc_blocks) > 256:
        raise DataError("the quick-check trie has more blocks than a byte numbers")
    return qc_stage1, qc_blocks


# ---- output ---------------------------------------------------------------


def fmt_cp(cp):
    return f"0x{cp:04X}"


def write_rows(out, decl, rows, per_line):
    out.append(f"{decl} = {{")
    for i in range(0, len(rows), per_line):
        out.append("    " + " ".join(r + "," for r in rows[i:i + per_line]))
    out.append("};")
    out.append("")


def generate(t):
    t.check_quick_check_ranges()
    out = [
        "// Generated by tools/gen_unicode_tables.py from data/unicode and",
        "// data/stringprep. Do not edit: change the generator or the data.",
        '#include "ustring/ORLIX_UString_Tables.hpp"',
        "",
        "namespace orlix::unicode {",
        "",
        f"static_assert(kPropertyBlockShift == {BLOCK_SHIFT}, \"generator and header disagree\");",
        f"static_assert(kNormalizationBlockShift == {QC_BLOCK_SHIFT} && kQuickCheckMask == 0x{QC_MASK:X},",
        '              "generator and header disagree");',
        f"static_assert(kQuickCheckInertBelow == {fmt_cp(t.quick_check_inert_below())},",
        '              "generator and header disagree");',
        f"static_assert(kFirstCompositionSecond == {fmt_cp(t.first_composition_second())},",
        '              "generator and header disagree");',
        "static_assert(kQuickCheckYesBelow[0] == {} && kQuickCheckYesBelow[1] == {} &&".format(
            *(fmt_cp(c) for c in t.quick_check_yes_below()[:2])),
        "              kQuickCheckYesBelow[2] == {} && kQuickCheckYesBelow[3] == {},".format(
            *(fmt_cp(c) for c in t.quick_check_yes_below()[2:])),
        '              "generator and header disagree");',
        f"static_assert(kQuickCheckIdeographsFirst == {fmt_cp(QC_IDEOGRAPHS_FIRST)} &&",
        f"              kQuickCheckIdeographsEnd == {fmt_cp(QC_IDEOGRAPHS_END)},",
        '              "generator and header disagree");',
        f"static_assert(kMaxDecompositionUnits == {t.max_decomposition_units()},",
        '              "generator and header disagree");',
        f"static_assert(kCompositionHashBits == {COMPOSITION_HASH_BITS} &&",
        f"              kCompositionHashMultiplier == 0x{COMPOSITION_HASH_MULTIPLIER:X}u &&",
        f"              kCompositionHashMaxProbes == {COMPOSITION_HASH_MAX_PROBES},",
        '              "generator and header disagree");',
        "",
    ]
    for name, value in BITS.items():
        out.append(f"static_assert(k{''.join(p.capitalize() for p in name.split('_'))} == "
                   f"0x{value:X}u, \"generator and header disagree\");")
    out.append("")

    write_rows(out, "const CombiningClassRow g_CombiningClass_Table[kCombiningClassRows]",
               [f"{{{fmt_cp(cp)}, {cc}}}" for cp, cc in t.combining_class], 6)

    def padded(mapping, width):
        return ", ".join(fmt_cp(c) for c in mapping + [0] * (width - len(mapping)))

    write_rows(out,
               "const CanonicalDecompositionRow "
               "g_CanonicalDecomposition_Table[kCanonicalDecompositionRows]",
               [f"{{{fmt_cp(cp)}, {{{padded(m, 2)}}}, {len(m)}}}" for cp, m in t.canonical], 3)

    pool, rows = [], []
    for cp, m in t.compatibility:
        rows.append(f"{{{fmt_cp(cp)}, {len(pool)}, {len(m)}}}")
        pool.extend(m)
    if len(pool) > 0xFFFF:
        raise DataError("the compatibility mapping pool outgrows 16-bit offsets")
    out.append(f"const uint32_t g_CompatibilityMapping_Pool[{len(pool)}] = {{")
    for i in range(0, len(pool), 10):
        out.append("    " + " ".join(fmt_cp(c) + "," for c in pool[i:i + 10]))
    out.append("};")
    out.append("")
    write_rows(out,
               "const CompatibilityDecompositionRow "
               "g_CompatibilityDecomposition_Table[kCompatibilityDecompositionRows]", rows, 4)

    write_rows(out,
               "const CanonicalCompositionRow "
               "g_CanonicalComposition_Table[kCanonicalCompositionRows]",
               [f"{{{fmt_cp(a)}, {fmt_cp(b)}, {fmt_cp(c)}}}" for a, b, c in t.composition], 4)

    for decl, cps in [
        ("g_Full_Composition_Exclusion_Table[kFullCompositionExclusionRows]", t.exclusion),
        ("g_NFD_Quick_Check_No_Table[kNfdQuickCheckNoRows]", t.nfd_no),
        ("g_NFKD_Quick_Check_No_Table[kNfkdQuickCheckNoRows]", t.nfkd_no),
        ("g_NFC_Quick_Check_No_Table[kNfcQuickCheckNoRows]", t.nfc_no),
        ("g_NFC_Quick_Check_Maybe_Table[kNfcQuickCheckMaybeRows]", t.nfc_maybe),
        ("g_NFKC_Quick_Check_No_Table[kNfkcQuickCheckNoRows]", t.nfkc_no),
        ("g_NFKC_Quick_Check_Maybe_Table[kNfkcQuickCheckMaybeRows]", t.nfkc_maybe),
        ("g_unassignedCodePoint_Table[kUnassignedCodePointRows]", t.unassigned),
        ("g_CombiningMarks_Table[kCombiningMarksRows]", t.marks),
        ("g_BidiChar_Table[kBidiCharRows]", t.rand_al),
        ("g_NonL_Table[kNonLRows]", t.non_l),
        ("g_CommonMaptoNothing_Table[kCommonMaptoNothingRows]", t.map_to_nothing),
        ("g_NonASCIISpace_Table[kNonAsciiSpaceRows]", t.non_ascii_space),
        ("g_NonASCIIControl_Table[kNonAsciiControlRows]", t.non_ascii_control),
    ]:
        write_rows(out, "const uint32_t " + decl, [fmt_cp(c) for c in cps], 10)

    for decl, table in [
        ("g_FullCaseFolding_Table[kFullCaseFoldingRows]", t.folding),
        ("g_FC_NFKC_ClosureCaseFolding_Table[kClosureCaseFoldingRows]", t.closure),
    ]:
        write_rows(out, "const CaseFoldingRow " + decl,
                   [f"{{{fmt_cp(cp)}, {{{padded(m, 4)}}}, {len(m)}}}" for cp, m in table], 2)

    excluded = set(t.exclusion)
    primary_pairs = [r for r in t.composition if r[2] not in excluded]
    values, stage1, blocks = t.properties()
    pool, _ = t.full_decomposition_pool()
    write_rows(out, f"const uint32_t g_FullDecomposition_Pool[{len(pool)}]",
               [fmt_cp(c) for c in pool], 10)
    slots = composition_hash(primary_pairs)
    write_rows(out, f"const uint64_t g_CompositionHash[{len(slots)}]",
               [f"0x{v:X}u" for v in slots], 4)
    qc_stage1, qc_blocks = quick_check_trie(values, stage1, blocks, primary_pairs)
    write_rows(out, f"const uint8_t g_NormalizationStage1[{len(qc_stage1)}]",
               [str(b) for b in qc_stage1], 16)
    qc_flat = [v for block in qc_blocks for v in block]
    write_rows(out, f"const uint16_t g_NormalizationStage2[{len(qc_flat)}]",
               [f"0x{v:X}" for v in qc_flat], 12)
    write_rows(out, f"const Properties g_PropertyValues[{len(values)}]",
               ["{" + f"0x{v[0]:X}u, " + ", ".join(str(x) for x in v[1:]) + "}" for v in values],
               3)
    write_rows(out, f"const uint16_t g_PropertyStage1[{len(stage1)}]",
               [str(b << BLOCK_SHIFT) for b in stage1], 16)
    flat = [v for block in blocks for v in block]
    write_rows(out, f"const uint16_t g_PropertyStage2[{len(flat)}]", [str(v) for v in flat], 16)

    out.append("}  // namespace orlix::unicode")
    size = (len(values) * 16 + len(stage1) * 2 + len(flat) * 2 + len(qc_stage1)
            + len(qc_flat) * 2)
    return "\n".join(out) + "\n", size


def generate_header():
    out = [
        "// Generated by tools/gen_unicode_tables.py: the row counts of the tables it",
        "// wrote, each checked against the shipped data. Do not edit.",
        "#pragma once",
        "",
        "#include <cstdint>",
        "",
        "namespace orlix::unicode {",
        "",
    ]
    for table, constant in ROW_CONSTANTS.items():
        out.append(f"inline constexpr int64_t {constant} = {EXPECTED[table]};")
    out += ["", "}  // namespace orlix::unicode", ""]
    return "\n".join(out)


def write_file(path, text):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(tmp, path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--data", required=True, help="the project's data directory")
    parser.add_argument("--output", required=True, help="the C++ source to write")
    parser.add_argument("--header", required=True, help="the header of row counts to write")
    parser.add_argument("--verbose", action="store_true", help="print the trie's size")
    args = parser.parse_args()
    try:
        tables = Tables(args.data)
        text, size = generate(tables)
    except (DataError, OSError, ValueError) as e:
        print(f"gen_unicode_tables: {e}", file=sys.stderr)
        return 1
    if args.verbose:
        print(f"gen_unicode_tables: property trie {size} bytes", file=sys.stderr)
    write_file(args.header, generate_header())
    write_file(args.output, text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
