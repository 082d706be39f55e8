#!/bin/sh
# Usage: check-interface.sh exports|imports|update LIBRARY MAP - what the built module offers and needs
set -eu

what=$1 library=$2 map=$3
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

fail() {
    echo "$*" >&2
    exit 1
}

# Names that leave the library; the version node itself is no name.
exported() {
    nm -D --defined-only --without-symbol-versions "$library" |
        awk '$2 != "A" { print $3 }' | sort
}

# Names between "global:" and "local:" of the version script.
mapped() {
    sed -e 's,/\*.*\*/,,' "$map" | sed -n '/global:/,/local:/p' | sed -e '/global:/d' -e '/local:/d' |
        tr -s '; \t' '\n' | sed '/^$/d' | sort
}

# Names that it takes from elsewhere.  A fortified call counts as the call.
imported() {
    nm -D --undefined-only --without-symbol-versions "$library" | awk '{ print $NF }' |
        sed -E 's/^__(.*)_chk$/\1/' | sort -u
}

# The loader is part of the C library; thread-local variables bring it in.
needed() {
    readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^ld-linux' | sort
}

compare() { # compare GOLDEN NOW: differences are shown as a diff
    diff -u "$1" "$2" || fail "$(basename "$1") differs from $library; if that is meant:
    tests/abi/check-interface.sh update $library $map"
}

case $what in
exports)
    [ "$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" = mlist.so.0 ] ||
        fail "the soname is not mlist.so.0"
    exported >"$work/exports"
    mapped >"$work/map"
    [ -s "$work/exports" ] || fail "nothing is exported"
    diff -u "$work/map" "$work/exports" || fail "the library does not export what $map lists"
    compare "$here/exports.txt" "$work/exports"
    ;;
imports)
    imported >"$work/imports"
    needed >"$work/needed"
    # The C++ run time: mangled names, exceptions, guards, run-time type information.
    if grep -E '^_Z|^__cxa_|^__gxx_|^_Unwind|^__dynamic_cast' "$work/imports" |
        grep -v -x -E '__cxa_(finalize|atexit)'; then
        fail "the names above belong to a C++ run time"
    fi
    printf '%s\n' libc.so.6 libldapuse.so libmlog.so >"$work/allowed"
    diff -u "$work/allowed" "$work/needed" || fail "the library needs other libraries"
    compare "$here/imports.txt" "$work/imports"
    ;;
update)
    exported >"$here/exports.txt"
    imported >"$here/imports.txt"
    ;;
*) fail "unknown check '$what'" ;;
esac
