#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What is installed still works after its folder was moved, and tells no path of the build.
#   moved_tree.sh ROOT BUILD LIBDIR
set -euo pipefail
root=$1
build=$2
libdir=$3

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/first" >/dev/null
mv "$folder/first" "$folder/moved"
tree=$folder/moved

if grep -rIl -e "$folder/first" -e "$root" "$tree"; then
    echo "these files hold a path of the build" >&2
    exit 1
fi
while read -r file; do
    if readelf -d "$file" 2>/dev/null | grep -E 'R(UN)?PATH' | grep -v '\[[$]ORIGIN'; then
        echo "$file looks for its libraries in a fixed folder" >&2
        exit 1
    fi
done < <(find "$tree" -type f -perm -u+x -o -name '*.so*' -type f)
export PATH=$tree/bin:$PATH
export PKG_CONFIG_PATH=$tree/$libdir/pkgconfig
export CMAKE_PREFIX_PATH=$tree
# The commands find their libraries by themselves.
hx-sim --camera HX02-V02.1-12345A-L -- hxcam capture --quiet -o "$folder/shot"
export LD_LIBRARY_PATH=$tree/$libdir
"$root/tests/install/use.sh" "$root/examples" "$root/README.md"
