// orlix prime and orlix version.
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "cli.hpp"

namespace cli {
namespace {

// The system's random source.
int system_random(void *, unsigned char *buffer, int64_t length) {
  int64_t done = 0;
  while (done < length) {
    const ssize_t n = getrandom(buffer + done, static_cast<size_t>(length - done), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return 0;
    done += n;
  }
  return 1;
}

// Shows a spinner on standard error while a long search runs, from the
// first second on, and only when standard error is a terminal.
class Progress {
 public:
  explicit Progress(int bits) : bits_(bits) {
    if (isatty(2)) worker_ = std::thread([this] { spin(); });
  }
  ~Progress() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    if (worker_.joinable()) worker_.join();
  }

 private:
  void spin() {
    static constexpr char kFrames[] = "|/-\\";
    std::unique_lock<std::mutex> lock(mutex_);
    if (wake_.wait_for(lock, std::chrono::seconds(1), [this] { return done_; })) return;
    for (int frame = 0; !done_; ++frame) {
      std::fprintf(stderr, "\rsearching for a %d-bit prime %c", bits_, kFrames[frame % 4]);
      std::fflush(stderr);
      wake_.wait_for(lock, std::chrono::milliseconds(150), [this] { return done_; });
    }
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
  }

  int bits_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread worker_;
};

constexpr const char kPrimeUsage[] =
    "usage: orlix prime BITS [--safe] [--two-high] [--fast]\n"
    "Prints a random prime of exactly BITS bits (2 or more) in decimal, drawn from\n"
    "the system's random source.\n"
    "  --safe       (p - 1) / 2 is prime too\n"
    "  --two-high   the two highest bits are set (products of two such primes have\n"
    "               exactly twice the bits)\n"
    "  --fast       primality rounds chosen by size instead of 64\n";

constexpr int64_t kMaxBits = 1 << 20;

int run_prime(std::vector<std::string_view> args) {
  int flags = 0;
  int64_t bits = 0;
  bool have_bits = false;
  for (const std::string_view a : args) {
    if (is_help(a)) return std::fputs(kPrimeUsage, stdout), kOk;
    if (a == "--safe") flags |= ORLIX_BIGINTEGER_PRIME_SAFE;
    else if (a == "--two-high") flags |= ORLIX_BIGINTEGER_PRIME_TOP_TWO;
    else if (a == "--fast") flags |= ORLIX_BIGINTEGER_PRIME_FAST;
    else if (!have_bits && parse_int(a, INT64_MIN / 10, INT64_MAX / 10, &bits))
      have_bits = true;
    else return usage_error("prime", std::string("unexpected argument ") + std::string(a));
  }
  if (!have_bits) return usage_error("prime", "expects BITS, a number from 2 to 1048576");
  if (bits < 2)
    return usage_error("prime",
                       "size too small: a prime has at least 2 bits, not " + std::to_string(bits));
  if (bits > kMaxBits)
    return usage_error("prime", "size too large: at most " + std::to_string(kMaxBits) +
                                    " bits, not " + std::to_string(bits));
  ORLIX_BigInteger *p = nullptr;
  {
    Progress progress(static_cast<int>(bits));
    p = orlix_biginteger_newprime(system_random, nullptr, static_cast<int>(bits), flags);
  }
  if (p == nullptr) return failure("prime", "no prime of that form could be made");
  char *text = nullptr;
  int64_t length = 0;
  const int ok = orlix_biginteger_unsigned_todec(p, &text, &length);
  orlix_biginteger_free(p);
  if (ok != 1) return failure("prime", "cannot format the prime");
  std::string line(text, static_cast<size_t>(length));
  orlix_free(text);
  line += '\n';
  return write_output(line) ? kOk : failure("prime", "cannot write standard output");
}

int run_version(std::vector<std::string_view> args) {
  for (const std::string_view a : args)
    if (is_help(a)) return std::puts("usage: orlix version\nPrints the library's version."), kOk;
  if (!args.empty()) return usage_error("version", "takes no arguments");
  const std::string line = std::string(orlix_util_version()) + "\n";
  return write_output(line) ? kOk : kFailed;
}

}  // namespace

int prime_command(std::vector<std::string_view> a) { return run_prime(std::move(a)); }
int version_command(std::vector<std::string_view> a) { return run_version(std::move(a)); }

}  // namespace cli
