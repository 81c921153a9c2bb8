# The two set-up commands of the README: `make demo` and `make test`.
# `make test SANITIZE=address,undefined` builds into its own directory with those sanitizers.

SANITIZE ?=
BUILD_TYPE ?= RelWithDebInfo
comma := ,
ifeq ($(SANITIZE),)
BUILD_DIR ?= build
else
BUILD_DIR ?= build-$(subst $(comma),-,$(SANITIZE))
endif
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test cost-check demo lint docs deb deb-test fuzz clean

all: build

deps:
	@scripts/install-deps.sh build docs

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
	  -DOXA_SANITIZE=$(SANITIZE) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 300 -LE budget

# The instruction budgets of the hot paths, counted with callgrind (not all of them hold yet).
cost-check: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -L budget

demo: build
	@cmake --build $(BUILD_DIR) --target demo

lint: configure
	@scripts/install-deps.sh lint
	@scripts/lint.sh $(BUILD_DIR)

# The HTML reference and the man pages, generated from the headers.
docs: configure
	@cmake --build $(BUILD_DIR) --target docs
	@echo "HTML reference: $(BUILD_DIR)/docs/html/index.html; man pages: $(BUILD_DIR)/docs/man"

# The Debian packages, into DEB_DIR; deb-test builds them, unpacks them into a temporary root and
# builds and runs the example against that root.
DEB_DIR ?= build-deb
deb:
	@scripts/install-deps.sh build deb
	@scripts/make-deb.sh $(DEB_DIR)

deb-test: deb
	@tests/package/deb_test.sh $(DEB_DIR)

# libFuzzer targets in their own clang build; each runs FUZZ_SECONDS, FUZZ_JOBS at a time.
FUZZ_SECONDS ?= 60
FUZZ_JOBS ?= 2
FUZZ_DIR ?= build-fuzz
fuzz: deps
	@scripts/install-deps.sh fuzz
	@cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DOXA_FUZZ=ON \
	  -DOXA_BUILD_TESTS=OFF -DOXA_SANITIZE=fuzzer-no-link,address,undefined >/dev/null
	@cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzzers
	@tests/fuzz/run.sh $(FUZZ_DIR) $(FUZZ_SECONDS) $(FUZZ_JOBS)

clean:
	rm -rf build build-*
