// Memory of a decoded JSON tree: ours against jansson and cJSON on the
// benchmark documents. Every side allocates through counting hooks
// (orlix_setallocfunc, installed before the library's first allocation;
// json_set_alloc_funcs; cJSON_InitHooks) that record the bytes requested and
// the bytes malloc really set aside (malloc_usable_size plus its 8-byte chunk
// header). For each document the program prints the footprint the tree keeps
// once decoded, the peak while decoding, and the number of blocks.
//
//   json_memory [directory holding twitter.json, citm_catalog.json, canada.json]
#include <cJSON.h>
#include <jansson.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"

namespace {

struct Counter {
  int64_t requested = 0;  // bytes asked for, live
  int64_t footprint = 0;  // bytes malloc set aside, live
  int64_t peak = 0;       // highest footprint since the last Reset
  int64_t blocks = 0;     // live blocks

  void Reset() { peak = footprint; }
};

Counter g_counter;

int64_t Chunk(size_t size) { return std::max<int64_t>(32, int64_t((size + 8 + 15) & ~size_t{15})); }

// Each block carries its requested size in a 16-byte prefix, so that the
// release can give it back to the count.
void *Take(size_t size) {
  auto *p = static_cast<unsigned char *>(std::malloc(size + 16));
  if (p == nullptr) return nullptr;
  *reinterpret_cast<size_t *>(p) = size;
  g_counter.requested += int64_t(size);
  g_counter.footprint += Chunk(size);
  g_counter.peak = std::max(g_counter.peak, g_counter.footprint);
  ++g_counter.blocks;
  return p + 16;
}

void Give(void *q) {
  if (q == nullptr) return;
  auto *p = static_cast<unsigned char *>(q) - 16;
  const size_t size = *reinterpret_cast<size_t *>(p);
  g_counter.requested -= int64_t(size);
  g_counter.footprint -= Chunk(size);
  --g_counter.blocks;
  std::free(p);
}

void *TakeOrlix(uint64_t size, const char *, int32_t) { return Take(size); }

struct Sample {
  int64_t kept = 0, peak = 0, blocks = 0, requested = 0;
};

// Decodes with `decode`, which returns the tree, measures, frees with `release`.
template <class Decode, class Release>
Sample Measure(Decode decode, Release release) {
  const Counter before = g_counter;
  g_counter.Reset();
  auto tree = decode();
  Sample s{g_counter.footprint - before.footprint, g_counter.peak - before.footprint,
           g_counter.blocks - before.blocks, g_counter.requested - before.requested};
  if (tree == nullptr) s.kept = -1;
  release(tree);
  return s;
}

}  // namespace

int main(int argc, char **argv) {
  if (orlix_setallocfunc(TakeOrlix, Give) != 1) {
    std::fprintf(stderr, "json_memory: the library allocated before the hooks\n");
    return 1;
  }
  json_set_alloc_funcs(Take, Give);
  cJSON_Hooks hooks{Take, Give};
  cJSON_InitHooks(&hooks);
  const std::string dir = argc > 1 ? argv[1] : ORLIX_BENCH_JSON_DIR;

  std::printf(
      "| document | size | ours kept | jansson kept | ours/jansson | cJSON kept | "
      "ours/cJSON | ours peak | jansson peak | cJSON peak | blocks ours/jansson/cJSON |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  int status = 0;
  for (const char *name : {"twitter", "citm_catalog", "canada"}) {
    std::ifstream in(dir + "/" + name + ".json", std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string text = buffer.str();
    const Sample ours = Measure(
        [&] { return orlix_json_decode(text.data(), uint32_t(text.size())); }, orlix_json_free);
    const Sample jansson = Measure(
        [&] {
          json_error_t error;
          return json_loadb(text.data(), text.size(), 0, &error);
        },
        [](json_t *t) { json_decref(t); });
    const Sample cjson =
        Measure([&] { return cJSON_ParseWithLength(text.data(), text.size()); }, cJSON_Delete);
    if (ours.kept < 0 || jansson.kept < 0 || cjson.kept < 0) {
      std::fprintf(stderr, "json_memory: %s did not decode on every side\n", name);
      status = 1;
      continue;
    }
    const auto mib = [](int64_t n) { return double(n) / (1 << 20); };
    std::printf(
        "| %s | %.2f MiB | %.2f MiB | %.2f MiB | %.2f | %.2f MiB | %.2f | %.2f MiB | "
        "%.2f MiB | %.2f MiB | %lld / %lld / %lld |\n",
        name, mib(int64_t(text.size())), mib(ours.kept), mib(jansson.kept),
        double(ours.kept) / double(jansson.kept), mib(cjson.kept),
        double(ours.kept) / double(cjson.kept), mib(ours.peak), mib(jansson.peak), mib(cjson.peak),
        static_cast<long long>(ours.blocks), static_cast<long long>(jansson.blocks),
        static_cast<long long>(cjson.blocks));
  }
  std::printf(
      "\nkept: malloc footprint of the decoded tree's blocks; "
      "peak: highest footprint while decoding.\n");
  return status;
}
