#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Uses an installed hx_camera as its users do: the commands, the program of the README and the
# examples, found by pkg-config and by CMake, all on simulated cameras. Where things lie is told by
# PATH, PKG_CONFIG_PATH, CMAKE_PREFIX_PATH and LD_LIBRARY_PATH.
#   use.sh EXAMPLES README
set -euo pipefail
examples=$(realpath "$1")
readme=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

failed() { echo "use.sh: $*" >&2; exit 1; }
lines() { [ "$(wc -l <"$1")" = "$2" ] || { cat "$1"; failed "$1: not $2 lines"; }; }
camera() { hx-sim --camera HX02-V02.1-12345A-L -- "$@"; }

camera hxcam list | grep -q '12345A-' || failed "hxcam list"
camera hxcam capture --quiet -n 3 -o shots
hxcam info shots/*.hxc | grep -c HX02-V02.1-12345A-L >count
grep -qx 3 count || failed "hxcam info"

# shellcheck disable=SC2016  # the back quotes are the document's
sed -n '/^```c$/,/^```$/p' "$readme" | sed '1d;$d' >first.c
# shellcheck disable=SC2046  # several words are wanted
"${CC:-cc}" -std=c11 -Wall -Wextra -Werror first.c $(pkg-config --cflags --libs libhx_camera) \
    -o first
camera ./first | grep -qx '3840315 bytes in first.hxc' || failed "program of the README"

try_examples() {
    set -o pipefail
    ./push | grep -q '^10 frames stored' || failed push
    ./pull | grep -qx '3840315 bytes in pull.hxc' || failed pull
    ./exposure 300 | grep -q '^exposure 300 in force' || failed exposure
    ./bracketing 50 800 || failed bracketing
}
export -f failed try_examples

for way in make cmake; do
    cp -r "$examples" $way
    cd $way
    if [ $way = make ]; then
        make -s -j2 CFLAGS=-Werror CXXFLAGS=-Werror
    else
        cmake -S . -B . >log || { cat log; failed cmake; }
        cmake --build . -j 2 >log || { cat log; failed cmake; }
    fi
    camera bash -c try_examples
    hx-sim --camera HX02-V02.1-12345A-L --camera HX01-V01.0-22222E -- ./two_cameras >two
    lines two 2
    cat push-*.hxc >all.hxc
    ./read_container all.hxc pull.hxc bracket-*.hxc >frames
    lines frames 13
    grep -c 'exposure 50 \|exposure 800 ' frames | grep -qx 2 || failed "exposure of the frames"

    if hx-sim -- ./pull 2>said; then failed "pull without a camera"; fi
    grep -qx 'no camera found' said
    if head -c 1000 pull.hxc | ./read_container /dev/stdin 2>said; then failed "half a file"; fi
    grep -q 'at byte' said
    cd ..
done
