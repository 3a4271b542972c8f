// Decode-then-encode against Python's json module. One python3 process
// generates a few thousand documents (standard syntax, spelled at random:
// blanks, short and \u escapes in either case, surrogate pairs, several
// spellings of each number, repeated names, doubles of any bit pattern),
// decodes each with json.loads (repeated names kept in order) and writes it
// in the library's layouts; the library must produce the same bytes, with
// its vector scans and with its portable loops.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "json/ORLIX_JSON.hpp"
#include "json_test_util.hpp"
#include "python_oracle.hpp"

namespace {

using namespace json_test;

constexpr uint32_t kFlags[] = {
    0,
    ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_LF,
    ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_CR | ORLIX_JSON_ENCODE_LF |
        ORLIX_JSON_ENCODE_SPACES | 2,
    ORLIX_JSON_ENCODE_PRETTY,
};

// argv[1]: the seed, argv[2]: the flags, comma separated. Prints per
// document its hex and the hex of each layout, space separated.
const char kScript[] = R"PY(
import json, math, random, struct, sys
PRETTY, SPACES, CR, LF = 0x80000000, 0x40000000, 0x20000000, 0x10000000
rng = random.Random(int(sys.argv[1]))

class Obj(list):
    pass

PICKS = [0, 0x1F, 0x22, 0x5C, 0x2F, 0x7F, 0xE9, 0x7FF, 0x800, 0xFFFD, 0x10000, 0x1F600, 0x10FFFF, 10, 9]
def rstring(alphabet):
    out = []
    for _ in range(rng.randrange(8)):
        if alphabet:
            out.append(rng.choice(alphabet)); continue
        r = rng.randrange(4)
        cp = rng.randrange(0x20, 0x7F) if r < 2 else rng.choice(PICKS)
        if r == 3:
            cp = rng.randrange(0x110000)
            if 0xD800 <= cp <= 0xDFFF: cp = 0x78
        out.append(chr(cp))
    return ''.join(out)

def rnumber():
    k = rng.randrange(7)
    if k == 0: return rng.randrange(-10, 11)
    if k == 1: return rng.randrange(-2**31, 2**31)
    if k == 2: return rng.randrange(-2**53, 2**53)
    if k == 3: return math.ldexp(rng.randrange(-10**6, 10**6), -rng.randrange(7, 31))  # ties
    if k == 4: return float(rng.randrange(-2**32, 2**32)) + rng.choice([0, 0.5])
    if k == 5: return rng.choice([1, -1]) * 10.0 ** rng.randrange(-300, 300) * rng.randrange(1000)
    while True:  # any finite bit pattern, subnormals included
        d = struct.unpack('<d', rng.getrandbits(64).to_bytes(8, 'little'))[0]
        if math.isfinite(d): return d

def rvalue(alphabet, depth=0):
    k = rng.randrange(8 if depth < 4 else 5)
    if k in (0, 4): return rstring(alphabet)
    if k == 1: return rnumber()
    if k == 2: return rng.random() < 0.5
    if k == 3: return None
    if k in (5, 6):
        return Obj((rstring(alphabet), rvalue(alphabet, depth + 1)) for _ in range(rng.randrange(7)))
    return [rvalue(alphabet, depth + 1) for _ in range(rng.randrange(7))]

def blank():
    return ''.join(rng.choice(' \t\n\r') for _ in range(rng.randrange(1, 4))) if rng.randrange(4) == 0 else ''

SHORT = {'"': '\\"', '\\': '\\\\', '/': '\\/', '\b': '\\b', '\f': '\\f', '\n': '\\n', '\r': '\\r', '\t': '\\t'}
def esc(u):
    return (r'\u%04x' if rng.random() < 0.5 else r'\u%04X') % u

def spell_string(s):
    out = '"'
    for ch in s:
        cp, must = ord(ch), ord(ch) < 0x20 or ch in '"\\'
        if ch in SHORT and (must or rng.random() < 0.5): out += SHORT[ch]
        elif must or rng.randrange(4) == 0:
            out += esc(cp) if cp < 0x10000 else esc(0xD800 + ((cp - 0x10000) >> 10)) + esc(0xDC00 + (cp & 0x3FF))
        else: out += ch
    return out + '"'

def spell(v):
    if isinstance(v, str): return spell_string(v)
    if v is None or isinstance(v, bool): return json.dumps(v)
    if isinstance(v, (int, float)):
        if v == int(v) and abs(v) < 1e15 and rng.random() < 0.5:
            return rng.choice(['%d', '%d.0', '%dE0', '%de+0', '%d.000e-0']) % int(v)
        return repr(float(v)) if rng.random() < 0.5 else '%.16e' % v
    obj = isinstance(v, Obj)
    items = [spell_string(n) + blank() + ':' + blank() + spell(x) if obj else spell(x) for n, x in (v if obj else [(None, e) for e in v])]
    return ('{' if obj else '[') + blank() + (',' + blank()).join(i + blank() for i in items) + ('}' if obj else ']')

def number(x):
    f = float(x)
    if f == int(f) and -2147483648 <= f <= 2147483647:
        return b'%d' % int(f)
    t = ('%f' % f).rstrip('0')
    return (t[:-1] if t.endswith('.') else t).encode()

def quote(s):
    out = bytearray(b'"')
    for b in s.encode('utf-8'):
        if b in (0x22, 0x5C): out += b'\\' + bytes([b])
        elif b < 0x20: out += b'\\u00%02X' % b
        else: out.append(b)
    return bytes(out + b'"')

def encode(v, flags, level, out):
    pretty = flags & PRETTY
    def indent(n):
        if pretty: out.extend(((b' ' * (flags & 0xFF) if flags & SPACES else b'') + b'\t') * n)
    def newline():
        if pretty: out.extend((b'\r' if flags & CR else b'') + (b'\n' if flags & LF else b''))
    if isinstance(v, list):
        obj = isinstance(v, Obj)
        indent(level); out.extend(b'{' if obj else b'['); newline()
        for i, e in enumerate(v):
            if obj:
                indent(level + 1); out.extend(quote(e[0]) + b':')
                encode(e[1], 0, level + 1, out)
            else:
                encode(e, flags, level + 1, out)
            if i + 1 < len(v): out.extend(b',')
            newline()
        indent(level); out.extend(b'}' if obj else b']')
        return
    indent(level)
    if v is None or isinstance(v, bool): out.extend(json.dumps(v).encode())
    elif isinstance(v, str): out.extend(quote(v))
    else: out.extend(number(v))

flags = [int(f) for f in sys.argv[2].split(',')]
for i in range(2500):
    v = rvalue(['a', '\xe9', '\\'] if i % 3 == 0 else None)
    text = spell(v)
    if isinstance(v, list): text = blank() + text + blank()
    parsed = json.loads(text, object_pairs_hook=Obj)
    layouts = []
    for f in flags:
        out = bytearray()
        encode(parsed, f, 0, out)
        layouts.append(out.hex())
    print(text.encode('utf-8').hex(), ' '.join(layouts))
)PY";

