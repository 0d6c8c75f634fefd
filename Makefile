# Targets (./make.sh TARGET first installs the missing Debian packages, make
# included, and is what the README tells a new user to run):
#   make run    build and run the main job
#   make test   build and run every test
# and `make check` for the sanitizer and i386 layout checks that CI adds;
# `make mutate` plants faults one at a time and reports which the tests catch.
JOBS ?= 2
BUILD ?= build

.PHONY: deps build test check mutate bench run clean

deps:
	@bash scripts/deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

check: deps
	JOBS=$(JOBS) bash scripts/check.sh

# Slow (about half a minute per fault); uses its own tree in build-mutate/.
mutate: deps
	JOBS=$(JOBS) /usr/bin/python3 scripts/mutate.py

bench: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTAVRIN_BUILD_BENCH=ON -DTAVRIN_BUILD_TESTS=OFF
	cmake --build build-bench -j $(JOBS)
	@for b in build-bench/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

# The main job: the bundled sample page through `tavrin compress` and
# `tavrin detect`, written to out/.
run: build
	@mkdir -p out
	$(BUILD)/apps/tavrin/tavrin compress samples/sample-page.jpg -o out/sample.pdf --explain
	$(BUILD)/apps/tavrin/tavrin detect samples/sample-page.jpg --overlay out/sample-overlay.png --json out/sample.json

clean:
	rm -rf $(BUILD) build-asan build-bench build-mutate out
