# The two entry points: `make demo` plays the simulator's demo, `make test` runs every test
# on the release build (gcc) and then on the sanitizer build (clang, with the fuzzers), the
# demo and the examples under valgrind, a short run of the fuzzers, then installs, uses and
# purges the Debian packages. Both install what is missing first. `make fuzz-long` and `make random-long` are the long checks.
.PHONY: demo test bench setup release sanitize debug fuzz fuzz-smoke fuzz-long valgrind clean \
        random-long package package-check package-lint

setup:
	@./scripts/setup.sh

release: setup
	cmake --preset release >/dev/null
	cmake --build --preset release -j2

sanitize: setup
	cmake --preset sanitize >/dev/null
	cmake --build --preset sanitize -j2

debug: setup
	cmake --preset debug >/dev/null
	cmake --build --preset debug -j2

# The libFuzzer targets are built with the sanitizer build (clang, AddressSanitizer,
# UndefinedBehaviorSanitizer): one build serves both.
fuzz: sanitize

fuzz-smoke: fuzz
	./scripts/fuzz.sh smoke

fuzz-long: fuzz
	./scripts/fuzz.sh long

# The demo and every example under valgrind.
valgrind: release
	./scripts/valgrind-examples.sh

demo: release
	./build/release/bin/nimbal-copp-sim

# The benchmarks' figures against their targets (bench/README.md says how to read them).
bench: release
	python3 bench/figures.py build/release/bin

# The Debian packages, from the release build, into build/release/packages/.
package: release
	rm -rf build/release/packages
	cd build/release && cpack

# Installs the packages, plays the demo and builds a consumer with them, purges them again.
package-check: package
	./scripts/package-check.sh build/release/packages

# lintian on the packages (installed first when missing): an error fails.
package-lint: package
	./scripts/package-lint.sh build/release/packages

test: release sanitize package
	ctest --preset release
	ctest --preset sanitize
	./scripts/valgrind-examples.sh
	./scripts/fuzz.sh smoke
	./scripts/package-check.sh build/release/packages

# Long random histories on the release build: HISTORIES histories of STEPS steps, seeds from SEED.
SEED ?= 1000
HISTORIES ?= 50
STEPS ?= 10000
random-long: release
	./build/release/bin/nimbal_random_histories --gtest_filter=RandomHistories.* \
	  --seed=$(SEED) --histories=$(HISTORIES) --steps=$(STEPS)

clean:
	rm -rf build
