#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The programs in the documents compile as shown, with nothing of the project but what is installed,
# and do what the documents say.
#   documented_programs.sh ROOT CC CXX LIBRARY_FOLDER ARCHIVE HX_SIM [EMULATOR]
set -euo pipefail
root=$1
libraries=$4
emulator=${7:-}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
cp "$root/src/api/hx_camera.h" "$root/src/codec/hx_container.h" .

# extract DOCUMENT LANGUAGE: the document's one program in that language.
extract() { sed -n "/^\`\`\`$2\$/,/^\`\`\`\$/p" "$root/$1" | sed '1d;$d' >"program.$2"; }

extract README.md c
"$2" -std=c11 -Wall -Wextra -Werror -I. program.c -L"$libraries" -lhx_camera \
    -Wl,-rpath,"$libraries" -o first
$emulator "$6" --camera HX02-V02.1-12345A-L -- ./first | grep -qx '3840315 bytes in first.hxc'
[ "$(stat -c %s first.hxc)" = 3840315 ]

extract docs/container-format.md cpp
"$3" -std=c++20 -Wall -Wextra -Wpedantic -Werror -I. program.cpp "$5" -o read
$emulator ./read "$root/tests/data/hx02-lamp.hxc" | grep -qx '18 samples, exposure 10000, first 700'
if $emulator ./read "$root/tests/data/big-endian.hxc" 2>said; then exit 1; fi
grep -q '^at byte 2: ' said
