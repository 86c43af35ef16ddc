#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# In a bare Debian with the packages in /test: installs them, uses them as an ordinary user and
# purges them. Nothing that they or their dependencies brought may be left.
set -euo pipefail
packages=(libhx-camera1 libhx-camera-dev hx-camera-tools python3-hxcamera)
archives=()
for package in "${packages[@]}"; do archives+=(/test/"$package"_*.deb); done

# Everything but what the package manager writes for itself.
files() {
    find / -xdev \( -path /proc -o -path /test -o -path /tmp -o -path /var/lib/apt \
        -o -path /var/lib/dpkg -o -path /var/log -o -path /var/cache \) -prune -o -print | sort
}

useradd tester
files >/tmp/before
apt-get -qq update
apt-get -qq install -y --no-install-recommends "${archives[@]}" \
    >/tmp/log 2>&1 || { cat /tmp/log; exit 1; }
if ! changed=$(dpkg --verify "${packages[@]}") || [ -n "$changed" ]; then
    echo "$changed" >&2
    exit 1
fi

runuser -u tester -- /test/use.sh /usr/share/doc/libhx-camera-dev/examples /test/README.md
runuser -u tester -- hx-sim --camera HX01-V01.0-22222E,unplug=2 -- python3 -c '
import hxcamera
frames = hxcamera.Capture(timeout=60)
print("import hxcamera:", next(frames).entries, next(frames).samples, sep="\n")
try:
    next(frames)
except hxcamera.CameraLost as lost:
    print("CameraLost:", lost)
else:
    raise SystemExit("a frame of an unplugged camera")'

apt-get -qq purge -y --autoremove "${packages[@]}" >/tmp/log 2>&1 || { cat /tmp/log; exit 1; }
files >/tmp/after
diff /tmp/before /tmp/after || { echo "these were left (>) or taken along (<)" >&2; exit 1; }
echo "installed, used, purged: ${packages[*]} ($(dpkg --print-architecture))"
