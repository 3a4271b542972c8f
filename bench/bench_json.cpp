// JSON: decoding and compact encoding of three standard documents (twitter,
// citm_catalog, canada) against jansson (json_loadb, json_dumpb) and cJSON
// (cJSON_ParseWithLength, cJSON_PrintUnformatted). Every side of an operation
// is registered under one operation name ("json_decode/twitter/ours",
// ".../jansson", ".../cJSON"), so run-bench.sh prints one row per peer.
// Throughput counts the document's size in both directions, so the ratios
// are ratios of time per document.
//
// Decoding: each iteration parses the document from a buffer with its
// length and frees the tree. Encoding: the tree is parsed once; each
// iteration writes it compactly and releases the text (jansson writes into
// a buffer sized beforehand, as json_dumpb is meant to be used, so it does
// not allocate at all).
#include <cJSON.h>
#include <jansson.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"

namespace {

const char *const kDocuments[] = {"twitter", "citm_catalog", "canada"};

// The document's text, read once (empty when the file is missing).
const std::string &document(const std::string &name) {
  static std::map<std::string, std::string> loaded;
  if (auto it = loaded.find(name); it != loaded.end()) return it->second;
  std::ifstream in(std::string(ORLIX_BENCH_JSON_DIR) + "/" + name + ".json", std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return loaded[name] = buffer.str();
}

// ---- decode ------------------------------------------------------------------

void decode_ours(benchmark::State &state, const std::string &text) {
  bool ok = true;
  for (auto _ : state) {
    ORLIX_JSON *tree = orlix_json_decode(text.data(), static_cast<uint32_t>(text.size()));
    ok &= tree != nullptr;
    orlix_json_free(tree);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

void decode_jansson(benchmark::State &state, const std::string &text) {
  bool ok = true;
  for (auto _ : state) {
    json_error_t error;
    json_t *root = json_loadb(text.data(), text.size(), 0, &error);
    ok &= root != nullptr;
    json_decref(root);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

void decode_cjson(benchmark::State &state, const std::string &text) {
  bool ok = true;
  for (auto _ : state) {
    cJSON *root = cJSON_ParseWithLength(text.data(), text.size());
    ok &= root != nullptr;
    cJSON_Delete(root);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

// ---- encode ------------------------------------------------------------------

void encode_ours(benchmark::State &state, const std::string &text) {
  ORLIX_JSON *tree = orlix_json_decode(text.data(), static_cast<uint32_t>(text.size()));
  bool ok = tree != nullptr;
  for (auto _ : state) {
    char *out = nullptr;
    uint32_t length = 0;
    ok &= orlix_json_encode(tree, 0, &out, &length) == 1 && length > 0;
    orlix_free(out);
  }
  orlix_json_free(tree);
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

void encode_jansson(benchmark::State &state, const std::string &text) {
  json_error_t error;
  json_t *root = json_loadb(text.data(), text.size(), 0, &error);
  const size_t size = root ? json_dumpb(root, nullptr, 0, JSON_COMPACT) : 0;
  std::vector<char> buffer(size);
  bool ok = size > 0;
  for (auto _ : state) {
    ok &= json_dumpb(root, buffer.data(), buffer.size(), JSON_COMPACT) == size;
    benchmark::DoNotOptimize(buffer.data());
  }
  json_decref(root);
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

void encode_cjson(benchmark::State &state, const std::string &text) {
  cJSON *root = cJSON_ParseWithLength(text.data(), text.size());
  bool ok = root != nullptr;
  for (auto _ : state) {
    char *out = cJSON_PrintUnformatted(root);
    ok &= out != nullptr;
    cJSON_free(out);
  }
  cJSON_Delete(root);
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}

// Before timing: every side parses every document, and our compact text is
// JSON that jansson reads back with as many top-level entries.
bool check_documents() {
  for (const char *name : kDocuments) {
    const std::string &text = document(name);
    ORLIX_JSON *tree = orlix_json_decode(text.data(), static_cast<uint32_t>(text.size()));
    json_error_t error;
    json_t *root = json_loadb(text.data(), text.size(), 0, &error);
    cJSON *croot = cJSON_ParseWithLength(text.data(), text.size());
    char *out = nullptr;
    uint32_t length = 0;
    bool ok = tree && root && croot && orlix_json_encode(tree, 0, &out, &length) == 1;
    if (ok) {
      json_t *back = json_loadb(out, length, 0, &error);
      ok = back != nullptr && json_object_size(back) == json_object_size(root);
      json_decref(back);
    }
    if (!ok) std::fprintf(stderr, "bench_json: %s: a side failed the check\n", name);
    orlix_free(out);
    orlix_json_free(tree);
    json_decref(root);
    cJSON_Delete(croot);
    if (!ok) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (!check_documents()) return 1;
  orlix_bench::note_peer("jansson", JANSSON_VERSION);
  orlix_bench::note_peer("cJSON", cJSON_Version());
  for (const char *name : kDocuments) {
    const std::string &text = document(name);
    const std::string decode = std::string("json_decode/") + name;
    benchmark::RegisterBenchmark((decode + "/ours").c_str(), decode_ours, text);
    benchmark::RegisterBenchmark((decode + "/jansson").c_str(), decode_jansson, text);
    benchmark::RegisterBenchmark((decode + "/cJSON").c_str(), decode_cjson, text);
  }
  for (const char *name : kDocuments) {
    const std::string &text = document(name);
    const std::string encode = std::string("json_encode/") + name;
    benchmark::RegisterBenchmark((encode + "/ours").c_str(), encode_ours, text);
    benchmark::RegisterBenchmark((encode + "/jansson").c_str(), encode_jansson, text);
    benchmark::RegisterBenchmark((encode + "/cJSON").c_str(), encode_cjson, text);
  }
  return orlix_bench::run(argc, argv);
}
