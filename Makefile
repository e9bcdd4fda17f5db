# Two entry points: `make run` (set up, build, compile the example) and `make test` (everything).
# `make bench` runs the benchmarks; `bench/compare-commits.sh OLD` compares results with an older commit.
# `make fuzz FUZZ_SECONDS=N` runs each fuzz target for N seconds (new inputs under /tmp).
# `make package` makes the binary archives for Linux and Windows.
.PHONY: bench deps run test test-linux test-windows test-asan test-fuzz test-parity build-linux build-windows build-asan build-fuzz fuzz package clean

FUZZ_SECONDS ?= 600
# The fuzz smoke run of `make test`: each target this long from the committed corpus.
FUZZ_SMOKE_SECONDS ?= 60

deps:
	scripts/install-deps.sh

build-linux: deps
	cmake --preset linux
	cmake --build --preset linux

build-windows: deps
	cmake --preset windows
	cmake --build --preset windows

build-asan: deps
	cmake --preset linux-asan
	cmake --build --preset linux-asan

run: build-linux
	build/linux/tools/veltjs/veltjs examples/hello.js

test-linux: build-linux
	ctest --preset linux

test-windows: build-windows
	ctest --preset windows

test-asan: build-asan
	ctest --preset linux-asan

build-fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz

test-fuzz: build-fuzz
	ctest --preset fuzz
	fuzz/run.sh $(FUZZ_SMOKE_SECONDS)

fuzz: build-fuzz
	fuzz/run.sh $(FUZZ_SECONDS)

# Linux and Windows (wine) compile a generated corpus to the same bytes.
test-parity: build-linux build-windows
	tests/parity/compare.sh build/linux build/windows build/parity

test: test-linux test-windows test-asan test-parity test-fuzz

package: build-linux build-windows
	cmake --build --preset linux --target package
	cmake --build --preset windows --target package

clean:
	rm -rf build

bench: build-linux
	build/linux/bench/shapes_bench
	build/linux/bench/compile_bench
	build/linux/bench/compile_bench --scripts 500 --join 7
