#!/usr/bin/env bash
# Installs the build trees into a temporary DESTDIR as `make install` does and checks the result
# from outside the source tree: the files and links, the tools and their RUNPATH, the man pages,
# and a consumer program built with pkg-config and with CMake's find_package(nus), run against
# the installed library and data. The consumer is the example of the libnus(3) man page, so
# that the documented program is known to build and to print what the page says.
#
#   install_test.sh SOURCE_DIR TREE64 [TREE32]
#
# TREE32 is installed and checked when it holds a built library. Everything is removed at the
# end.
set -euo pipefail
source_dir=$1 tree64=$2 tree32=${3:-}
[[ -n "$tree32" && -e "$tree32/libnus.so" ]] || tree32=""

work=$(mktemp -d "${TMPDIR:-/tmp}/nus-install-XXXXXX")
trap 'rm -rf "$work"' EXIT
dest=$work/dest prefix=/usr/local dataroot=/usr/tessaron
root=$dest$prefix data=$dest$dataroot
lib64=$root/lib/x86_64-linux-gnu lib32=$root/lib/i386-linux-gnu
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# grep that reads all of its input: with pipefail, "grep -q" quitting at the first match would
# fail the pipeline through the writer's broken pipe.
matches() { grep "$@" >/dev/null; }
step() { echo "-- $*"; }
# expect_output WHAT EXPECTED COMMAND...: runs the command, compares its standard output.
expect_output() {
    local what=$1 expected=$2 out status=0
    shift 2
    out=$("$@" 2>"$work/stderr") || status=$?
    if ((status != 0)); then
        fail "$what: exit status $status ($(cat "$work/stderr"))"
    elif [[ "$out" != "$expected" ]]; then
        fail "$what: printed [$out], expected [$expected]"
    fi
}

step "install"
for tree in $tree32 $tree64; do
    if ! DESTDIR=$dest NUS_DATAROOT=$dataroot cmake --install "$tree" --prefix $prefix \
            >"$work/install.log" 2>&1; then
        cat "$work/install.log"
        fail "cmake --install $tree"
        exit 1
    fi
done

step "files and links"
libs=("$lib64")
[[ -n "$tree32" ]] && libs+=("$lib32")
for lib in "${libs[@]}"; do
    [[ -f $lib/libnus.so.4.0.0 ]] || fail "$lib/libnus.so.4.0.0 missing"
    [[ "$(readlink "$lib/libnus.so.4")" == libnus.so.4.0.0 ]] || fail "$lib/libnus.so.4 is no link to libnus.so.4.0.0"
    [[ "$(readlink "$lib/libnus.so")" == libnus.so.4 ]] || fail "$lib/libnus.so is no link to libnus.so.4"
    readelf -d "$lib/libnus.so.4.0.0" | matches 'SONAME.*\[libnus\.so\.4\]' || fail "$lib: SONAME is not libnus.so.4"
    for f in pkgconfig/nus.pc cmake/nus/nusConfig.cmake cmake/nus/nusConfigVersion.cmake cmake/nus/nusTargets.cmake; do
        [[ -f $lib/$f ]] || fail "$lib/$f missing"
    done
done
readelf -h "$lib64/libnus.so.4.0.0" | matches 'Class:.*ELF64' || fail "the x86_64 library is not ELF64"
if [[ -n "$tree32" ]]; then
    readelf -h "$lib32/libnus.so.4.0.0" | matches 'Class:.*ELF32' || fail "the i386 library is not ELF32"
else
    echo "note: no built 32-bit tree beside $tree64; the i386 library is not checked"
fi
cmp -s "$root/include/nus.h" "$source_dir/include/nus.h" || fail "include/nus.h differs from the source"
for f in bin/nus bin/nus-localedef bin/nus-cvdef share/nus/registry share/nus/charmap-names \
         share/nus/locale-modifiers share/man/man1/nus.1 share/man/man1/nus-localedef.1 \
         share/man/man1/nus-cvdef.1 \
         share/man/man3/libnus.3 share/cmake/nus/nusConfig.cmake; do
    [[ -e $root/$f ]] || fail "$prefix/$f missing"
