// Normalization, case folding, the two preparation profiles and IDNA. The
// inputs are made with injection paused; each scenario sweeps the one
// operation and checks its result when it completes.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "sweep.hpp"
#include "owned.hpp"

namespace {

using UStr = orlix_test::UStr;

UStr Input(const std::vector<uint64_t> &cps) {
  oom::PauseInjection pause;
  return UStr(orlix_ustring_newutf32(cps.data(), static_cast<int64_t>(cps.size())));
}

UStr Input(const char *utf8) {
  oom::PauseInjection pause;
  return UStr(orlix_ustring_newutf8(utf8, static_cast<int64_t>(std::strlen(utf8))));
}

std::vector<uint64_t> CodePoints(const ORLIX_UString *s) {
  oom::PauseInjection pause;
  uint64_t *cps = nullptr;
  int64_t n = 0;
  if (orlix_ustring_toutf32(s, &cps, &n) != 1) return {};
  std::vector<uint64_t> out(cps, cps + n);
  orlix_free(cps);
  return out;
}

// Text that every form changes, with a run of more than 32 marks (the
// ordering and composition work areas outgrow their fixed room) and
// decompositions that outgrow the first buffer.
std::vector<uint64_t> BusyText() {
  std::vector<uint64_t> t = {0x1E9B, 0x0323, 'a'};
  for (int i = 0; i < 40; ++i) t.push_back(i % 2 ? 0x0301 : 0x0316);
  for (int i = 0; i < 30; ++i) t.push_back(0xFDFA);
  t.insert(t.end(), {0xAC01, 0x1100, 0x1161, 0x11A8, 0x1D15E, 0x0041, 0x030A});
  return t;
}

}  // namespace

ORLIX_OOM_SCENARIO(Unicode, NormalizeAllForms) {
  UStr text = Input(BusyText());
  size_t lengths[4] = {};
  for (int32_t form = 1; form <= 4; ++form) {
    UStr r(orlix_ustring_normalize(text.get(), form));
    if (!r) return false;
    EXPECT_NE(r.get(), text.get());
    lengths[form - 1] = CodePoints(r.get()).size();
  }
  EXPECT_EQ(lengths[0], 4u + 40 + 30 + 3 + 3 + 2 + 2);       // NFD
  EXPECT_EQ(lengths[2], 4u + 40 + 30 * 18 + 3 + 3 + 2 + 2);  // NFKD
  EXPECT_LT(lengths[1], lengths[0]);
  EXPECT_LT(lengths[3], lengths[2]);
  return true;
}

ORLIX_OOM_SCENARIO(Unicode, CaseFolding) {
  std::vector<uint64_t> cps;
  for (int i = 0; i < 600; ++i) cps.push_back(i % 3 ? 'A' + i % 26 : 0xDF);  // grows to 800
  UStr text = Input(cps);
  for (int32_t mode = 1; mode <= 2; ++mode) {
    UStr r(orlix_ustring_tocasefold(text.get(), mode));
    if (!r) return false;
    EXPECT_EQ(orlix_ustring_getcharcount(r.get()), 800);
  }
  return true;
}

ORLIX_OOM_SCENARIO(Unicode, LdapPreparation) {
  UStr text = Input(
      "  Caf\xC3\xA9\xEF\xAC\x81   +1-555\xE2\x80\x91"
      "0100 ");
  const struct {
    int64_t type;
    const char *expected;
  } cases[] = {{0,
                " Caf\xC3\xA9"
                "fi  +1-555\xE2\x80\x90"
                "0100 "},
               {1,
                " caf\xC3\xA9"
                "fi  +1-555\xE2\x80\x90"
                "0100 "},
               {5,
                " caf\xC3\xA9"
                "fi +15550100"}};
  for (const auto &c : cases) {
    UStr r(orlix_ustring_ldapi18nstringprep(c.type, text.get()));
    if (!r) return false;
    EXPECT_EQ(CodePoints(r.get()), CodePoints(Input(c.expected).get())) << c.type;
  }
  return true;
}

ORLIX_OOM_SCENARIO(Unicode, Nameprep) {
  UStr text = Input(
      "Stra\xC3\x9F"
      "e\xC2\xAD\xEF\xAC\x81\xE2\x85\xA3");
  UStr r(orlix_ustring_idn_stringprep(text.get(), 0));
  if (!r) return false;
  EXPECT_EQ(CodePoints(r.get()), CodePoints(Input("strassefiiv").get()));
  return true;
}

ORLIX_OOM_SCENARIO(Unicode, ToAscii) {
  UStr label = Input(
      "B\xC3\xBC"
      "cher");
  char *out = nullptr;
  int64_t n = 0;
  if (orlix_ustring_idnlabel_toascii(label.get(), 0, 1, 0, &out, &n) != 1) return false;
  EXPECT_STREQ(out, "xn--bcher-kva");
  orlix_free(out);

  UStr domain = Input(
      "B\xC3\xBC"
      "cher\xE3\x80\x82"
      "example\xEF\xBC\x8E\xE4\xBE\x8B\xE3\x81\x88");
  if (orlix_ustring_idn_toascii(domain.get(), 0, 1, 0, &out, &n) != 1) return false;
  EXPECT_STREQ(out, "xn--bcher-kva.example.xn--r8jz45g");
  orlix_free(out);
  return true;
}

// ToUnicode never fails: a failure shows as the argument given back.
ORLIX_OOM_SCENARIO(Unicode, ToUnicode) {
  UStr label = Input("xn--bcher-kva");
  UStr r(orlix_ustring_idnlabel_tounicode(label.get(), 0, 1, 0));
  EXPECT_NE(r, nullptr);
  if (r.get() == label.get()) return false;
  EXPECT_EQ(CodePoints(r.get()), CodePoints(Input("b\xC3\xBC"
                                                  "cher")
                                                .get()));

  // A label that fails comes back undecoded inside a decoded name.
  UStr domain = Input("xn--bcher-kva.example\xE3\x80\x82xn--r8jz45g");
  UStr d(orlix_ustring_idn_tounicode(domain.get(), 0, 1, 0));
  EXPECT_NE(d, nullptr);
  if (d.get() == domain.get() ||
      CodePoints(d.get()) != CodePoints(Input("b\xC3\xBC"
                                              "cher.example.\xE4\xBE\x8B\xE3\x81\x88")
                                            .get()))
    return false;
  return true;
}
