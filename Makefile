# The two entry points: `make demo` plays the simulator's demo, `make test` runs every test
# on the release build and then on the sanitizer build. Both install what is missing first.
.PHONY: demo test bench setup release sanitize debug clean

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

demo: release
	./build/release/bin/nimbal-copp-sim

# The benchmarks' figures against their targets (bench/README.md says how to read them).
bench: release
	python3 bench/figures.py build/release/bin

test: release sanitize
	ctest --preset release
	ctest --preset sanitize

clean:
	rm -rf build
