// Internals of case folding and the string preparation profiles shared with
// IDNA and the tests.
#pragma once

#include <cstdint>

#include "ORLIX_UString.h"
#include "ustring/ORLIX_UString_Normalize.hpp"
#include "ustring/ORLIX_UString_Tables.hpp"

namespace orlix {

// The mapping step of the LDAP profile (RFC 4518 section 2.2), sorted by
// code point; a replacement of 0 maps the code point to nothing.
inline constexpr int64_t kLdapStringprepMapRows = 239;
extern const unicode::SingleMapRow *const g_ldapstringprepmap_Table;

// Comparators for orlix_bsearch; the key points to a uint32_t code point.
int SingleMapCmp(const void *key, const void *row);
int CaseFoldingCmp(const void *key, const void *row);

// The spaces and hyphens that telephone numbers drop (RFC 4518 section
// 2.6.3).
bool isprefixhyphens_space(uint16_t unit);

// The case folding of n units into a new string (mode 1: full folding; 2:
// full folding, then the FC_NFKC_Closure rows). Every code point a mapping
// produces is folded again. With drop_map_to_nothing, code points of RFC 3454
// table B.1 in the input are left out first. nullptr when memory runs out.
ORLIX_UString *fold_units(const uint16_t *units, int64_t n, int32_t mode, bool drop_map_to_nothing);

// nameprep of n units; nullptr when they are refused or memory runs out.
ORLIX_UString *nameprep_units(const uint16_t *units, int64_t n, bool allow_unassigned);

namespace lookup {

// The row for cp by binary search, or nullptr.
const unicode::CaseFoldingRow *full_folding(uint32_t cp);
const unicode::CaseFoldingRow *closure_folding(uint32_t cp);
const unicode::SingleMapRow *ldap_map(uint32_t cp);

}  // namespace lookup

}  // namespace orlix
