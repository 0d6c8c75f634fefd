# Targets (./make.sh TARGET first installs the missing Debian packages, make
# included, and is what the README tells a new user to run):
#   make run    build and run the main job
#   make test   build and run every test
# and `make check` for the sanitizer, thread-sanitizer and i386 layout checks
# that CI adds, `make fuzz SECONDS=N` for the fuzz targets (N seconds each).
JOBS ?= 2
BUILD ?= build
SECONDS ?= 10

.PHONY: deps build test check fuzz bench run clean

deps:
	@bash scripts/deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

check:
	@bash scripts/deps.sh check
	JOBS=$(JOBS) bash scripts/check.sh

fuzz:
	@bash scripts/deps.sh fuzz
	JOBS=$(JOBS) bash scripts/fuzz.sh $(SECONDS)

bench:
	@bash scripts/deps.sh bench
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
	rm -rf $(BUILD) build-asan build-tsan build-fuzz build-bench out
