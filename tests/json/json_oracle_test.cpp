// Decode-then-encode against Python's json module. Thousands of generated
// documents, in the standard syntax both decoders accept and spelled at
// random, go to one python3 process, which decodes them with json.loads
// (repeated names kept in order) and writes each in the library's layouts;
// the library must produce the same bytes.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "json_test_util.hpp"

namespace {

using namespace json_test;

constexpr uint32_t kFlags[] = {
    0,
    ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_LF,
    ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_CR | ORLIX_JSON_ENCODE_LF |
        ORLIX_JSON_ENCODE_SPACES | 2,
    ORLIX_JSON_ENCODE_PRETTY,
};

// argv[1]: one hex-encoded document per line; argv[2]: the flags, comma
// separated. Prints per document the hex of each layout, space separated,
// or '-' when json.loads refuses the document.
const char kScript[] = R"PY(
import json, sys
PRETTY, SPACES, CR, LF = 0x80000000, 0x40000000, 0x20000000, 0x10000000

class Obj(list):
    pass

def number(x):
    f = float(x)
    if f == int(f) and -2147483648 <= f <= 2147483647:
        return b'%d' % int(f)
    t = '%f' % f
    t = t.rstrip('0')
    return (t[:-1] if t.endswith('.') else t).encode()

def quote(s):
    out = bytearray(b'"')
    for b in s.encode('utf-8'):
        if b in (0x22, 0x5C):
            out += b'\\' + bytes([b])
        elif b < 0x20:
            out += b'\\u00%02X' % b
        else:
            out.append(b)
    return bytes(out + b'"')

def encode(v, flags, level, out):
    pretty = flags & PRETTY
    def indent(n):
        if pretty:
            unit = (b' ' * (flags & 0xFF) if flags & SPACES else b'') + b'\t'
            out.extend(unit * n)
    def newline():
        if pretty:
            out.extend((b'\r' if flags & CR else b'') + (b'\n' if flags & LF else b''))
    if isinstance(v, Obj):
        indent(level); out.extend(b'{'); newline()
        for i, (name, value) in enumerate(v):
            indent(level + 1); out.extend(quote(name) + b':')
            encode(value, 0, level + 1, out)
            if i + 1 < len(v): out.extend(b',')
            newline()
        indent(level); out.extend(b'}')
    elif isinstance(v, list):
        indent(level); out.extend(b'['); newline()
        for i, e in enumerate(v):
            encode(e, flags, level + 1, out)
            if i + 1 < len(v): out.extend(b',')
            newline()
        indent(level); out.extend(b']')
    else:
        indent(level)
        if v is None: out.extend(b'null')
        elif v is True: out.extend(b'true')
        elif v is False: out.extend(b'false')
        elif isinstance(v, str): out.extend(quote(v))
        else: out.extend(number(v))

flags = [int(f) for f in sys.argv[2].split(',')]
for line in open(sys.argv[1]):
    try:
        v = json.loads(bytes.fromhex(line.strip()).decode('utf-8'), object_pairs_hook=Obj)
    except ValueError:
        print('-')
        continue
    layouts = []
    for f in flags:
        out = bytearray()
        encode(v, f, 0, out)
        layouts.append(out.hex())
    print(' '.join(layouts))
)PY";

TEST(json_oracle, DecodeThenEncodeMatchesPythonJson) {
  if (std::system("python3 -c pass >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3 is missing";
  std::mt19937 rng(31);
  Renderer renderer(rng);
  Shape wide;
  Shape repeats;  // few distinct names: repeated members
  repeats.alphabet = {"a", "\xC3\xA9", "\\"};
  std::vector<std::string> docs;
  for (int i = 0; i < 2500; ++i)
    docs.push_back(renderer.Render(RandomValue(rng, i % 3 ? wide : repeats)));

  std::string dir = testing::TempDir() + "json_oracle_XXXXXX";
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  {
    std::ofstream(dir + "/oracle.py") << kScript;
    std::ofstream input(dir + "/docs.txt");
    for (const auto &d : docs) input << Hex(d) << "\n";
  }
  std::string flags;
  for (uint32_t f : kFlags) flags += (flags.empty() ? "" : ",") + std::to_string(f);
  const std::string cmd =
      "python3 " + dir + "/oracle.py " + dir + "/docs.txt " + flags + " && rm -rf " + dir;
  std::vector<std::string> lines;
  FILE *f = popen(cmd.c_str(), "r");
  ASSERT_NE(f, nullptr);
  std::string line;
  for (int c; (c = std::fgetc(f)) != EOF;) {
    if (c != '\n') {
      line += char(c);
      continue;
    }
    lines.push_back(line);
    line.clear();
  }
  ASSERT_EQ(pclose(f), 0) << "python3 failed";
  ASSERT_EQ(lines.size(), docs.size());

  int mismatches = 0;
  for (size_t i = 0; i < docs.size() && mismatches < 5; ++i) {
    ASSERT_NE(lines[i], "-") << "Python refused " << Hex(docs[i]);
    Tree t = DecodeText(docs[i]);
    ASSERT_NE(t, nullptr) << Hex(docs[i]);
    std::string ours;
    for (uint32_t flag : kFlags)
      ours += (ours.empty() ? "" : " ") + Hex(EncodeTree(t.get(), flag).value_or("?"));
    if (ours != lines[i]) {
      ++mismatches;
      ADD_FAILURE() << "document " << Hex(docs[i]) << "\n library: " << ours
                    << "\n  python: " << lines[i];
    }
  }
}

}  // namespace
