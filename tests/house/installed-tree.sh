#!/bin/sh
# installed-tree.sh CMAKE BUILD_DIR EXAMPLES WORK_DIR: installs the build, builds the examples against
# what was installed, through the CMake package and through pkg-config, and compares what they print.
set -eu
cmake=$1 build=$2 examples=$3 work=$4

rm -rf "$work"
mkdir -p "$work"
"$cmake" --install "$build" --prefix "$work/prefix" >"$work/install.log"
"$cmake" -S "$examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_BUILD_TYPE=Debug >"$work/configure.log"
"$cmake" --build "$work/examples" >"$work/build.log" || { cat "$work/build.log"; exit 1; }

failed=0
for expected in "$examples"/*.expected; do
    name=$(basename "$expected" .expected)
    (cd "$work" && "$work/examples/$name" "$examples/lists" >"$work/$name.out" 2>&1) || { echo "$name: exit code $?"; failed=1; }
    diff -u "$expected" "$work/$name.out" || failed=1
done

# The same headers and library by way of pkg-config, for whoever has no CMake.
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name quillmark.pc)")
export PKG_CONFIG_PATH
g++ -std=c++17 $(pkg-config --cflags quillmark) "$examples/addresses.cpp" -o "$work/by-pkg-config" \
    $(pkg-config --libs quillmark) -Wl,-rpath,"$(pkg-config --variable=libdir quillmark)"
"$work/by-pkg-config" | diff -u "$examples/addresses.expected" -
exit $failed
