/* Prints the nesting limit that the library read at load time. */
#include <stdio.h>

#include "ORLIX_Util.h"

int main(void) {
  printf("%d\n", (int)orlix_get_recursive_level());
  return 0;
}
