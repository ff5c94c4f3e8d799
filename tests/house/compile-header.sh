#!/bin/sh
# compile-header.sh FILE INCLUDE_DIR: compiles a file of one #include in every dialect that daemons use.
set -eu
warnings="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"
include="-I$2 -fsyntax-only"
case $1 in
*.c)
    gcc -std=c11 $warnings $include "$1"
    clang -std=c11 $warnings $include "$1"
    ;;
*)
    for standard in c++17 c++20 c++23; do
        g++ -std=$standard $warnings $include "$1"
    done
    for standard in c++17 c++20 c++2b; do
        clang++ -std=$standard $warnings $include "$1"
    done
    ;;
esac