done
for f in nus/cm3/registry nus/lc11/default.lco nus/lc11/de_de/0333.lco nus/cv9/0333e01c.cvo; do
    [[ -f $data/$f ]] || fail "$dataroot/$f missing"
done
[[ -z "$(find "$data" -name '.compiled')" ]] || fail "the build's stamp files were installed with the data"

step "tools"
readelf -d "$root/bin/nus" | matches 'R.*PATH.*\$ORIGIN/\.\./lib/x86_64-linux-gnu' || fail "bin/nus has no RUNPATH to its library"
# No LD_LIBRARY_PATH: the RUNPATH must find the installed library, not the build tree's.
if ! (cd "$work" && env -u LD_LIBRARY_PATH "$root/bin/nus" --help >"$work/help" 2>&1); then
    fail "bin/nus --help: $(cat "$work/help")"
fi
grep -q 'Usage: nus' "$work/help" || fail "bin/nus --help printed no usage"
ldd "$root/bin/nus" | matches "libnus.so.4 => $root/bin/../lib/x86_64-linux-gnu/" || fail "bin/nus does not load the installed library"

# The installed compilers read the registry and charmap names installed beside them: an entry
# that only these copies have must show in what they write.
echo "nus-install-test 819" >>"$root/share/nus/registry"
{ echo "ISO-8859-1 nus-install-test"; cat "$root/share/nus/charmap-names"; } >"$work/names"
cp "$work/names" "$root/share/nus/charmap-names"
tree=$work/tree
if ! (cd "$work" && "$root/bin/nus-localedef" -i de_DE -f ISO-8859-1 --tree "$tree" >"$work/tool.log" 2>&1 &&
      "$root/bin/nus-cvdef" -f ISO-8859-1 -t UTF-8 --tree "$tree" >>"$work/tool.log" 2>&1); then
    fail "installed nus-localedef / nus-cvdef: $(cat "$work/tool.log")"
fi
head -n 6 "$tree/nus/lc11/de_de/0333.lco" 2>/dev/null | matches -x nus-install-test || fail "nus-localedef did not use the installed charmap names"
[[ -f $tree/nus/cv9/0333e01c.cvo && -f $tree/nus/cv9/nus-install-test_utf8.cvo ]] || fail "nus-cvdef did not use the installed registry and names"
mkdir -p "$tree/nus/cm3" && cp "$root/share/nus/registry" "$tree/nus/cm3/registry"

step "man pages"
for page in man1/nus.1 man1/nus-localedef.1 man1/nus-cvdef.1 man3/libnus.3; do
    warnings=$(groff -t -man -ww -z "$root/share/man/$page" 2>&1)
    [[ -z "$warnings" ]] || fail "$page: groff: $warnings"
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$root/share/man/$page" 2>&1 >/dev/null)
    [[ -z "$warnings" ]] || fail "$page: man: $warnings"
done
[[ "$(man -M "$root/share/man" -w 3 libnus 2>/dev/null)" == "$root/share/man/man3/libnus.3" ]] || fail "man -M PREFIX/share/man 3 libnus does not find the page"

# The consumer: the example of libnus(3), with its roff escapes undone.
sed -n '/^\.SH EXAMPLE/,/^\.SH /p' "$root/share/man/man3/libnus.3" | sed -n '/^\.EX/,/^\.EE/p' |
    sed -e '1d;$d' -e 's/\\e/\\/g' -e 's/\\-/-/g' -e "s/\\\\(aq/'/g" -e 's/\\(:A/Ä/g' >"$work/consumer.c"
expected=$'before\n-1.234,50 EUR'

