// JSON: decoding and compact encoding of three standard documents (twitter,
// citm_catalog, canada) against jansson (json_loadb, json_dumpb), cJSON
// (cJSON_ParseWithLength, cJSON_PrintUnformatted), RapidJSON (a DOM Document
// parsed with kParseDefaultFlags from the buffer; a Writer into a
// StringBuffer), json-c (json_tokener_parse_ex with the length;
// json_object_to_json_string_length, plain) and simdjson (dom::parser; its
// minify of the parsed element). simdjson stands for the practical limit of
// a validating parser. Every side of an operation is registered under one
// operation name ("json_decode/twitter/ours", ".../jansson", ...), so
// run-bench.sh prints one row per peer. RapidJSON, json-c and simdjson are
// optional: a peer the build did not find is left out.
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
#if ORLIX_BENCH_HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#if ORLIX_BENCH_HAVE_SIMDJSON
#include <simdjson.h>
#endif

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"
#if ORLIX_BENCH_HAVE_JSONC
#include "json_c_peer.hpp"
#endif

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

#if ORLIX_BENCH_HAVE_RAPIDJSON
void decode_rapidjson(benchmark::State &state, const std::string &text) {
  bool ok = true;
  for (auto _ : state) {
    rapidjson::Document doc;
    doc.Parse<rapidjson::kParseDefaultFlags>(text.data(), text.size());
    ok &= !doc.HasParseError();
    benchmark::DoNotOptimize(doc);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

#if ORLIX_BENCH_HAVE_JSONC
void decode_jsonc(benchmark::State &state, const std::string &text) {
  bool ok = true;
  json_c_peer::Parser parser;
  for (auto _ : state) ok &= parser.parse_and_free(text);
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

#if ORLIX_BENCH_HAVE_SIMDJSON
// The parser keeps its buffers from one document to the next, as simdjson
// is meant to be used; the text is copied once into a padded buffer.
void decode_simdjson(benchmark::State &state, const std::string &text) {
  simdjson::dom::parser parser;
  const simdjson::padded_string padded(text);
  bool ok = true;
  for (auto _ : state) {
    simdjson::dom::element root;
    ok &= parser.parse(padded).get(root) == simdjson::SUCCESS;
    benchmark::DoNotOptimize(root);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

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

#if ORLIX_BENCH_HAVE_RAPIDJSON
void encode_rapidjson(benchmark::State &state, const std::string &text) {
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseDefaultFlags>(text.data(), text.size());
  bool ok = !doc.HasParseError();
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    ok &= doc.Accept(writer) && buffer.GetSize() > 0;
    benchmark::DoNotOptimize(buffer.GetString());
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

#if ORLIX_BENCH_HAVE_JSONC
// json-c keeps the text in the root and reuses its buffer on the next call.
void encode_jsonc(benchmark::State &state, const std::string &text) {
  json_c_peer::Tree tree(text);
  bool ok = tree.ok();
  for (auto _ : state) {
    const char *out = tree.write();
    ok &= out != nullptr;
    benchmark::DoNotOptimize(out);
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

#if ORLIX_BENCH_HAVE_SIMDJSON
void encode_simdjson(benchmark::State &state, const std::string &text) {
  simdjson::dom::parser parser;
  simdjson::dom::element root;
  bool ok = parser.parse(text).get(root) == simdjson::SUCCESS;
  for (auto _ : state) {
    const std::string out = simdjson::minify(root);
    ok &= !out.empty();
    benchmark::DoNotOptimize(out.data());
  }
  orlix_bench::finish(state, ok, static_cast<int64_t>(text.size()));
}
#endif

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
#if ORLIX_BENCH_HAVE_RAPIDJSON
  orlix_bench::note_peer("RapidJSON", RAPIDJSON_VERSION_STRING);
#endif
#if ORLIX_BENCH_HAVE_JSONC
  orlix_bench::note_peer("json-c", json_c_peer::version());
#endif
#if ORLIX_BENCH_HAVE_SIMDJSON
  orlix_bench::note_peer("simdjson", std::to_string(simdjson::SIMDJSON_VERSION_MAJOR) + "." +
                                         std::to_string(simdjson::SIMDJSON_VERSION_MINOR) + "." +
                                         std::to_string(simdjson::SIMDJSON_VERSION_REVISION));
#endif
  for (const char *name : kDocuments) {
    const std::string &text = document(name);
    const std::string decode = std::string("json_decode/") + name;
    benchmark::RegisterBenchmark((decode + "/ours").c_str(), decode_ours, text);
    benchmark::RegisterBenchmark((decode + "/jansson").c_str(), decode_jansson, text);
    benchmark::RegisterBenchmark((decode + "/cJSON").c_str(), decode_cjson, text);
#if ORLIX_BENCH_HAVE_RAPIDJSON
    benchmark::RegisterBenchmark((decode + "/RapidJSON").c_str(), decode_rapidjson, text);
#endif
#if ORLIX_BENCH_HAVE_JSONC
    benchmark::RegisterBenchmark((decode + "/json-c").c_str(), decode_jsonc, text);
#endif
#if ORLIX_BENCH_HAVE_SIMDJSON
    benchmark::RegisterBenchmark((decode + "/simdjson").c_str(), decode_simdjson, text);
#endif
  }
  for (const char *name : kDocuments) {
    const std::string &text = document(name);
    const std::string encode = std::string("json_encode/") + name;
    benchmark::RegisterBenchmark((encode + "/ours").c_str(), encode_ours, text);
    benchmark::RegisterBenchmark((encode + "/jansson").c_str(), encode_jansson, text);
    benchmark::RegisterBenchmark((encode + "/cJSON").c_str(), encode_cjson, text);
#if ORLIX_BENCH_HAVE_RAPIDJSON
    benchmark::RegisterBenchmark((encode + "/RapidJSON").c_str(), encode_rapidjson, text);
#endif
#if ORLIX_BENCH_HAVE_JSONC
    benchmark::RegisterBenchmark((encode + "/json-c").c_str(), encode_jsonc, text);
#endif
#if ORLIX_BENCH_HAVE_SIMDJSON
    benchmark::RegisterBenchmark((encode + "/simdjson").c_str(), encode_simdjson, text);
#endif
  }
  return orlix_bench::run(argc, argv);
}
