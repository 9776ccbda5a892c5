# pyquarn: build, test, demo and benchmark entry points.
PYTHON   := /usr/bin/python3
JOBS     ?= $(shell nproc)
RELEASE  := build/release
ASAN     := build/asan
CMAKE_COMMON := -G Ninja -DPython3_EXECUTABLE=$(PYTHON) -DPYTHON_EXECUTABLE=$(PYTHON)

.PHONY: all setup build build-asan test test-cpp test-asan test-python demo bench clean

all: build

setup:
	bash scripts/setup

$(RELEASE)/build.ninja:
	cmake -S . -B $(RELEASE) $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Release

# Line tables (-g1) are all the sanitizer reports need, at half the compile
# time of full debug information.
$(ASAN)/build.ninja:
	cmake -S . -B $(ASAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUARN_SANITIZE=ON -DQUARN_PYTHON=OFF \
	  -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1"

build: setup $(RELEASE)/build.ninja
	cmake --build $(RELEASE) -j $(JOBS)

build-asan: setup $(ASAN)/build.ninja
	cmake --build $(ASAN) -j $(JOBS)

test-cpp: build
	cd $(RELEASE) && ctest --output-on-failure

test-asan: build-asan
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure

test-python: build
	PYTHONPATH=$(RELEASE)/python $(PYTHON) -m pytest -q tests/python

test: test-cpp test-asan test-python

demo: build
	PYTHONPATH=$(RELEASE)/python $(PYTHON) examples/demo.py

bench: setup
	cmake -S . -B build/bench $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Release -DQUARN_BENCH=ON
	cmake --build build/bench -j $(JOBS)
	for b in build/bench/bench_*; do [ -x "$$b" ] && "$$b"; done
	PYTHONPATH=build/bench/python $(PYTHON) bench/bench.py
	PYTHONPATH=build/bench/python $(PYTHON) bench/bench_build.py

clean:
	rm -rf build
