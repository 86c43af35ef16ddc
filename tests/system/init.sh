#!/bin/busybox sh
# shellcheck shell=dash
# The guest's first program. Runs the plan that the host shares: drivers, cameras, steps.
/bin/busybox --install -s /bin
export PATH=/bin LC_ALL=C
mkdir /proc /sys /tmp /run /out /etc
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir /dev/shm
mount -t tmpfs tmpfs /dev/shm
mount -t tmpfs tmpfs /tmp
echo "root:x:0:0::/:/bin/sh
nobody:x:65534:65534::/:/bin/sh" >/etc/passwd

# sim COMMAND...: one line to the simulator, its answer to standard output.
sim() {
    echo "$*" >&8
    read -r answer <&9 && echo "$answer"
}

# step N COMMAND: a shell of its own; output, messages and exit status are what the host looks at.
step() {
    (eval "$2") >/out/"$1".out 2>/out/"$1".err
    echo $? >/out/"$1".status
}

# plug CAMERA...: a simulator that has them, once all of them are ready.
plug() {
    modprobe -a vhci-hcd uvcvideo
    mkfifo /run/sim.in /run/sim.out
    # shellcheck disable=SC2046 # words
    hx-sim usb $(printf -- '--camera %s ' "$@") </run/sim.in >/run/sim.out &
    exec 8>/run/sim.in 9</run/sim.out
    for _; do
        read -r line <&9
        echo "$line"
    done
}

# limit SECONDS: the end of all that hangs; what hung is the step without a status.
limit() {
    sleep "$1"
    echo "time is up"
    ps -o pid,stat,args
    kill -KILL -1
}

modprobe -a virtio_mmio 9pnet_virtio 9p
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144 out /out
# shellcheck disable=SC1091 # the host writes it
. /out/plan.sh >/out/runner.log 2>&1
dmesg >/out/dmesg
sync
poweroff -f
