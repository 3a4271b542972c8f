// json-c behind a small interface of its own: its headers and jansson's
// declare the same names (json_object, json_object_get), so the two cannot
// meet in one translation unit.
#pragma once

#include <string>

namespace json_c_peer {

const char *version();

// A tokener kept from one document to the next.
class Parser {
 public:
  Parser();
  ~Parser();
  Parser(const Parser &) = delete;
  Parser &operator=(const Parser &) = delete;
  // Parses the text from the buffer with its length and frees the tree.
  bool parse_and_free(const std::string &text);

 private:
  void *tokener_;
};

// A parsed document, written out compactly on request.
class Tree {
 public:
  explicit Tree(const std::string &text);
  ~Tree();
  Tree(const Tree &) = delete;
  Tree &operator=(const Tree &) = delete;
  bool ok() const { return root_ != nullptr; }
  // The plain text, kept in the tree until the next call (nullptr on failure).
  const char *write();

 private:
  void *root_;
};

}  // namespace json_c_peer
