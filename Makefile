# The way in: make demo, make test. Everything here is a short name for a cmake preset (see CMakePresets.json).

# Test steps run one after the other even under make -j: each uses both cores already.
.NOTPARALLEL:
.PHONY: all demo test test-plain test-dev test-asan test-tsan test-clang test-fuzz soak bench package install format clean
.DEFAULT_GOAL := all

all:
	@tools/install-deps.sh build
	cmake --preset release -DVUKO_BUILD_TESTS=OFF -DVUKO_BUILD_BENCH=OFF
	cmake --build --preset release

demo: all
	demo/run build/release/bin

# Every test once: with the sanitizers, and in a plain build the control tool and what they cannot do (systemd, valgrind,
# libfaketime, the installed tree). "make test-dev" runs all of them in a plain build.
test: test-fuzz test-asan test-plain

test-fuzz: DEPS = fuzz

test-plain test-dev test-asan test-tsan test-clang test-fuzz: test-%:
	@tools/install-deps.sh build test $(DEPS)
	cmake --preset $*
	cmake --build --preset $*
	ctest --preset $*

# The long forms of tests that have a short one in "make test".
soak:
	@tools/install-deps.sh build test
	cmake --preset dev
	cmake --build --preset dev
	ctest --preset dev -C soak -L soak

bench:
	@tools/install-deps.sh build bench
	cmake --preset release -DVUKO_BUILD_TESTS=OFF -DVUKO_BUILD_BENCH=ON
	cmake --build --preset release
	build/release/bin/vuko_bench
	python3 -B bench/service_bench.py build/release/bin

# The Debian packages, and what lintian says of them; see docs/PACKAGES.md.
package:
	@tools/install-deps.sh build package
	packaging/make-packages build/package

install: all
	cmake --install build/release

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
