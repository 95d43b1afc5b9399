# Thin driver around CMake: two build trees, build/32 (the reference target) and build/64.
JOBS ?= $(shell nproc)
TREES := build/32 build/64

.PHONY: all deps build demo test install bench asan clean

all: build

deps:
	@scripts/install-deps

build/%/CMakeCache.txt:
	cmake -S . -B build/$* -DNUS_BITS=$* >/dev/null

build: deps build/32/CMakeCache.txt build/64/CMakeCache.txt
	cmake --build build/32 -j $(JOBS)
	cmake --build build/64 -j $(JOBS)

demo: build
	build/32/demo/nus-demo

test: build
	cd build/32 && ctest --output-on-failure -j $(JOBS)
	cd build/64 && ctest --output-on-failure -j $(JOBS)

# Installs both trees: the libraries into PREFIX/lib/x86_64-linux-gnu and
# PREFIX/lib/i386-linux-gnu (with nus.pc and the CMake package beside each), nus.h, the tools,
# the man pages, and the compiled data into DATAROOT, where the library looks when TESSARONDIR
# is not set. DESTDIR is put in front of every path, for staged installs.
PREFIX ?= /usr/local
DATAROOT ?= /usr/tessaron
DESTDIR ?=
install: build
	for tree in $(TREES); do \
	    DESTDIR="$(DESTDIR)" NUS_DATAROOT="$(DATAROOT)" cmake --install $$tree --prefix "$(PREFIX)" || exit 1; \
	done

# The 64-bit tests under AddressSanitizer and UndefinedBehaviorSanitizer, optimised as the
# shipped object is (which keeps the run inside CI's time), without the benchmarks. Left out:
# the checks of the shipped object and the install test, which do not apply to an instrumented
# build, and the walk of every Debian locale source through the tools' reader (minutes under the
# sanitizers; the plain run has it). The data tree is the one the plain trees compile.
ASAN_SKIP := ^build\.|^install\.|^LocaleSource\.EveryDebianSourceReads$$
SANITIZE := -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all
asan: build
	cmake -S . -B build/asan -DNUS_BITS=64 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUS_BENCH=OFF \
	    -DNUS_DATA_COMPILE=OFF \
	    -DCMAKE_C_FLAGS="$(SANITIZE)" -DCMAKE_CXX_FLAGS="$(SANITIZE)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE)" >/dev/null
	cmake --build build/asan -j $(JOBS)
	cd build/asan && ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp ctest --output-on-failure -j $(JOBS) -E '$(ASAN_SKIP)'

# glibc locales the benchmarks compare with, compiled into the build tree (no system change).
GLIBC_LOCALES := build/glibc-locales
$(GLIBC_LOCALES)/%:
	@mkdir -p $(GLIBC_LOCALES)
	localedef -i $(word 1,$(subst ., ,$*)) -f $(word 2,$(subst ., ,$*)) $@ 2>/dev/null || test -d $@

bench: deps build/64/CMakeCache.txt $(GLIBC_LOCALES)/ja_JP.EUC-JP $(GLIBC_LOCALES)/de_DE.ISO-8859-1 \
       $(GLIBC_LOCALES)/ja_JP.SHIFT_JIS $(GLIBC_LOCALES)/en_US.UTF-8 $(GLIBC_LOCALES)/de_DE.UTF-8
	cmake --build build/64 -j $(JOBS) --target nus-bench
	LOCPATH=$(GLIBC_LOCALES) build/64/bench/nus-bench --benchmark_counters_tabular=true

clean:
	rm -rf build