std::string Unhex(const std::string &hex) {
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) out += char(std::stoi(hex.substr(i, 2), nullptr, 16));
  return out;
}

TEST(json_oracle, DecodeThenEncodeMatchesPythonJson) {
  if (!orlix_oracle::HavePython()) GTEST_SKIP() << "python3 is missing";
  std::string flags;
  for (uint32_t f : kFlags) flags += (flags.empty() ? "" : ",") + std::to_string(f);
  const std::vector<std::string> lines = orlix_oracle::RunPython(kScript, "", "31 " + flags);
  ASSERT_EQ(lines.size(), 2500u);
  int mismatches = 0;
  for (const std::string &line : lines) {
    std::istringstream in(line);
    std::string doc, want, ours;
    in >> doc;
    std::getline(in >> std::ws, want);
    const std::string text = Unhex(doc);
    // The vector scans, then the portable loops.
    for (const bool vector : {true, false}) {
      const bool was = orlix::json::use_vector_forms(vector);
      Tree t = DecodeText(text);
      ASSERT_NE(t, nullptr) << text;
      ours.clear();
      for (uint32_t flag : kFlags) ours += (ours.empty() ? "" : " ") + Hex(EncodeTree(t.get(), flag).value_or("?"));
      orlix::json::use_vector_forms(was);
      if (ours != want && ++mismatches <= 5)
        ADD_FAILURE() << (vector ? "vector" : "portable") << " document " << text
                      << "\n library: " << ours << "\n  python: " << want;
    }
  }
}

}  // namespace
