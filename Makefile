# The two entry points: `make demo` plays the simulator's demo, `make test` runs every test
# on the release build and then on the sanitizer build, then a short run of the fuzzers. Both
# install what is missing first. `make fuzz-long` and `make valgrind` are the long checks.
.PHONY: demo test setup release sanitize debug fuzz fuzz-smoke fuzz-long valgrind clean

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

# The libFuzzer targets (clang, AddressSanitizer, UndefinedBehaviorSanitizer).
fuzz: setup
	cmake --preset fuzz >/dev/null
	cmake --build --preset fuzz -j2

fuzz-smoke: fuzz
	./scripts/fuzz.sh smoke

fuzz-long: fuzz
	./scripts/fuzz.sh long

# The demo and every example under valgrind.
valgrind: release
	./scripts/valgrind-examples.sh

demo: release
	./build/release/bin/nimbal-copp-sim

test: release sanitize fuzz
	ctest --preset release
	ctest --preset sanitize
	./scripts/fuzz.sh smoke

clean:
	rm -rf build
