# A thin front over CMake. `make demo` and `make check` are all a new user needs.
BUILD      ?= build
BUILD_SAN  ?= build-sanitize
BUILD_TSAN ?= build-tsan
BUILD_FUZZ ?= build-fuzz
BUILD_BENCH?= build-bench
BUILD_DEB  ?= build-deb
PREFIX     ?= /usr/local
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=
FUZZ_SECONDS ?= 20
GENERATOR  := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

.PHONY: all deps build demo check check-sanitize check-tsan fuzz fuzz-smoke fuzz-long bench ci install install-check \
        deb deb-check format clean

all: build

deps:
	@scripts/install-deps.sh build

build: deps
	cmake -S . -B $(BUILD) $(GENERATOR) $(CMAKE_ARGS)
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	$(BUILD)/bin/orlix_demo
	@scripts/demo-cli.sh $(BUILD)/bin

check: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

check-sanitize: deps
	cmake -S . -B $(BUILD_SAN) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DORLIX_SANITIZE=ON $(CMAKE_ARGS)
	cmake --build $(BUILD_SAN) -j $(JOBS)
	ctest --test-dir $(BUILD_SAN) --output-on-failure -j $(JOBS)

# The thread tests again under ThreadSanitizer, in a build of their own.
TSAN_FLAGS := -fsanitize=thread -g -O1
check-tsan: deps
	cmake -S . -B $(BUILD_TSAN) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug \
	  -DCMAKE_C_FLAGS="$(TSAN_FLAGS)" -DCMAKE_CXX_FLAGS="$(TSAN_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" \
	  -DCMAKE_MODULE_LINKER_FLAGS="-fsanitize=thread" $(CMAKE_ARGS)
	cmake --build $(BUILD_TSAN) -j $(JOBS) --target orlix_thread_test
	ctest --test-dir $(BUILD_TSAN) --output-on-failure -j $(JOBS) -R 'Lock|RWLock|Condition|Atomic|Tls'

fuzz: deps
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B $(BUILD_FUZZ) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DORLIX_BUILD_FUZZ=ON -DORLIX_BUILD_TESTS=OFF -DORLIX_BUILD_EXAMPLES=OFF
	cmake --build $(BUILD_FUZZ) -j $(JOBS)

fuzz-smoke: fuzz
	scripts/fuzz-smoke.sh $(BUILD_FUZZ)/bin $(FUZZ_SECONDS)

# A long campaign (FUZZ_LONG_SECONDS per target, long inputs, slow inputs
# reported) whose finds are minimised back into fuzz/corpus/.
FUZZ_LONG_SECONDS ?= 1800
fuzz-long: fuzz
	scripts/fuzz-long.sh $(BUILD_FUZZ)/bin $(FUZZ_LONG_SECONDS)

bench: deps
	@scripts/install-deps.sh bench
	cmake -S . -B $(BUILD_BENCH) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_C_FLAGS_RELEASE="-O3 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O3 -DNDEBUG" \
	  -DORLIX_BUILD_BENCH=ON -DORLIX_BUILD_TESTS=OFF
	cmake --build $(BUILD_BENCH) -j $(JOBS)
	scripts/run-bench.sh $(BUILD_BENCH)/bin
	$(BUILD_BENCH)/bin/scaling

# Everything CI runs on a fresh clone: a warning-free build, the tests, the
# installation and the Debian packages checked, the tests again under the
# sanitizers, then a short run of every fuzz target.
ci:
	@scripts/install-deps.sh build
	$(MAKE) check CMAKE_ARGS="-DORLIX_WERROR=ON"
	$(MAKE) install-check
	$(MAKE) deb-check CMAKE_ARGS="-DORLIX_WERROR=ON"
	$(MAKE) check-sanitize CMAKE_ARGS="-DORLIX_WERROR=ON"
	$(MAKE) check-tsan
	$(MAKE) fuzz-smoke

# Stripped, as distributions install programs and libraries.
install: build
	cmake --install $(BUILD) --prefix $(PREFIX) --strip

# Installs into a temporary prefix and builds the examples against it, with
# pkg-config and with find_package, shared and static.
install-check: build
	scripts/install-check.sh $(BUILD)

# The Debian packages liborlix-util2, liborlix-util-dev and orlix-tools, in
# $(BUILD_DEB), checked with lintian.
deb: deps
	@scripts/install-deps.sh deb
	scripts/build-deb.sh $(BUILD_DEB) $(JOBS) $(CMAKE_ARGS)

# Installs the packages into this machine (as root), builds and runs the
# demo against them, and removes them.
deb-check: deb
	scripts/deb-check.sh $(BUILD_DEB)

format:
	clang-format -i $$(git ls-files '*.c' '*.cpp' '*.h' '*.hpp')

clean:
	rm -rf $(BUILD) $(BUILD_SAN) $(BUILD_TSAN) $(BUILD_FUZZ) $(BUILD_BENCH) $(BUILD_DEB)
