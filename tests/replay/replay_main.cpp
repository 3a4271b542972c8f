// Runs a fuzz target over files, without libFuzzer: each argument is a seed
// file or a folder of them. A violated property aborts, as under the fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto &e : std::filesystem::directory_iterator(argv[i])) files.push_back(e.path());
    } else {
      files.emplace_back(argv[i]);
    }
    for (const auto &f : files) {
      std::ifstream in(f, std::ios::binary);
      const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++runs;
    }
  }
  std::printf("%d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
