#include "json_c_peer.hpp"

#include <json-c/json.h>

namespace json_c_peer {

const char *version() { return json_c_version(); }

Parser::Parser() : tokener_(json_tokener_new()) {}

Parser::~Parser() { json_tokener_free(static_cast<json_tokener *>(tokener_)); }

bool Parser::parse_and_free(const std::string &text) {
  auto *tokener = static_cast<json_tokener *>(tokener_);
  json_tokener_reset(tokener);
  json_object *root = json_tokener_parse_ex(tokener, text.data(), static_cast<int>(text.size()));
  const bool ok = root != nullptr;
  json_object_put(root);
  return ok;
}

Tree::Tree(const std::string &text) {
  json_tokener *tokener = json_tokener_new();
  root_ = json_tokener_parse_ex(tokener, text.data(), static_cast<int>(text.size()));
  json_tokener_free(tokener);
}

Tree::~Tree() { json_object_put(static_cast<json_object *>(root_)); }

const char *Tree::write() {
  size_t length = 0;
  const char *out = json_object_to_json_string_length(static_cast<json_object *>(root_),
                                                      JSON_C_TO_STRING_PLAIN, &length);
  return length > 0 ? out : nullptr;
}

}  // namespace json_c_peer
