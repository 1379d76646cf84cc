# Entry points for a fresh machine: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps build demo test check-asan bench format clean

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

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLM_SANITIZE=address,undefined \
	    -DLM_WARNINGS_AS_ERRORS=ON $(CMAKE_ARGS)

check-asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

bench: build
	bench/run $(BUILD)

format:
	git ls-files -z '*.cpp' '*.hpp' | xargs -0 clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
