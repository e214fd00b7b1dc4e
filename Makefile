# The four commands of this tree. Each is complete on a bare Debian 12.

.PHONY: build run test bench deps clean

deps:
	@tools/install-deps

build: deps
	cmake --preset release
	cmake --build --preset release

run: build
	tools/demo

test: deps
	cmake --preset dev
	cmake --build --preset dev
	ctest --preset dev

bench: deps
	cmake --preset bench
	cmake --build --preset bench
	bench/run build-bench

clean:
	rm -rf build build-*
