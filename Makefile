# Thin driver around CMake: two build trees, build/32 (the reference target) and build/64.
JOBS ?= $(shell nproc)
TREES := build/32 build/64

.PHONY: all deps build demo test install bench sanitize asan tsan valgrind fuzz clean i386-icu

all: build

deps:
	@scripts/install-deps

build/%/CMakeCache.txt:
	cmake -S . -B build/$* -DNUS_BITS=$* >/dev/null

# ICU for i386 (Debian's packages unpacked under build/, not installed), for the companion
# Unicode library of the 32-bit tree; without it that tree builds without the companion.
i386-icu:
	@scripts/fetch-i386-icu || echo "make: no i386 ICU; the 32-bit tree is built without the companion"

build: deps i386-icu build/32/CMakeCache.txt build/64/CMakeCache.txt
	cmake --build build/32 -j $(JOBS)
	cmake --build build/64 -j $(JOBS)

# The main job: everything built, the default data compiled, then a tour of the nus tool.
demo: build
	demo/tour build/64/tools/nus build/data

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

# The 64-bit tests under AddressSanitizer and UndefinedBehaviorSanitizer (no recovery: the
# first report fails the test). The library and tools are optimised as the shipped object is,
# the test programs are not (which keeps the build and run inside CI's time); no benchmarks.
# Left out: the checks of the shipped object and the install test, which do not apply to an
# instrumented build, and the walk of every Debian locale source through the tools' reader
# (minutes under the sanitizers; the plain run has it). The data tree is the one the plain
# trees compile. `asan` is the older name of the same run.
SANITIZE_SKIP := ^build\.|^install\.|^LocaleSource\.EveryDebianSourceReads$$
# SANITIZE_SKIP_MORE: further tests to leave out ("|^Name\\."), as CI does for time.
SANITIZE_SKIP_MORE ?=
SANITIZE := -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all
sanitize: build
	cmake -S . -B build/sanitize -DNUS_BITS=64 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUS_BENCH=OFF \
	    -DNUS_TEST_FLAGS="-O0;-g1;-Wno-maybe-uninitialized" \
	    -DNUS_DATA_COMPILE=OFF -DNUS_DATA_DIR=$(CURDIR)/build/data \
	    -DCMAKE_C_FLAGS="$(SANITIZE)" -DCMAKE_CXX_FLAGS="$(SANITIZE)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE)" >/dev/null
	cmake --build build/sanitize -j $(JOBS)
	cd build/sanitize && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	    ctest --output-on-failure -j $(JOBS) -E '$(SANITIZE_SKIP)$(SANITIZE_SKIP_MORE)'

asan: sanitize

# The thread test under ThreadSanitizer: a small 64-bit tree that builds the library and that
# one test program only. Nothing is suppressed: the process-wide setup (external functions,
# diagnostics, registry caches) is done before the test's threads start.
TSAN := -fsanitize=thread -fno-omit-frame-pointer
tsan: build
	cmake -S . -B build/tsan -DNUS_BITS=64 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUS_BENCH=OFF \
	    -DNUS_DATA_COMPILE=OFF -DNUS_DATA_DIR=$(CURDIR)/build/data \
	    -DCMAKE_C_FLAGS="$(TSAN)" -DCMAKE_CXX_FLAGS="$(TSAN)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(TSAN)" -DCMAKE_SHARED_LINKER_FLAGS="$(TSAN)" >/dev/null
	cmake --build build/tsan -j $(JOBS) --target robust_thread_tests
	cd build/tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	    NUS_TEST_DATA=$(CURDIR)/tests/data tests/robust_thread_tests

# memcheck over the test programs of the library, one program at a time; any invalid access or
# leak fails the run. The 32-bit tree (the reference target) by default, VALGRIND_TREE=build/64
# for the other. memcheck needs the symbols of the 32-bit dynamic loader, which Debian's
# multilib C library strips: the 32-bit programs run through the loader and C library of
# libc6:i386 of the same version, with their debugging symbols, which scripts/fetch-i386-libc
# unpacks from the Debian archive into build/i386-libc (nothing is installed). The programs
# that drive the compilers and the command-line tool are not part of it.
VALGRIND_TREE ?= build/32
I386_LIBC := $(CURDIR)/build/i386-libc
VALGRIND := valgrind --quiet --error-exitcode=99 --suppressions=$(CURDIR)/tests/valgrind.supp \
	--leak-check=full --show-leak-kinds=definite,indirect \
	--errors-for-leak-kinds=definite,indirect --track-origins=no
VALGRIND_PROGRAMS := frame_tests names_tests chars_tests locale_tests collate_tests time_tests \
	numeric_tests convert_tests robust_tests robust_thread_tests fuzz_replay_tests
valgrind: build
	@scripts/install-deps valgrind
	@set -e; run="$(VALGRIND)"; \
	if grep -q '^NUS_BITS:STRING=32$$' $(VALGRIND_TREE)/CMakeCache.txt; then \
	    scripts/fetch-i386-libc $(I386_LIBC); \
	    lib=$(I386_LIBC)/root/lib/i386-linux-gnu; \
	    run="env GCONV_PATH=$(I386_LIBC)/root/usr/lib/i386-linux-gnu/gconv $$run"; \
	    run="$$run $$lib/ld-linux.so.2 --library-path $$lib:/usr/lib32"; \
	fi; \
	cd $(VALGRIND_TREE)/tests; for p in $(VALGRIND_PROGRAMS); do \
	    echo "valgrind: $$p"; \
	    NUS_TEST_DATA=$(CURDIR)/tests/data $$run ./$$p --gtest_brief=1 >../valgrind-$$p.log 2>&1 \
	        || { tail -n 60 ../valgrind-$$p.log; exit 1; }; \
	done; echo "valgrind: no invalid accesses, no leaks"

# Fuzzing, not part of `make test`: the targets of fuzz/ in a clang tree of their own
# (build/fuzz), each run for FUZZ_SECONDS on its seed corpus (build/fuzz/corpus/<target>,
# assembled from the test data, the generated data tree and the saved inputs of
# tests/data/fuzz). New inputs go to build/fuzz/work/<target>, findings to
# build/fuzz/findings/<target>; a target that finds something makes the run fail. The inputs
# found then go through the library targets of the 32-bit tree's replay program, as the fuzzers
# themselves run only in the 64-bit tree.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := multi_table registry locale_file cvo_file convert collate numeric strings pnum cm_file \
                time_section time_format time_parse charmap locale_source cvdef
FUZZ_FLAGS := -rss_limit_mb=2048 -timeout=20 -print_final_stats=1
fuzz: build
	@scripts/install-deps clang libclang-rt-14-dev
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
	done; \
	echo "== the inputs found, through the 32-bit build"; \
	NUS_FUZZ_CORPUS=$(CURDIR)/build/fuzz/work NUS_TEST_DATA=$(CURDIR)/tests/data \
	    build/32/tests/fuzz_replay_tests --gtest_brief=1 \
	    --gtest_filter=FuzzReplay.CorpusNamedByTheEnvironment || status=1; \
	exit $$status

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
