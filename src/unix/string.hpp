// Conversions between UTF-16 units and bytes in a named charset, through
// iconv with UTF-16BE as the pivot, or the application's callbacks.
#pragma once

#include <cstdint>

// in_count bytes in `charset` to at most out_capacity units. 1 or 0.
int orlix_imbstowcs(const char *charset, const char *in, int64_t in_count, uint16_t *out,
                    int64_t out_capacity, int64_t *out_count);

// in_count units to at most out_capacity bytes in `charset`. 1 or 0.
int orlix_iwcstombs(const char *charset, const uint16_t *in, int64_t in_count, char *out,
                    int64_t out_capacity, int64_t *out_count);
