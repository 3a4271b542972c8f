// Decodes each line of standard input in a fresh process and prints its
// compact encoding, or "-" when the decoder refuses it. Two lines come
// first: the decimal point of the C library's locale ("locale" as the first
// argument makes the probe adopt the environment's locale before anything
// else; "-" when that fails) and the nesting limit the library read when it
// was loaded. An argument "sort" encodes with ORLIX_JSON_ENCODE_SORT.
#include <clocale>
#include <cstdio>
#include <iostream>
#include <string>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"

int main(int argc, char **argv) {
  uint32_t flags = 0;
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]) == "sort") flags |= ORLIX_JSON_ENCODE_SORT;
  if (argc > 1 && std::string(argv[1]) == "locale" && std::setlocale(LC_ALL, "") == nullptr) {
    std::puts("-");
  } else {
    std::puts(std::localeconv()->decimal_point);
  }
  std::printf("%d\n", static_cast<int>(orlix_get_recursive_level()));
  for (std::string line; std::getline(std::cin, line);) {
    ORLIX_JSON *tree = orlix_json_decode(line.data(), static_cast<uint32_t>(line.size()));
    char *text = nullptr;
    uint32_t length = 0;
    if (tree != nullptr && orlix_json_encode(tree, flags, &text, &length) == 1) {
      std::fwrite(text, 1, length, stdout);
      std::putchar('\n');
    } else {
      std::puts("-");
    }
    orlix_free(text);
    orlix_json_free(tree);
  }
  return 0;
}
