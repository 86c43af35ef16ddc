#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compares what programs were built against with what they would find: the C types and signatures of
# the header with the kept description of this SONAME, and the exported names with the symbols file
# of the Debian package.
#   check_abi.sh LIBRARY PROBE SYMBOLS [--update]
# PROBE is public_names.c, compiled. --update keeps the present state; it refuses a change that
# breaks programs: that needs another SONAME, and with it a description of its own.
set -euo pipefail
library=$1
probe=$2
symbols=$3
update=${4:-}

soname=$(readelf -dW "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
kept=$(dirname "$0")/$soname.abi
now=$(mktemp)
trap 'rm -f "$now"' EXIT
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-architecture "$probe" |
    sed "s| path='[^']*'||" >"$now"
grep -q "signature_getHxData" "$now"

if [ "$update" = --update ]; then
    # Names and enumerators may be added, everything else breaks programs.
    if [ -f "$kept" ]; then abidiff --no-architecture --no-added-syms "$kept" "$now"; fi
    cp "$now" "$kept"
elif [ ! -f "$kept" ]; then
    echo "no description of $soname; the target keep_abi makes it" >&2
    exit 1
elif ! abidiff --no-architecture --harmless "$kept" "$now"; then
    echo "the interface of $soname has changed; the target keep_abi keeps what breaks nobody" >&2
    exit 1
fi

exported=$(nm -D --defined-only --with-symbol-versions "$library" | awk '{print $3}' |
    sed 's/@@/@/; s/^HX_CAMERA_1$/HX_CAMERA_1@HX_CAMERA_1/' | sort)
listed=$(awk '/^ / {print $1}' "$symbols" | sort)
head -n 1 "$symbols" | grep -q "^$soname "
diff <(echo "$listed") <(echo "$exported") >&2
