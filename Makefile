# The two everyday commands: `make render` runs the batch renderer on its built-in default and
# on the example composition (whose plates it renders first), `make test` runs every test. Both
# install what is missing and build first.
PRESET ?= release
OUT ?= out
CMAKE_BUILD_PARALLEL_LEVEL ?= 2
export CMAKE_BUILD_PARALLEL_LEVEL

PREFIX ?= /usr/local

.PHONY: deps configure build render test install check-install docs asan tsan bench fuzz format clean

deps:
	@bash scripts/install-deps

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET)

render: build
	@mkdir -p $(OUT)
	@./build/$(PRESET)/tools/vnrender/vnrender -o $(OUT)/default.exr -o $(OUT)/default.png $(ARGS)
	@./build/$(PRESET)/tools/vnrender/vnrender --width 640 --height 360 --frames 1-24 --quiet \
		-o out/plates/plate.####.exr
	@./build/$(PRESET)/tools/vnrender/vnrender examples/compositions/plates.xml

test: build
	@ctest --preset $(PRESET)

# The libraries, headers, CMake package, pkg-config files, programs and documentation.
install: build
	@cmake --install build/$(PRESET) --prefix $(PREFIX)

# Installs into a temporary prefix and builds and runs examples/consumer against it alone.
check-install: build
	@bash scripts/check-install build/$(PRESET)

# The API reference in build/docs/html; fails on a Doxygen warning or an exported class
# without a brief.
docs:
	@bash scripts/install-deps --docs
	@bash scripts/make-docs

# AddressSanitizer + UndefinedBehaviorSanitizer over every test.
asan:
	@$(MAKE) --no-print-directory PRESET=asan test

# ThreadSanitizer over every test: each one runs requests on the engine's workers.
tsan: deps
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan
	@setarch "$$(uname -m)" -R ctest --preset tsan

bench:
	@bash scripts/install-deps --bench
	@$(MAKE) --no-print-directory build
	@for b in build/$(PRESET)/bench/*Bench; do echo "== $$b"; "$$b"; done

# One fuzz target under libFuzzer: make fuzz FUZZER=<target> SECONDS=600
FUZZER ?= EWAFuzz
SECONDS ?= 60
fuzz:
	@bash scripts/install-deps --fuzz
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz --target $(FUZZER)
	@mkdir -p build/fuzz/corpus/$(FUZZER)
	@./build/fuzz/fuzz/$(FUZZER) -max_total_time=$(SECONDS) -print_final_stats=1 \
		build/fuzz/corpus/$(FUZZER) fuzz/corpus/$(FUZZER)

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf build $(OUT)
