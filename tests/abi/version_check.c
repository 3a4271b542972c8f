/* The compile-time version macros agree with each other and with the
 * version the shared object reports at run time. */
#include <stdio.h>
#include <string.h>

#include <ORLIX_Util.h>

#define STR_(x) #x
#define STR(x) STR_(x)

int main(void) {
  static const char joined[] = STR(ORLIX_UTIL_VERSION_MAJOR) "." STR(
      ORLIX_UTIL_VERSION_MINOR) "." STR(ORLIX_UTIL_VERSION_PATCH);
  static const char runtime_prefix[] =
      "ORLIX Utility Library " STR(ORLIX_UTIL_VERSION_MAJOR) "." STR(ORLIX_UTIL_VERSION_MINOR) ",";
  const char *runtime = orlix_util_version();
  int failures = 0;
  if (strcmp(joined, ORLIX_UTIL_VERSION_STRING) != 0) {
    printf("ORLIX_UTIL_VERSION_STRING is %s, the three numbers say %s\n", ORLIX_UTIL_VERSION_STRING,
           joined);
    ++failures;
  }
  if (runtime == NULL || strncmp(runtime, runtime_prefix, sizeof runtime_prefix - 1) != 0) {
    printf("orlix_util_version() is \"%s\", expected it to begin \"%s\"\n",
           runtime != NULL ? runtime : "(null)", runtime_prefix);
    ++failures;
  }
  if (failures == 0) printf("version %s agrees with \"%s\"\n", joined, runtime);
  return failures == 0 ? 0 : 1;
}
