# Thin driver around CMake: two build trees, build/32 (the reference target) and build/64.
JOBS ?= $(shell nproc)
TREES := build/32 build/64

.PHONY: all deps build demo test bench asan fuzz clean

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

# The 64-bit tests under AddressSanitizer and UndefinedBehaviorSanitizer, optimised as the
# shipped object is (which keeps the run inside CI's time), without the benchmarks. Left out:
# the checks of the shipped object, which do not apply to an instrumented build, and the walk
# of every Debian locale source through the tools' reader (minutes under the sanitizers; the
# plain run has it). The data tree is the one the plain trees compile.
ASAN_SKIP := ^build\.|^LocaleSource\.EveryDebianSourceReads$$
SANITIZE := -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all
asan: build
	cmake -S . -B build/asan -DNUS_BITS=64 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUS_BENCH=OFF \
	    -DNUS_DATA_COMPILE=OFF \
	    -DCMAKE_C_FLAGS="$(SANITIZE)" -DCMAKE_CXX_FLAGS="$(SANITIZE)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE)" >/dev/null
	cmake --build build/asan -j $(JOBS)
	cd build/asan && ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp ctest --output-on-failure -j $(JOBS) -E '$(ASAN_SKIP)'

# Fuzzing, not part of `make test`: the targets of fuzz/ in a clang tree of their own
# (build/fuzz), each run for FUZZ_SECONDS on its seed corpus (build/fuzz/corpus/<target>,
# assembled from the test data, the generated data tree and the saved inputs of
# tests/data/fuzz). New inputs go to build/fuzz/work/<target>, findings to
# build/fuzz/findings/<target>; a target that finds something makes the run fail.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := multi_table registry locale_file cvo_file convert collate numeric strings \
                charmap locale_source cvdef
FUZZ_FLAGS := -rss_limit_mb=2048 -timeout=20 -print_final_stats=1
fuzz: build
	CC=clang CXX=clang++ cmake -S fuzz -B build/fuzz -DNUS_DATA_DIR=$(CURDIR)/build/data >/dev/null
	cmake --build build/fuzz -j $(JOBS) --target fuzz_all
	rm -rf build/fuzz/corpus
	fuzz/make-corpus.py $(CURDIR) $(CURDIR)/build/data build/fuzz/corpus
	@status=0; for t in $(FUZZ_TARGETS); do \
	    mkdir -p build/fuzz/work/$$t build/fuzz/findings/$$t; \
	    echo "== fuzz_$$t for $(FUZZ_SECONDS) s"; \
	    build/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) $(FUZZ_FLAGS) \
	        -artifact_prefix=build/fuzz/findings/$$t/ build/fuzz/work/$$t build/fuzz/corpus/$$t \
	        2>build/fuzz/findings/$$t.log || { status=1; tail -n 40 build/fuzz/findings/$$t.log; }; \
	    grep -E '^stat::(number_of_executed_units|peak_rss_mb)|DONE' build/fuzz/findings/$$t.log; \
	done; exit $$status

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
