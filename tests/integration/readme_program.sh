#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The program in README.md compiles as shown and captures a frame.
#   readme_program.sh ROOT COMPILER LIBRARY_FOLDER HX_SIM [EMULATOR]
set -euo pipefail
root=$1
compiler=$2
libraries=$3
sim=$4
emulator=${5:-}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
# shellcheck disable=SC2016  # the back quotes are the document's
sed -n '/^```c$/,/^```$/p' "$root/README.md" | sed '1d;$d' >first.c
[ -s first.c ]
"$compiler" -std=c11 -Wall -Wextra -Werror -I"$root/src/api" first.c -L"$libraries" -lhx_camera \
    -Wl,-rpath,"$libraries" -o first
$emulator "$sim" --camera HX02-V02.1-12345A-L -- ./first | tee said
grep -qx '12345A-: 3840315 bytes in first.hxc' said
[ "$(stat -c %s first.hxc)" = 3840315 ]
