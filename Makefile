# Tesk: the two set-up commands of the README, and the benchmarks.
#   make run                              install what is missing, build (Release), start Tesk
#   make test                             install what is missing, build, run every test
#   make test SANITIZE=address,undefined  the same in a separate sanitizer build tree
#   make bench                            build and run the benchmarks, ending with one BENCH line each
#   make fuzz [FUZZ_RUNS=n]               build the fuzzers with clang (build/fuzz) and run them
#   make package                          build (Release) the Debian package tesk_VERSION_ARCH.deb
#                                         into this folder: `apt install ./tesk_*.deb`

SANITIZE ?=
JOBS ?= $(shell nproc)

ifeq ($(SANITIZE),)
BUILD_DIR := build/release
CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=Release
else
BUILD_DIR := build/sanitize
CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=Debug -DTESK_SANITIZE=$(SANITIZE)
endif

# The fuzzing tree: clang, libFuzzer and the address and undefined-behaviour sanitizers.
FUZZ_RUNS ?= 1000000
FUZZ_DIR := build/fuzz

.PHONY: all deps configure build run test bench fuzz package clean

all: build

# What install-deps adds to the build's packages: the tests' tools, unless only running Tesk.
DEPS_MODE :=
run: DEPS_MODE := --run
package: DEPS_MODE := --package

deps:
	@scripts/install-deps $(DEPS_MODE)

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

run: build
	$(BUILD_DIR)/src/app/tesk

test: build
	@cd $(BUILD_DIR) && QT_QPA_PLATFORM=offscreen SDL_AUDIODRIVER=dummy \
		ctest --output-on-failure -j $(JOBS) --timeout 600

bench: build
	@scripts/run-benchmarks $(BUILD_DIR)

# Runs the document reader's fuzzer FUZZ_RUNS times from seeds the real writer makes, keeping
# what it finds interesting in $(FUZZ_DIR)/corpus/found for the next run. A crash or a broken
# round trip fails, leaving the input in $(FUZZ_DIR)/artifacts.
fuzz:
	@scripts/install-deps --fuzz
	@cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DTESK_FUZZ=ON \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(FUZZ_DIR) -j $(JOBS) --target tesk_document_fuzzer tesk_document_fuzz_seeds
	@rm -rf $(FUZZ_DIR)/corpus/seeds
	@mkdir -p $(FUZZ_DIR)/corpus/found $(FUZZ_DIR)/artifacts
	@$(FUZZ_DIR)/fuzz/tesk_document_fuzz_seeds $(FUZZ_DIR)/corpus/seeds
	$(FUZZ_DIR)/fuzz/tesk_document_fuzzer -runs=$(FUZZ_RUNS) -dict=fuzz/document.dict \
		-artifact_prefix=$(FUZZ_DIR)/artifacts/ $(FUZZ_DIR)/corpus/found $(FUZZ_DIR)/corpus/seeds

# CPack installs the release tree into the package as `cmake --install` would, and
# dpkg-shlibdeps fills in the libraries' packages. Only what the package holds is built.
package: configure
ifneq ($(SANITIZE),)
	$(error make package builds the release tree: leave SANITIZE out)
endif
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target tesk tesk-render tesk_desktop_data
	@rm -f $(BUILD_DIR)/package/tesk_*.deb
	@cd $(BUILD_DIR) && cpack -G DEB >/dev/null
	@rm -f tesk_*.deb
	@cp $(BUILD_DIR)/package/tesk_*.deb .
	@echo "Built $$(ls tesk_*.deb): install it with: apt install ./$$(ls tesk_*.deb)"

clean:
	rm -rf build
