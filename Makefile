# SPDX-License-Identifier: Apache-2.0
# The commands of this tree. Each is complete on a bare Debian 12.

.PHONY: build run test renew package bench soak deps clean check-all check-separate \
  check-clang check-asan check-tsan check-fuzz check-tidy check-coverage check-bench check-package

# All that any of them needs; each installs only its own.
deps:
	@tools/install-deps

build:
	@tools/install-deps build
	cmake --preset release
	cmake --build --preset release

run:
	@tools/install-deps run
	@$(MAKE) --no-print-directory build
	tools/demo

test:
	@tools/install-deps test
	cmake --preset ci
	cmake --build --preset ci
	ctest --preset ci --repeat until-pass:2

# Writes anew what tests compare with the program: the manual's list of commands.
renew:
	@tools/install-deps test
	cmake --preset ci
	cmake --build --preset ci --target cli_test screens_tests
	SFLOW_RENEW=1 build-ci/bin/cli_test --gtest_filter='ManPage.*:*Golden.*'
	SFLOW_RENEW=1 build-ci/bin/screens_tests --gtest_filter='*AreTheGoldenOnes*'

# The Debian package, in build/package.
package:
	@tools/install-deps package
	@$(MAKE) --no-print-directory build
	cpack --config build/CPackConfig.cmake -B build/package
	@ls build/package/*.deb

bench:
	@tools/install-deps bench
	cmake --preset bench
	cmake --build --preset bench
	bench/run build-bench

# A random walk over a switch whose processes are killed: make soak [MINUTES=n] [SEED=n]
soak:
	@tools/install-deps test
	cmake --preset ci
	cmake --build --preset ci --target soak
	build-ci/bin/soak --minutes $(or $(MINUTES),5) $(if $(SEED),--seed $(SEED))

# What `make test` leaves out: all rows, or one. BASE=REVISION is for check-tidy, SECONDS_EACH=n for check-fuzz.
export BASE SECONDS_EACH
check-all:
	tools/check-all

check-separate check-clang check-asan check-tsan check-fuzz check-tidy check-coverage check-bench check-package:
	tools/check-all $(@:check-%=%)

clean:
	rm -rf build build-*
