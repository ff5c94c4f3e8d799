#!/bin/sh
# own-platform.sh CMAKE SOURCE_DIR PLATFORM_LIBRARY BUILD_DIR WORK_DIR: configures the project with a platform layer
# from a package of an appliance (which is a copy of the stand-in, under a name of its own), and looks at what daemons
# would be told to link. To compile the library once more would tell nothing new.
set -eu
cmake=$1 source=$2 stand_in=$3 build=$4 work=$5

rm -rf "$work"
mkdir -p "$work/appliance"
cp "$stand_in" "$work/appliance/libappliance.so"
cat >"$work/appliance/ApplianceConfig.cmake" <<'end'
add_library(Appliance::platform SHARED IMPORTED)
set_target_properties(Appliance::platform PROPERTIES IMPORTED_NO_SONAME ON
    IMPORTED_LOCATION ${CMAKE_CURRENT_LIST_DIR}/libappliance.so)
end
compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
"$cmake" -S "$source" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DBUILD_TESTING=OFF \
    -DQUILLMARK_BUILD_TOOLS=OFF -DQUILLMARK_PLATFORM_TARGET=Appliance::platform \
    -DQUILLMARK_PLATFORM_PACKAGE=Appliance -DAppliance_DIR="$work/appliance" >"$work/configure.log"

failed=0
said() {    # said YES_OR_NO TEXT FILE
    found=no
    if grep -q -- "$2" "$3"; then found=yes; fi
    [ $found = "$1" ] || { echo "$3: '$2' is found: $found, expected: $1"; failed=1; }
}
said yes '-lquillmark$' "$work/build/quillmark.pc"
said no 'quillmark-platform' "$work/build/quillmark.pc"
said yes 'find_dependency(Appliance)' "$work/build/QuillmarkConfig.cmake"
said yes 'libappliance.so' "$work/build/build.ninja"
said no 'libquillmark-platform' "$work/build/build.ninja"
said yes '-lquillmark -lquillmark-platform$' "$build/quillmark.pc"
said no 'find_dependency(Appliance)' "$build/QuillmarkConfig.cmake"
exit $failed
