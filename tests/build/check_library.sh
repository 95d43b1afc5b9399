#!/usr/bin/env bash
# Checks the shipped shared object: ELF class and type, no C++ runtime among its needs, a
# soname, and a dynamic symbol table that exports exactly the names declared in nus.h.
# usage: check_library.sh LIBRARY BITS HEADER
set -uo pipefail
lib=$1 bits=$2 header=$3
failed=0
fail() { echo "FAIL: $*"; failed=1; }

header_info=$(readelf -h "$lib") || { echo "FAIL: cannot read $lib"; exit 1; }
if [[ $bits == 32 ]]; then
    grep -q 'Class:.*ELF32' <<<"$header_info" || fail "not a 32-bit ELF file"
    grep -q 'Machine:.*80386' <<<"$header_info" || fail "not an x86 object"
else
    grep -q 'Class:.*ELF64' <<<"$header_info" || fail "not a 64-bit ELF file"
    grep -q 'Machine:.*X86-64' <<<"$header_info" || fail "not an x86_64 object"
fi
grep -q 'Type:.*DYN' <<<"$header_info" || fail "not a shared object"

dynamic=$(readelf -d "$lib")
grep -q '(SONAME).*libnus\.so\.' <<<"$dynamic" || fail "no soname"
needed=$(grep '(NEEDED)' <<<"$dynamic" | sed 's/.*\[\(.*\)\]/\1/')
for n in $needed; do
    case $n in
        libc.so.*|libm.so.*|libdl.so.*|ld-linux*) ;;
        *) fail "needs $n" ;;
    esac
done
grep -qE 'libstdc\+\+|libgcc_s' <<<"$needed" && fail "needs the C++ runtime"
if grep -q '(TEXTREL)' <<<"$dynamic"; then fail "has text relocations: not position-independent"; fi

# What the header declares (each NU_API declaration names its function or object on its
# first line) against what the library exports.
declared=$(grep -E '^NU_API' "$header" |
           sed -E 's/\(.*//; s/\[.*//; s/;.*//; s/.*[ *]([A-Za-z_][A-Za-z0-9_]*)$/\1/' | sort -u)
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | grep -v '^_init$\|^_fini$' | sort -u)

while read -r name; do
    [[ -z $name ]] && continue
    # The companion bridge's objects, entry-point pointers, loader wrappers and kind-3
    # collation functions keep their own names.
    [[ $name =~ ^(fn_nuu_|tsrn_dl|_nuu_)|^(unicode_collate|nuu_capable|pMap)$ ]] && continue
    [[ $name =~ ^(nu_|_nu_|_tsn_nu_|nus_) ]] || fail "exports $name, which is not a public name"
done <<<"$exported"
missing=$(comm -23 <(echo "$declared") <(echo "$exported"))
extra=$(comm -13 <(echo "$declared") <(echo "$exported"))
[[ -z $missing ]] || fail "declared in nus.h but not exported: $(echo $missing)"
[[ -z $extra ]] || fail "exported but not declared in nus.h: $(echo $extra)"

count=$(grep -c . <<<"$exported")
if ((failed)); then exit 1; fi
echo "libnus.so ($bits-bit): $count exported names, all declared; needs only: $(echo $needed)"
