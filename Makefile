# Entry points: `make demo` and `make test` work on a fresh machine from a fresh clone.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo clean

all: build

deps:
	./scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo: build
	$(BUILD)/bin/tessaly demo

clean:
	rm -rf $(BUILD)
