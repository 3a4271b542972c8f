# A thin front over CMake. `make demo` and `make check` are all a new user needs.
BUILD      ?= build
BUILD_SAN  ?= build-sanitize
BUILD_FUZZ ?= build-fuzz
BUILD_BENCH?= build-bench
PREFIX     ?= /usr/local
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=
FUZZ_SECONDS ?= 20
GENERATOR  := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

.PHONY: all deps build demo check check-sanitize fuzz fuzz-smoke bench ci install format clean

all: build

deps:
	@scripts/install-deps.sh build

build: deps
	cmake -S . -B $(BUILD) $(GENERATOR) $(CMAKE_ARGS)
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	$(BUILD)/bin/orlix_demo

check: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

check-sanitize: deps
	cmake -S . -B $(BUILD_SAN) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DORLIX_SANITIZE=ON $(CMAKE_ARGS)
	cmake --build $(BUILD_SAN) -j $(JOBS)
	ctest --test-dir $(BUILD_SAN) --output-on-failure -j $(JOBS)

fuzz: deps
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B $(BUILD_FUZZ) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DORLIX_BUILD_FUZZ=ON -DORLIX_BUILD_TESTS=OFF -DORLIX_BUILD_EXAMPLES=OFF
	cmake --build $(BUILD_FUZZ) -j $(JOBS)

fuzz-smoke: fuzz
	scripts/fuzz-smoke.sh $(BUILD_FUZZ)/bin $(FUZZ_SECONDS)

bench: deps
	@scripts/install-deps.sh bench
	cmake -S . -B $(BUILD_BENCH) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release \
	  -DORLIX_BUILD_BENCH=ON -DORLIX_BUILD_TESTS=OFF
	cmake --build $(BUILD_BENCH) -j $(JOBS)
	scripts/run-bench.sh $(BUILD_BENCH)/bin

# Everything CI runs on a fresh clone: a warning-free build, the tests, the
# tests again under the sanitizers, then a short run of every fuzz target.
ci:
	@scripts/install-deps.sh build
	$(MAKE) check CMAKE_ARGS="-DORLIX_WERROR=ON"
	$(MAKE) check-sanitize CMAKE_ARGS="-DORLIX_WERROR=ON"
	$(MAKE) fuzz-smoke

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

format:
	clang-format -i $$(git ls-files '*.c' '*.cpp' '*.h' '*.hpp')

clean:
	rm -rf $(BUILD) $(BUILD_SAN) $(BUILD_FUZZ) $(BUILD_BENCH)
