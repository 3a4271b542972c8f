// Runs a script of writes, reads and seeks on memory streams and checks what
// a caller sees: a shared-mode stream behaves as a byte string with one
// position (a write overwrites and extends, a read takes from the position,
// SET_POS accepts exactly 0 <= p < length), a queue-mode stream without
// seeks as a first-in first-out queue, and read-only copies and borrows of
// the input hand out exactly its bytes and refuse writes. Lengths and the end
// flag must agree with the model after every step.
//
// Input: [shared capacity] [queue capacity] [read-only length] then
// operations, each an opcode byte followed by its operands.
#include <algorithm>
#include <deque>
#include <string>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

struct Stream {
  ORLIX_Stream *s;
  explicit Stream(ORLIX_Stream *stream) : s(stream) { FUZZ_CHECK(s != nullptr); }
  ~Stream() { orlix_stream_free(s); }

  std::string Read(int64_t n) {
    std::string out(static_cast<size_t>(n), '\0');
    uint64_t got = 0;
    FUZZ_CHECK(orlix_stream_read(s, out.data(), n, &got, nullptr) == 1);
    FUZZ_CHECK(got <= static_cast<uint64_t>(n));
    out.resize(got);
    return out;
  }
  int Write(const std::string &bytes) {
    uint64_t got = 0;
    const int r = orlix_stream_write(s, bytes.data(), static_cast<int64_t>(bytes.size()), &got, nullptr);
    FUZZ_CHECK(r == 0 || got == bytes.size());
    return r;
  }
  uint64_t Length() {
    uint64_t n = ~uint64_t{0};
    FUZZ_CHECK(orlix_stream_ctrl(s, ORLIX_CTRL_GET_LENGTH, &n, nullptr) == 1);
    return n;
  }
  bool AtEnd() { return orlix_stream_ctrl(s, ORLIX_CTRL_EOF, nullptr, nullptr) == 1; }
};

std::string Bytes(fuzz::Reader &in, size_t n) {
  std::string out;
  for (; n > 0 && !in.empty(); --n) out += static_cast<char>(in.u8());
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  Stream shared(orlix_stream_new_mem(in.u8(), nullptr));
  Stream queue(orlix_stream_new_rwspecmem(in.u8(), nullptr));
  const std::string fixed = Bytes(in, in.u8());
  Stream copy(orlix_stream_new_romem(fixed.data(), static_cast<int64_t>(fixed.size()), 1, nullptr));
  Stream borrow(orlix_stream_new_romem(fixed.data(), static_cast<int64_t>(fixed.size()), 0, nullptr));
  std::string text;  // the shared stream's bytes
  size_t pos = 0;
  std::deque<char> fifo;
  size_t fixed_pos = 0;

  for (int steps = 0; !in.empty() && steps < 500; ++steps) {
    const uint8_t op = in.u8();
    const size_t n = op & 0x08 ? in.u16() % 3000 : in.u8() % 40;
    switch (op % 6) {
      case 0: {
        const std::string bytes = Bytes(in, n);
        FUZZ_CHECK(shared.Write(bytes) == 1);
        text.replace(pos, std::min(bytes.size(), text.size() - pos), bytes);
        pos += bytes.size();
        break;
      }
      case 1: {
        const std::string got = shared.Read(static_cast<int64_t>(n));
        FUZZ_CHECK(got == text.substr(pos, n));
        pos += got.size();
        break;
      }
      case 2: {
        int64_t p = static_cast<int64_t>(in.u16() % (text.size() + 3)) - 1;
        const bool valid = p >= 0 && static_cast<size_t>(p) < text.size();
        FUZZ_CHECK(orlix_stream_ctrl(shared.s, ORLIX_CTRL_SET_POS, &p, nullptr) ==
                   (valid ? 1 : 0));
        if (valid) pos = static_cast<size_t>(p);
        break;
      }
      case 3: {
        const std::string bytes = Bytes(in, n);
        FUZZ_CHECK(queue.Write(bytes) == 1);
        fifo.insert(fifo.end(), bytes.begin(), bytes.end());
        break;
      }
      case 4: {
        const std::string got = queue.Read(static_cast<int64_t>(n));
        FUZZ_CHECK(got == std::string(fifo.begin(), fifo.begin() + std::min(n, fifo.size())));
        fifo.erase(fifo.begin(), fifo.begin() + got.size());
        break;
      }
      default: {
        const std::string expected = fixed.substr(fixed_pos, n);
        FUZZ_CHECK(copy.Read(static_cast<int64_t>(n)) == expected);
        FUZZ_CHECK(borrow.Read(static_cast<int64_t>(n)) == expected);
        fixed_pos += expected.size();
        FUZZ_CHECK(copy.Write("x") == 0 && borrow.Write("x") == 0);
        FUZZ_CHECK(copy.AtEnd() == (fixed_pos == fixed.size()));
        break;
      }
    }
    FUZZ_CHECK(shared.Length() == text.size());
    FUZZ_CHECK(queue.Length() == fifo.size());
    FUZZ_CHECK(shared.AtEnd() == (pos == text.size()));
  }
  return 0;
}
