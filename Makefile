# Two entry points: `make run` (set up, build, compile the example) and `make test` (everything);
# `make package` makes the binary archives for Linux and Windows.
.PHONY: deps run test test-linux test-windows test-asan build-linux build-windows build-asan package clean

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

package: build-linux build-windows
	cmake --build --preset linux --target package
	cmake --build --preset windows --target package

clean:
	rm -rf build
