#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What the built library shows and needs:  check_library.sh LIBRARY MAP VERSION
set -euo pipefail
library=$1
map=$2
version=$3

# Names of the export list; the version node itself is an absolute symbol and no function.
expected=$(sed -n '/global:/,/local:/s/^ *\([A-Za-z_]*\);$/\1/p' "$map" | sort)
exported=$(nm -D --defined-only "$library" | awk '$2 != "A" {sub("@.*", "", $3); print $3}' | sort)
if [ "$exported" != "$expected" ] || [ "$(wc -l <<<"$exported")" != 7 ]; then
    printf 'exported:\n%s\nexpected:\n%s\n' "$exported" "$expected"
    exit 1
fi

soname=$(readelf -dW "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
if [ "$soname" != libhx_camera.so.1 ] ||
    [ "$(basename "$(readlink -f "$library")")" != "libhx_camera.so.$version" ]; then
    echo "SONAME $soname, file $(readlink -f "$library")"
    exit 1
fi

needed=$(readelf -dW "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p')
if others=$(grep -vxE 'lib(stdc\+\+\.so\.6|m\.so\.6|gcc_s\.so\.1|c\.so\.6)|ld-linux-.*' <<<"$needed"); then
    printf 'needs more than the C and C++ runtime:\n%s\n' "$others"
    exit 1
fi
