/*
 * tour.c - one small use of each family of liborlix_util.
 */
#include <stdio.h>
#include <string.h>

#include <orlix_util.h>

static int json_part(void) {
  static const char text[] = "{\"name\":\"orlix\",\"tags\":[\"json\",\"idna\"],\"version\":2.6}";
  ORLIX_JSON *doc = orlix_json_decode(text, (uint32_t)strlen(text));
  char *out = NULL;
  uint32_t length = 0;
  if (doc == NULL) return 0;
  /* Getters borrow from the tree; nothing to free here. */
  printf("json    : name = %s\n", orlix_json_getstring(orlix_json_getobjectvalue(doc, "name", 4)));
  if (orlix_json_encode(doc, ORLIX_JSON_ENCODE_SORT, &out, &length)) {
    printf("json    : sorted = %s\n", out);
    orlix_free(out);
  }
  orlix_json_free(doc);
  return 1;
}

static int base64_part(void) {
  static const char secret[] = "certificate bytes";
  char *b64 = NULL, *pem = NULL;
  int64_t b64_length = 0, pem_length = 0;
  if (!orlix_base64encode(ORLIX_BASE64_EOL_NONE, secret, (int64_t)strlen(secret), &b64,
                          &b64_length) ||
      !orlix_pemencode("DATA", secret, (int64_t)strlen(secret), &pem, &pem_length))
    return 0;
  printf("base64  : %s\n", b64);
  printf("pem     : %lld bytes, first line %.*s\n", (long long)pem_length, 21, pem);
  orlix_free(b64);
  orlix_free(pem);
  return 1;
}

static int idna_part(void) {
  static const char name[] = "b\xC3\xBC" "cher.example"; /* "bücher.example" in UTF-8 */
  ORLIX_UString *domain = orlix_ustring_newutf8(name, (int64_t)strlen(name));
  char *ascii = NULL;
  int64_t length = 0;
  int ok = domain != NULL && orlix_ustring_idn_toascii(domain, 0, 1, 0, &ascii, &length);
  if (ok) printf("idna    : %s -> %s\n", name, ascii);
  orlix_free(ascii);
  orlix_ustring_free(domain);
  return ok;
}

static int time_part(void) {
  /* The last leap second so far, seen from Shanghai. */
  ORLIX_Time *utc = orlix_time_newutctime(2016, 12, 31, 23, 59, 60, 0);
  ORLIX_Time *local = orlix_time_utc2localbyzone("Asia/Shanghai", utc);
  int ok = local != NULL;
  if (ok)
    printf("time    : 2016-12-31 23:59:60 UTC is %04d-%02d-%02d %02d:%02d:%02d in Shanghai\n",
           orlix_time_getyear(local), orlix_time_getmonth(local), orlix_time_getday(local),
           orlix_time_gethour(local), orlix_time_getminute(local), orlix_time_getsecond(local));
  orlix_time_free(local);
  orlix_time_free(utc);
  return ok;
}

static int bigint_part(void) {
  ORLIX_BigInteger *a = orlix_biginteger_newdec("123456789012345678901234567890");
  ORLIX_BigInteger *m = orlix_biginteger_newdec("1000000007");
  ORLIX_BigInteger *r = orlix_biginteger_expmod(a, a, m);
  char *text = NULL;
  int64_t length = 0;
  int ok = r != NULL && orlix_biginteger_unsigned_todec(r, &text, &length);
  if (ok) printf("bigint  : a^a mod 1000000007 = %s\n", text);
  orlix_free(text);
  orlix_biginteger_free(r);
  orlix_biginteger_free(m);
  orlix_biginteger_free(a);
  return ok;
}

int main(void) {
  int ok = json_part() & base64_part() & idna_part() & time_part() & bigint_part();
  printf("%s\n", ok ? "tour complete" : "tour FAILED");
  return ok ? 0 : 1;
}