step "pkg-config consumer"
pkg_build() { # ARCH FLAG: builds the consumer with the nus.pc of that library folder
    local cflags
    cflags=$(PKG_CONFIG_PATH=$root/lib/$1/pkgconfig PKG_CONFIG_SYSROOT_DIR=$dest pkg-config --cflags --libs nus) &&
        (cd "$work" && cc $2 -Wall -Wextra -Werror consumer.c $cflags -o "pc-$1")
}
if pkg_build x86_64-linux-gnu ""; then
    expect_output "pkg-config consumer" "$expected" env LD_LIBRARY_PATH="$lib64" TESSARONDIR="$data" "$work/pc-x86_64-linux-gnu"
    expect_output "pkg-config consumer on the freshly compiled locale" "$expected" \
        env LD_LIBRARY_PATH="$lib64" TESSARONDIR="$tree" "$work/pc-x86_64-linux-gnu"
else
    fail "pkg-config consumer does not build"
fi
[[ "$(PKG_CONFIG_PATH=$lib64/pkgconfig pkg-config --variable=tessarondir nus)" == "$dataroot" ]] || fail "nus.pc names the wrong data root"
if [[ -n "$tree32" ]]; then
    if pkg_build i386-linux-gnu -m32; then
        expect_output "-m32 pkg-config consumer" "$expected" env LD_LIBRARY_PATH="$lib32" TESSARONDIR="$data" "$work/pc-i386-linux-gnu"
    else
        fail "-m32 pkg-config consumer does not build"
    fi
fi

step "CMake consumer"
mkdir -p "$work/project"
cp "$work/consumer.c" "$work/project/"
cat >"$work/project/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.20)
project(consumer C)
find_package(nus 4 REQUIRED)
add_executable(consumer consumer.c)
target_link_libraries(consumer PRIVATE nus::nus)
CMAKE
cmake_build() { # NAME FLAGS: configures and builds the project with the installed package
    cmake -S "$work/project" -B "$work/$1" -DCMAKE_PREFIX_PATH="$root" -DCMAKE_C_FLAGS="$2" \
        >"$work/$1.log" 2>&1 && cmake --build "$work/$1" >>"$work/$1.log" 2>&1 || { cat "$work/$1.log"; false; }
}
if cmake_build cmake64 ""; then
    grep -q "^nus_DIR:PATH=$lib64/cmake/nus$" "$work/cmake64/CMakeCache.txt" || fail "find_package(nus) took $(grep ^nus_DIR "$work/cmake64/CMakeCache.txt")"
    expect_output "CMake consumer" "$expected" env LD_LIBRARY_PATH="$lib64" TESSARONDIR="$data" "$work/cmake64/consumer"
else
    fail "CMake consumer does not build"
fi
if [[ -n "$tree32" ]]; then
    if cmake_build cmake32 -m32; then
        ldd "$work/cmake32/consumer" | matches "$lib32/libnus.so.4" || fail "-m32 CMake consumer is not linked with the i386 library"
        expect_output "-m32 CMake consumer" "$expected" env LD_LIBRARY_PATH="$lib32" TESSARONDIR="$data" "$work/cmake32/consumer"
    else
        fail "-m32 CMake consumer does not build"
    fi
fi

step "SQL extensions"
# The SQLite extension finds the installed library through its RUNPATH ($ORIGIN/..); the
# PostgreSQL extension's files go to the server's folders under DESTDIR.
if [[ -e $tree64/sql/nus_sqlite.so ]]; then
    expect_output "installed SQLite extension" "STRAßE" env -u LD_LIBRARY_PATH TESSARONDIR="$data" \
        sqlite3 :memory: ".load $lib64/nus/nus_sqlite" "SELECT nus_upper('straße', 'de_de.utf8');"
fi
if [[ -e $tree64/sql/postgres/nus_pg.so ]]; then
    for f in "$(pg_config --pkglibdir)/nus_pg.so" "$(pg_config --sharedir)/extension/nus.control" \
             "$(pg_config --sharedir)/extension/nus--1.0.sql"; do
        [[ -f $dest$f ]] || fail "$f missing"
    done
fi

if ((failures)); then
    echo "$failures failure(s)"
    exit 1
fi
echo "install test passed"
