#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The program in docs/container-format.md compiles as shown, with nothing of the project but the
# installed header and the archive, and reads containers.
#   container_program.sh ROOT COMPILER ARCHIVE [EMULATOR]
set -euo pipefail
root=$1
compiler=$2
archive=$3
emulator=${4:-}
data=$root/tests/data

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
cp "$root/src/codec/hx_container.h" .
# shellcheck disable=SC2016  # the back quotes are the document's
sed -n '/^```cpp$/,/^```$/p' "$root/docs/container-format.md" | sed '1d;$d' >read.cpp
[ -s read.cpp ]
"$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -I. read.cpp "$archive" -o read

$emulator ./read "$data/hx02-lamp.hxc" | grep -qx '18 samples, exposure 10000, first 700'
if $emulator ./read "$data/big-endian.hxc" 2>said; then exit 1; fi
grep -q '^at byte 2: ' said
