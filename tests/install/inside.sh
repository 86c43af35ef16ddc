#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# In a bare Debian with the packages in /test: installs them, uses them as an ordinary user and
# purges them. Nothing that they or their dependencies brought may be left.
set -euo pipefail
packages=(libhx-camera1 libhx-camera-dev hx-camera-tools)
archives=(/test/libhx-camera1_*.deb /test/libhx-camera-dev_*.deb /test/hx-camera-tools_*.deb)
# Made once, for all architectures, with those of the machine that builds.
if compgen -G '/test/python3-hxcamera_*.deb' >/dev/null; then
    packages+=(python3-hxcamera)
    archives+=(/test/python3-hxcamera_*.deb)
fi

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
[ -z "$(dpkg --verify "${packages[@]}" | tee /dev/stderr)" ]

runuser -u tester -- /test/use.sh /usr/share/doc/libhx-camera-dev/examples /test/README.md
if [ ${#packages[@]} = 4 ]; then
    runuser -u tester -- hx-sim --camera HX01-V01.0-22222E -- python3 -c '
import hxcamera
print("Python:", [frame.samples.shape for frame in hxcamera.Capture(count=2)])'
fi

apt-get -qq purge -y --autoremove "${packages[@]}" >/tmp/log 2>&1 || { cat /tmp/log; exit 1; }
files >/tmp/after
diff /tmp/before /tmp/after || { echo "these were left (>) or taken along (<)" >&2; exit 1; }
echo "installed, used, purged: ${packages[*]} ($(dpkg --print-architecture))"
