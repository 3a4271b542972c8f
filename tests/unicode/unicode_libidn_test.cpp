// libidn as a second oracle for nameprep (stringprep_nameprep) and
// ToASCII of domain names (idna_to_ascii_8z), over the characters libidn
// knows as assigned (Unicode 3.2).
//
// libidn's tables are those of RFC 3454 (Unicode 3.2). Where the library's
// tables differ, they hold; the differences are named here and every one of
// them is checked to be a real difference:
//  - case mappings added after Unicode 3.2: U+04C0, U+10A0..U+10C5, U+2132
//    and U+2183 fold in Unicode 8.0; table B.2 leaves them;
//  - decompositions corrected in Unicode 4.0: U+2F868, U+2F874, U+2F91F,
//    U+2F95F, U+2F9BF;
//  - bidi class L since Unicode 5.0: U+0CBF, U+0CC6, U+2132, U+2800..U+28FF
//    (this one shows only next to right-to-left letters).
#include <idna.h>
#include <stringprep.h>

#include <cstring>
#include <map>
#include <random>

#include "unicode_test_util.hpp"

namespace {

using namespace unicode_test;

bool CaseMappingAdded(uint32_t cp) {
  return cp == 0x04C0 || (cp >= 0x10A0 && cp <= 0x10C5) || cp == 0x2132 || cp == 0x2183;
}
bool DecompositionCorrected(uint32_t cp) {
  return cp == 0x2F868 || cp == 0x2F874 || cp == 0x2F91F || cp == 0x2F95F || cp == 0x2F9BF;
}
bool BidiLSince50(uint32_t cp) {
  return cp == 0x0CBF || cp == 0x0CC6 || cp == 0x2132 || (cp >= 0x2800 && cp <= 0x28FF);
}
const char *NamedDifference(const CodePoints &cps) {
  for (uint32_t cp : cps) {
    if (CaseMappingAdded(cp)) return "case mapping added";
    if (DecompositionCorrected(cp)) return "decomposition corrected";
  }
  for (uint32_t cp : cps)
    if (BidiLSince50(cp)) return "bidi class L";
  return nullptr;
}

std::string Utf8Of(const ORLIX_UString *s) {
  char *out = nullptr;
  int64_t n = 0;
  if (s == nullptr || orlix_ustring_toutf8(s, &out, &n) != 1) return "-";
  Bytes owned(out);
  return std::string(out, size_t(n));
}

// libidn's nameprep of the text, or "-" when it refuses it; *unassigned is
// set when it refuses for an unassigned code point.
std::string LibidnNameprep(const std::string &utf8, bool allow_unassigned,
                           bool *unassigned = nullptr) {
  std::vector<char> buffer(utf8.size() * 8 + 64);
  std::memcpy(buffer.data(), utf8.data(), utf8.size());
  const int rc =
      stringprep(buffer.data(), buffer.size(),
                 allow_unassigned ? Stringprep_profile_flags(0) : STRINGPREP_NO_UNASSIGNED,
                 stringprep_nameprep);
  if (unassigned) *unassigned = rc == STRINGPREP_CONTAINS_UNASSIGNED;
  return rc == STRINGPREP_OK ? std::string(buffer.data()) : "-";
}

std::string OurNameprep(const ORLIX_UString *s, int32_t allow_unassigned) {
  UStr r(orlix_ustring_idn_stringprep(s, allow_unassigned));
  return Utf8Of(r.get());
}

// Every code point libidn knows as assigned, alone.
TEST(unicodeLibidn, EveryAssignedCodePoint) {
  std::map<std::string, int> named;
  int failures = 0;
  for (uint32_t cp = 1; cp <= 0x10FFFF && failures < 10; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    UStr s = Make({cp});
    const std::string utf8 = Utf8Of(s.get());
    bool unassigned = false;
    const std::string theirs = LibidnNameprep(utf8, false, &unassigned);
    if (unassigned) continue;
    const std::string ours = OurNameprep(s.get(), 0);
    const bool named_cp = CaseMappingAdded(cp) || DecompositionCorrected(cp);
    if ((ours != theirs) != named_cp && failures++ < 10)
      ADD_FAILURE() << "U+" << std::hex << cp << (named_cp ? " is named but agrees" : " differs");
    named[named_cp ? "named" : "same"]++;
  }
  EXPECT_EQ(named["named"], 1 + 38 + 1 + 1 + 5);
}

// Pools of text libidn knows: scripts, marks, compatibility forms, and the
// characters of the named differences. Hangul is left out of random text:
// the library's NFKC composes an LV syllable with any character above
// U+11A7 that follows it (the normalization and preparation suites check
// that rule against Python), which libidn does not do.
std::vector<uint32_t> Pool(std::mt19937 &rng) {
  static const std::vector<std::pair<uint32_t, uint32_t>> ranges[] = {
      {{0x61, 0x7A}, {0x41, 0x5A}, {0x30, 0x39}, {0xC0, 0x17F}},
      {{0x391, 0x3C9}, {0x400, 0x4FF}, {0x300, 0x36F}},
      {{0x5D0, 0x5EA}, {0x621, 0x64A}, {0x660, 0x669}, {0x64B, 0x655}, {0x30, 0x39}},
      {{0x3041, 0x30FF}, {0x4E00, 0x4E80}, {0x3041, 0x3096}},
      {{0xFB00, 0xFB06}, {0xFF01, 0xFF5E}, {0x2460, 0x24FF}, {0x3300, 0x33FF}, {0xAD, 0xAD}},
      {{0x2800, 0x2810},
       {0xCBF, 0xCBF},
       {0xCC6, 0xCC6},
       {0x10A0, 0x10C5},
       {0x2132, 0x2132},
       {0x2F868, 0x2F868},
       {0x4C0, 0x4C0},
       {0x5D0, 0x5EA},
       {0x61, 0x7A}},
  };
  const auto &pick = ranges[rng() % std::size(ranges)];
  std::vector<uint32_t> pool;
  for (const auto &r : pick)
    for (uint32_t cp = r.first; cp <= r.second; ++cp) pool.push_back(cp);
  return pool;
}

CodePoints RandomText(std::mt19937 &rng, int max_length) {
  CodePoints cps;
  const auto pool = Pool(rng);
  const int n = 1 + int(rng() % max_length);
  while (int(cps.size()) < n) {
    const uint32_t cp = pool[rng() % pool.size()];
    bool unassigned = false;
    LibidnNameprep(Utf8Of(Make({cp}).get()), false, &unassigned);
    if (!unassigned) cps.push_back(cp);
  }
  return cps;
}

TEST(unicodeLibidn, RandomNameprep) {
  std::mt19937 rng(3);
  std::map<std::string, int> explained;
  int failures = 0, accepted = 0;
  for (int round = 0; round < 4000; ++round) {
    const CodePoints cps = RandomText(rng, 10);
    UStr s = Make(cps);
    const std::string utf8 = Utf8Of(s.get());
    for (int allow = 0; allow <= 1; ++allow) {
      const std::string theirs = LibidnNameprep(utf8, allow);
      const std::string ours = OurNameprep(s.get(), allow);
      accepted += ours != "-";
      if (ours == theirs) continue;
      if (const char *why = NamedDifference(cps)) {
        explained[why]++;
      } else if (failures++ < 10) {
        ADD_FAILURE() << Hex(cps) << ": ours " << ours << ", libidn " << theirs;
      }
    }
  }
  EXPECT_GT(accepted, 2000);
  for (const auto &[why, n] : explained) std::printf("%s: %d differences\n", why.c_str(), n);
}

std::string OurToAscii(const ORLIX_UString *s, int32_t std3) {
  char *out = nullptr;
  int64_t n = 0;
  if (orlix_ustring_idn_toascii(s, 0, std3, 0, &out, &n) != 1) return "-";
  Bytes owned(out);
  return std::string(out, size_t(n));
}

std::string LibidnToAscii(const std::string &utf8, int flags) {
  char *out = nullptr;
  if (idna_to_ascii_8z(utf8.c_str(), &out, flags) != IDNA_SUCCESS) return "-";
  std::string r(out);
  std::free(out);
  return r;
}

TEST(unicodeLibidn, RandomDomainsToAscii) {
  std::mt19937 rng(5);
  const uint32_t separators[] = {0x2E, 0x3002, 0xFF0E, 0xFF61};
  const uint32_t std3_breakers[] = {'_', '*', '-', ' ', '/'};
  std::map<std::string, int> explained;
  int failures = 0, accepted = 0;
  for (int round = 0; round < 3000; ++round) {
    CodePoints cps;
    const int labels = 1 + int(rng() % 3);
    for (int l = 0; l < labels; ++l) {
      if (l > 0) cps.push_back(separators[rng() % 4]);
      CodePoints label = RandomText(rng, 12);
      if (rng() % 4 == 0)
        label.insert(label.begin() + rng() % label.size(), std3_breakers[rng() % 5]);
      cps.insert(cps.end(), label.begin(), label.end());
    }
    UStr s = Make(cps);
    const std::string utf8 = Utf8Of(s.get());
    for (int std3 = 0; std3 <= 1; ++std3) {
      const std::string ours = OurToAscii(s.get(), std3);
      const std::string theirs = LibidnToAscii(utf8, std3 ? IDNA_USE_STD3_ASCII_RULES : 0);
      accepted += ours != "-";
      if (ours == theirs) continue;
      if (const char *why = NamedDifference(cps)) {
        explained[why]++;
      } else if (failures++ < 10) {
        ADD_FAILURE() << Hex(cps) << " std3 " << std3 << ": ours " << ours << ", libidn " << theirs;
      }
    }
  }
  EXPECT_GT(accepted, 1500);
  for (const auto &[why, n] : explained) std::printf("%s: %d differences\n", why.c_str(), n);
}

}  // namespace
