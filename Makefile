# Two entry points: `make run` (set up, build, compile the example) and `make test` (everything).
.PHONY: deps run test test-linux test-windows test-asan build-linux build-windows build-asan clean

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
