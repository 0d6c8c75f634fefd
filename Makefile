# Targets (./make.sh TARGET first installs the missing Debian packages, make
# included, and is what the README tells a new user to run):
#   make run    build and run the main job
#   make test   build and run every test
#   make python install the Python module (with the library and the
#               program) and run a batch of the sample pages
#   make eval   the evaluation on composed pages (SET=main|holdout|stress, ARGS="...")
# and `make check` for the sanitizer, thread-sanitizer and i386 layout checks
# that CI adds, `make fuzz SECONDS=N` for the fuzz targets (N seconds each);
# `make mutate` plants faults one at a time and reports which the tests catch.
JOBS ?= 2
BUILD ?= build
SECONDS ?= 10

.PHONY: deps build test check mutate fuzz bench run python clean eval eval-deps

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

# Slow (about half a minute per fault); uses its own tree in build-mutate/.
mutate: deps
	JOBS=$(JOBS) /usr/bin/python3 scripts/mutate.py

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

# The evaluation on a composed page set (bench/eval): `make eval` runs the
# main set with the current defaults; `make eval SET=holdout ARGS="--quality 40"`
# the held-out set with other options. The pages are composed into
# $(BUILD)/eval/pages-SET when missing or when the composer changed.
SET ?= main
ARGS ?=
EVAL_OUT ?= $(BUILD)/eval/out-$(SET)

eval-deps:
	@bash scripts/deps.sh eval

$(BUILD)/eval/pages-%/truth.json: bench/eval/compose_pages.py bench/eval/page_kit.py bench/eval/artwork.py \
		bench/eval/scan_effects.py $(wildcard bench/eval/texts/*.txt) | eval-deps
	nice -n 10 /usr/bin/python3 bench/eval/compose_pages.py --set $* --out $(@D)

# The stress set is made by its own composer (another layout engine, fonts,
# images and scan model) to show over-fitting to the other two.
$(BUILD)/eval/pages-stress/truth.json: bench/eval/compose_stress.py bench/eval/svg_page.py bench/eval/stress_art.py \
		bench/eval/stress_scan.py bench/eval/artwork.py $(wildcard bench/eval/texts/*.txt) | eval-deps
	nice -n 10 /usr/bin/python3 bench/eval/compose_stress.py --out $(@D)

eval: build eval-deps $(BUILD)/eval/pages-$(SET)/truth.json
	nice -n 10 /usr/bin/python3 bench/eval/evaluate.py --pages $(BUILD)/eval/pages-$(SET) --out $(EVAL_OUT) \
		--tavrin $(BUILD)/apps/tavrin/tavrin --tavrin-args "$(ARGS)"

# The Python module, installed with the library and the program under PREFIX
# (default /usr/local, where /usr/bin/python3 finds it), imported, and run
# as `tavrin batch` on the bundled sample pages, written to out/batch/.
PREFIX ?= /usr/local
SUDO = $(shell test -w $(PREFIX) || command -v sudo)
python: build
	$(SUDO) cmake --install $(BUILD) --prefix $(PREFIX)
	cd / && /usr/bin/python3 -c "import tavrin; print('import tavrin:', tavrin.__file__)"
	$(PREFIX)/bin/tavrin batch 'samples/*-page.jpg' -o out/batch --json

clean:
	rm -rf $(BUILD) build-asan build-tsan build-fuzz build-bench build-mutate out
