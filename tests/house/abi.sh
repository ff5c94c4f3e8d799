#!/bin/sh
# abi.sh INCLUDE_DIR LIBRARY RECORDED WORK_DIR: what compiled daemons rely on, held against the record:
# the size of every public class, each of its virtual operations in order, and the exported
# names. A difference is a break for daemons unless it only adds lines; after a wanted change the new
# record is WORK_DIR/abi.txt.
set -eu
include=$1 library=$2 recorded=$3 work=$4

rm -rf "$work"
mkdir -p "$work"
for header in "$include"/include2/*; do
    echo "#include \"include2/$(basename "$header")\""
done >"$work/all.cpp"
(cd "$work" && g++ -std=c++17 -I"$include" -fsyntax-only -fdump-lang-class=classes.txt all.cpp)

{
    # For each class of ours its size and alignment, and its tables of virtual operations.
    awk '/^Class Quillmark::/ { print; getline; print; next }
         /^Vtable for Quillmark::/ { ours = 1 }
         /^$/ { ours = 0 }
         ours' "$work/classes.txt"
    echo "Exported names"
    # What the linker may not drop; inline functions, and how tables are stored, come and go with the compiler.
    nm --dynamic --defined-only --demangle "$library" | sed -n 's/^[0-9a-f]* [TDBR] //p' |
        grep -vE '^(VTT|vtable|construction vtable|typeinfo|typeinfo name) for ' | sort -u
} >"$work/abi.txt"

diff -u "$recorded" "$work/abi.txt"
