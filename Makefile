# Tesk: the two set-up commands of the README, and the benchmarks.
#   make run                              install what is missing, build (Release), start Tesk
#   make test                             install what is missing, build, run every test
#   make test SANITIZE=address,undefined  the same in a separate sanitizer build tree
#   make bench                            build and run the benchmarks, ending with one BENCH line each

SANITIZE ?=
JOBS ?= $(shell nproc)

ifeq ($(SANITIZE),)
BUILD_DIR := build/release
CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=Release
else
BUILD_DIR := build/sanitize
CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=Debug -DTESK_SANITIZE=$(SANITIZE)
endif

.PHONY: all deps configure build run test bench clean

all: build

deps:
	@scripts/install-deps

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

clean:
	rm -rf build
