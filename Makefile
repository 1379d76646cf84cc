# Entry points for a fresh machine: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=
PREFIX     ?= /usr/local

.PHONY: all deps fuzz-deps build demo test install check-asan check-tsan fuzz bench bench-large format report-screenshot clean

all: build

deps:
	@scripts/install-deps

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DLM_WARNINGS_AS_ERRORS=ON $(CMAKE_ARGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	$(BUILD)/Tools/libmgr/libmgr demo

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# libmgr, the library, its header and its CMake package under PREFIX.
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLM_SANITIZE=address,undefined \
	    -DLM_WARNINGS_AS_ERRORS=ON $(CMAKE_ARGS)

check-asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)
	$(MAKE) fuzz

$(TSAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(TSAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLM_SANITIZE=thread \
	    -DLM_WARNINGS_AS_ERRORS=ON -DLM_BUILD_BENCH=OFF $(CMAKE_ARGS)

# The whole suite under ThreadSanitizer; the script threads' operations have a test of their own.
check-tsan: deps $(TSAN_BUILD)/build.ninja
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS)

fuzz-deps:
	@LM_SANITIZE_DEPS=1 scripts/install-deps

$(FUZZ_BUILD)/build.ninja: | fuzz-deps
	cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	    -DLM_SANITIZE=address,undefined -DLM_FUZZ=ON -DLM_BUILD_TESTS=OFF -DLM_BUILD_BENCH=OFF $(CMAKE_ARGS)

# A short run of every fuzz target, each from its corpus folder under fuzz/corpus when it has one.
fuzz: fuzz-deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@for target in $$(sed -n 's/^lm_fuzz_target(\(.*\))/\1/p' fuzz/CMakeLists.txt); do \
	    echo "fuzz: $$target for $(FUZZ_SECONDS) s"; \
	    mkdir -p $(FUZZ_BUILD)/corpus/$$target; \
	    ASAN_OPTIONS=allocator_may_return_null=1 $(FUZZ_BUILD)/fuzz/$$target -max_total_time=$(FUZZ_SECONDS) \
	        -print_final_stats=0 $(FUZZ_BUILD)/corpus/$$target $$( [ -d fuzz/corpus/$$target ] && echo fuzz/corpus/$$target ) \
	        2>$(FUZZ_BUILD)/$$target.log || { tail -50 $(FUZZ_BUILD)/$$target.log; exit 1; }; \
	done

bench: build
	bench/run $(BUILD)

# A million tiny parts; not part of bench, since generating them takes minutes.
bench-large: build
	bench/run-large $(BUILD)

# The picture of the report page that README shows, from the browser test that drives the page.
report-screenshot: build
	LM_REPORT_SCREENSHOT=$(CURDIR)/docs/report.png $(BUILD)/tests/libmgrTests \
	    --gtest_filter='ReportCommand.PageUnfoldsItsTreeAndSearchesInABrowser'

format:
	git ls-files -z '*.cpp' '*.hpp' | xargs -0 clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
