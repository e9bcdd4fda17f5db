# Two entry points: `make run` (set up, build, compile the example) and `make test` (everything).
# `make bench` runs the benchmarks; `bench/compare-commits.sh OLD` compares results with an older commit.
.PHONY: bench deps run test test-linux test-windows test-asan build-linux build-windows build-asan clean

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

test: test-linux test-windows test-asan

clean:
	rm -rf build

bench: build-linux
	build/linux/bench/shapes_bench
	build/linux/bench/compile_bench
