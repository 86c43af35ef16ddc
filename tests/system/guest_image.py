# SPDX-License-Identifier: MIT
"""The guest: Debian's arm64 kernel and a file system in its memory.

Nothing is installed: packages are downloaded and unpacked below the build folder.
"""
import os
import pathlib
import re
import shutil
import subprocess

INIT = pathlib.Path(__file__).parent / "init.sh"
TOOLS = ["v4l-utils", "libv4l-0", "libv4lconvert0", "libv4l2rds0", "libudev1", "libjpeg62-turbo"]
# What is loaded and what it depends on; the whole package is far larger.
KERNEL_PARTS = ["./boot/vmlinuz*", "./lib/modules/*/modules.*"] + [
    f"./lib/modules/*/kernel/{part}*" for part in (
        "drivers/virtio/", "drivers/usb/common/", "drivers/usb/core/", "drivers/usb/usbip/",
        "drivers/media/cec/core/", "drivers/media/common/", "drivers/media/mc/",
        "drivers/media/rc/rc-core", "drivers/media/test-drivers/", "drivers/media/usb/uvc/",
        "drivers/media/v4l2-core/", "net/9p/", "fs/9p/", "fs/fscache/", "fs/netfs/")]
LIBRARIES = pathlib.Path("lib/aarch64-linux-gnu")


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def unpacked(package, folder, parts=("*",)):
    """The tree of these parts of a package, in the version that apt has now."""
    offer = output_of("apt-get", "download", "--print-uris", f"{package}:arm64").split()
    file = folder / offer[1]
    tree = file.with_suffix("")
    if not tree.exists():
        subprocess.run(["apt-get", "download", "-qq", "-o", "APT::Sandbox::User=root",
                        f"{package}:arm64"], check=True, cwd=folder)
        half = folder / "half"
        shutil.rmtree(half, ignore_errors=True)
        half.mkdir()
        with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", file], stdout=subprocess.PIPE) as tar:
            subprocess.run(["tar", "-x", "-C", half, "--wildcards", *parts], check=True,
                           stdin=tar.stdout)
        file.unlink()
        half.rename(tree)
    return tree


def add_libraries(binary, folders, found):
    """What a binary links, and what that links, each from the first folder that has it."""
    for name in re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-d", binary)):
        if name not in found:
            places = [folder / name for folder in folders if (folder / name).exists()]
            if not places:
                raise RuntimeError(f"no {name} for arm64 on this machine")
            found[name] = places[0]
            add_libraries(places[0], folders, found)


def put_programs(root, programs, folders):
    """Programs and their libraries below a root, without their symbols."""
    folders = [programs[0].parent.parent / "lib", *folders, "/" / LIBRARIES,
               "/usr" / LIBRARIES, pathlib.Path("/usr/aarch64-linux-gnu/lib")]
    libraries = {}
    for program in programs:
        add_libraries(program, folders, libraries)
    for folder, files in ((root / "bin", programs), (root / LIBRARIES, libraries.values())):
        folder.mkdir(parents=True, exist_ok=True)
        for file in files:
            subprocess.run(["aarch64-linux-gnu-strip", "-o", folder / file.name, file], check=True)


def make_image(work, programs, sanitized):
    """Kernel and first file system; sanitized programs lie below /asan there."""
    packages, root = work / "packages", work / "root"
    packages.mkdir(parents=True, exist_ok=True)
    shutil.rmtree(root, ignore_errors=True)
    meta = output_of("apt-cache", "depends", "linux-image-arm64:arm64")
    kernel = unpacked(re.search(r"Depends: ([^\s:]+)", meta)[1], packages, KERNEL_PARTS)
    shutil.copytree(kernel / "lib/modules", root / "lib/modules")
    subprocess.run(["/sbin/depmod", "-b", root, *os.listdir(root / "lib/modules")], check=True)
    trees = [unpacked(package, packages) for package in TOOLS]
    put_programs(root, [*programs, trees[0] / "usr/bin/v4l2-compliance"],
                 [tree / "usr" / LIBRARIES for tree in trees])
    if sanitized:
        put_programs(root / "asan", sanitized, [])
    shutil.copy(next(root.glob(f"{LIBRARIES}/ld-linux*")), root / "lib")
    # What hx-sim preloads lies beside its programs.
    shutil.copy(programs[0].parent.parent / "lib/libhx_camera_sim.so", root / "lib")
    shutil.copy(unpacked("busybox-static", packages) / "bin/busybox", root / "bin")
    shutil.copy(INIT, root / "init")
    with open(work / "initramfs", "wb") as archive:
        names = "".join(f"{path.relative_to(root)}\n" for path in sorted(root.rglob("*")))
        subprocess.run(["cpio", "--quiet", "-o", "-H", "newc", "-R", "+0:+0"], check=True, cwd=root,
                       input=names.encode(), stdout=archive)
    return next(kernel.glob("boot/vmlinuz-*")), work / "initramfs"
