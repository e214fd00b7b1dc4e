# SPDX-License-Identifier: Apache-2.0
# The commands of this tree. Each is complete on a bare Debian 12.

.PHONY: build run test bench soak deps clean

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

# A random walk over a switch whose processes are killed: make soak [MINUTES=n] [SEED=n]
soak: deps
	cmake --preset dev
	cmake --build --preset dev --target soak
	build-dev/bin/soak --minutes $(or $(MINUTES),5) $(if $(SEED),--seed $(SEED))

clean:
	rm -rf build build-*
