# SPDX-License-Identifier: MIT
"""hxcam cube, judged by NumPy, GDAL and Spectral Python."""
import subprocess

import numpy as np
import pytest
import spectral

from conftest import FAILED, HX01, HX02, HXCAM, OK, USAGE, files_in, run_command
from cubes import by_gdal, reconstruct
from frames import Container, pack

RNG = np.random.default_rng(2)
SHAPE = (24, 31)
BANDS = "fwhm_nm,band,wavelength_nm,name\n" + "".join(
    f"{20 + k},{k},{400.5 + 50 * k},colour {k}\n" for k in range(9, 0, -1))
# The simulator's target: reflectance in nine channels, and the middle of each patch.
SURFACES = {
    "grey": ([.40] * 9, (0, 0)), "white": ([.95] * 9, (200, 240)),
    "black": ([.04] * 9, (600, 240)),
    "blue": ([.80, .70, .45, .20, .10, .08, .08, .10, .12], (1000, 240)),
    "green": ([.08, .12, .40, .75, .60, .25, .10, .10, .15], (1400, 240)),
    "red": ([.05, .05, .06, .08, .15, .45, .80, .85, .85], (200, 960)),
    "leaf": ([.05, .06, .10, .18, .12, .08, .30, .70, .90], (600, 960)),
    "rising": ([.10, .20, .30, .40, .50, .60, .70, .80, .90], (1000, 960)),
    "comb": ([.85, .15] * 4 + [.85], (1400, 960)),
    "moving": ([.15, .15, .75, .75, .75, .15, .15, .60, .60], None),
}
WHITE_COUNTS = 0.8 * 1023  # of reflectance 1 at exposure 156


def cube(*args, **options):
    return run_command([HXCAM, "cube", *map(str, args)], **options)


def read_bsq(path, shape, kind="<f4"):
    return np.fromfile(path, kind).reshape(9, *shape).transpose(1, 2, 0)


@pytest.fixture
def write(tmp_path):
    """Writes a container and returns its path."""
    def run(name, samples, identification=HX02, exposure=156):
        path = tmp_path / name
        path.write_bytes(pack(samples, identification, exposure))
        return path
    return run


@pytest.fixture
def noise():
    return RNG.integers(0, 1126, SHAPE)


def test_others_read_a_cube(tmp_path, write, noise):
    expected, _ = reconstruct(noise)
    (tmp_path / "bands.csv").write_text(BANDS)
    header = tmp_path / "a.hdr"
    for interleave in ("bsq", "bil", "bip"):
        result = cube(write("f.hxc", noise), "-o", header, "--interleave", interleave,
                      "--bands", tmp_path / "bands.csv", "--type", "float64", "--force")
        assert result.code == OK, result.err
        image = spectral.open_image(str(header))
        assert image.shape == (*SHAPE, 9) and image.metadata["interleave"] == interleave
        assert np.allclose(image.load(dtype=float), expected, rtol=1e-12, atol=1e-9), interleave
        values, _ = by_gdal(tmp_path / "a.img", tmp_path)
        assert np.allclose(values, expected, rtol=1e-12, atol=1e-9), interleave

    assert image.bands.centers == [450.5 + 50 * k for k in range(9)]
    assert image.bands.bandwidths == [21 + k for k in range(9)]
    said = image.metadata
    assert said["band names"] == [f"colour {k}" for k in range(1, 10)]
    assert (said["wavelength units"], said["identification"], said["exposure"]) == (
        "Nanometers", HX02, "156")
    assert said["processing level"] == "raw" and said["software"].startswith("hxcam ")
    assert "data ignore value" not in said


def test_patches_of_the_target_come_back(hxcam, folder, tmp_path, write):
    """docs/spectral-cubes.md derives the tolerances."""
    camera = f"{HX02},scene=target"
    assert hxcam("capture", "-o", folder, "--exposure", 156, cameras=[camera]).code == OK
    samples = Container((folder / "frame-000000.hxc").read_bytes()).samples.reshape(1200, 1600)
    surfaces = {name: (np.array(spectrum), middle) for name, (spectrum, middle) in SURFACES.items()}
    lane = np.nonzero(samples[600, ::3] != samples[3, 3])[0] * 3
    surfaces["moving"] = (surfaces["moving"][0], (lane.mean().astype(int), 600))
    surfaces["grey"] = (surfaces["grey"][0], (400, 480))
    (tmp_path / "regions.csv").write_text("name,left,top,width,height\n" + "".join(
        f"{name},{x - 50},{y - 50},100,100\n" for name, (_, (x, y)) in surfaces.items()))

    def spectra(*args):
        result = cube(*args, "--regions", tmp_path / "regions.csv")
        assert result.code == OK, result.err
        rows = [line.split() for line in result.out.splitlines()[2:]]
        assert [row[:2] for row in rows] == [[name, "10000"] for name in surfaces]
        return {row[0]: np.array(row[2:], float) for row in rows}

    # Samples are whole numbers, and inside of an even patch nothing is added to that.
    for name, found in spectra(folder / "frame-000000.hxc").items():
        assert np.array_equal(found, np.round(surfaces[name][0] * WHITE_COUNTS)), name

    # A lens that loses light, a sensor with a dark pattern, a white reference of half the exposure.
    shape = samples.shape
    gain = 1 - 0.4 * np.hypot(*np.mgrid[-1:1:shape[0] * 1j, -1:1:shape[1] * 1j]) / np.sqrt(2)
    dark = RNG.integers(1, 40, shape)
    frame = write("frame.hxc", np.round(samples * gain) + dark)
    references = tmp_path / "darks"
    references.mkdir()
    for i, offset in enumerate((-1, 1)):
        write(f"darks/{i}.hxc", dark + offset)
        write(f"darks/half{i}.hxc", dark + offset, exposure=78)
    white = write("white.hxc", np.round(WHITE_COUNTS / 2 * gain) + dark, exposure=78)
    for name, found in spectra("--dark", references, "--white", white, frame).items():
        spectrum = surfaces[name][0]
        of_frame = 1 / (0.6 * WHITE_COUNTS)
        of_white = 0.5 / (0.6 * WHITE_COUNTS / 2) * spectrum
        tolerance = 7 / 3 * (of_frame + of_white.max()) + 0.00005
        assert np.all(abs(found - spectrum) <= tolerance), name


def test_calibrated_values(tmp_path, write):
    dark = RNG.integers(20, 60, SHAPE)
    samples = dark + RNG.integers(-5, 900, SHAPE)
    samples[4, 4] = 0
    signal = RNG.integers(10, 900, SHAPE)
    signal[9, 9:12] = 9, 0, -9
    frame, other = write("frame.hxc", samples, exposure=100), write("other.hxc", samples + 50)
    write("dark.hxc", dark, exposure=100)
    options = ("--type", "float64", "--dark", tmp_path / "dark.hxc", "--dark", other)
    assert cube(frame, "-o", tmp_path / "d.hdr", *options).code == OK
    expected, _ = reconstruct(np.maximum(samples - dark, 0))
    assert np.allclose(read_bsq(tmp_path / "d.img", SHAPE, "<f8"), expected)
    assert "processing level = dark-subtracted" in (tmp_path / "d.hdr").read_text()

    white = write("white.hxc", signal + dark, exposure=50)
    result = cube(frame, "-o", tmp_path / "r.hdr", *options, "--white", white, "--mask-out",
                  tmp_path / "ignored.png")
    assert result.code == OK
    assert "no dark frame of exposure 50; those of exposure 100" in result.err
    ignored = signal < 10
    reflectance = np.maximum(samples - dark, 0) / np.where(ignored, 1, signal) * 50 / 100
    expected, lost = reconstruct(np.where(ignored, 0, reflectance), ignored)
    expected[lost] = -1
    found = read_bsq(tmp_path / "r.img", SHAPE, "<f8")
    assert np.allclose(found, expected) and lost.sum() < lost.size / 4
    assert np.array_equal(by_gdal(tmp_path / "ignored.png", tmp_path)[0][..., 0], 255 * lost)
    said = spectral.open_image(str(tmp_path / "r.hdr")).metadata
    assert (said["data ignore value"], said["white exposure"], said["dark exposure"]) == (
        "-1", "50", "100")
    least = cube(frame, "-o", tmp_path / "l.hdr", *options, "--white", white, "--white-min", 300)
    assert least.code == OK
    found = read_bsq(tmp_path / "l.img", SHAPE, "<f8")
    assert np.all(found[signal < 300] == -1)


def pgm(mask, layout):
    if layout == "P2":
        return f"P2 # by hand\n{mask.shape[1]} {mask.shape[0]}\n7\n{' '.join(map(str, mask.flat))}"
    kind = ">u2" if layout == "wide" else "u1"
    top = 65535 if layout == "wide" else 255
    head = f"P5\n#\n{mask.shape[1]}\n{mask.shape[0]} {top}\n"
    return head.encode() + mask.astype(kind).tobytes()


def test_masks(tmp_path, write, noise):
    mask = np.zeros(SHAPE, int)
    mask[[0, 10, 11, 20], [5, 3, 30, 17]] = 1
    expected, lost = reconstruct(noise, mask != 0)
    expected[lost] = -1
    frame = write("frame.hxc", noise)
    for name, layout in (("a.pgm", "P2"), ("b.pgm", "P5"), ("c.pgm", "wide")):
        data = pgm(mask, layout)
        (tmp_path / name).write_bytes(data.encode() if layout == "P2" else data)
    for name in ("b", "c"):
        subprocess.run(["gdal_translate", "-q", "-of", "PNG", tmp_path / f"{name}.pgm",
                        tmp_path / f"{name}.png"], check=True)
    for name in ("a.pgm", "b.pgm", "c.pgm", "b.png", "c.png"):
        result = cube(frame, "-o", tmp_path / "m.hdr", "--mask", tmp_path / name, "--force")
        assert result.code == OK, result.err
        values, said = by_gdal(tmp_path / "m.img", tmp_path)
        assert np.allclose(values, expected, rtol=1e-6), name
        assert all(band["noDataValue"] == -1 for band in said["bands"])


def test_tiff_and_preview(tmp_path, write, noise):
    result = cube(write("f.hxc", noise), "-o", tmp_path / "a.tif", "--preview", tmp_path / "p.png",
                  "--preview-bands", "9,2,5")
    assert result.code == OK, result.err
    expected, _ = reconstruct(noise)
    for page in range(9):
        values, _ = by_gdal(f"GTIFF_DIR:{page + 1}:{tmp_path / 'a.tif'}", tmp_path)
        assert np.allclose(values[..., 0], expected[..., page], rtol=1e-6)
    told = subprocess.run(["tiffinfo", tmp_path / "a.tif"], capture_output=True, text=True,
                          check=True).stdout
    assert "PageName: band 9" in told and "processing level = raw" in told
    picture, _ = by_gdal(tmp_path / "p.png", tmp_path)
    shown = 255 * np.clip(expected[..., [8, 1, 4]] / 1023, 0, 1) ** (1 / 2.2)
    # Near black the picture's 4096 steps are coarser than its 256.
    assert np.all(abs(picture - shown)[shown > 32] <= 1.0)


def test_a_folder_with_faults(tmp_path, write, noise):
    source = tmp_path / "in"
    source.mkdir()
    write("in/a.hxc", noise)
    write("in/b.hxc", noise, identification=HX01)
    write("in/c.hxc", noise[:6])
    write("in/d.hxc", noise[:7])
    (source / "e.hxc").write_bytes(b"LL")
    out = tmp_path / "out"
    result = cube(source, "-o", out, "--preview", out)
    assert result.code == FAILED
    assert [line.split(": ")[1].split("/")[-1] for line in result.err.splitlines()] == [
        "b.hxc", "c.hxc", "e.hxc"]
    assert "--any-model" in result.err and "at least 7 rows" in result.err
    assert files_in(out) == [f"{stem}.{kind}" for stem in "ad" for kind in ("hdr", "img", "png")]
    before = (out / "a.hdr").stat().st_mtime_ns
    (out / "d.img").unlink()
    result = cube(source / "a.hxc", source / "b.hxc", "-o", out, "--any-model")
    assert result.code == FAILED and "a.hdr exists" in result.err
    assert (out / "a.hdr").stat().st_mtime_ns == before and "b.hdr" in files_in(out)


@pytest.mark.parametrize("kind, change, told", [
    ("dark", {"identification": "HX02-V02.1-99999A-L"}, "another camera"),
    ("white", {"identification": "HX02-V02.1-99999A-L"}, "another camera"),
    ("white", {"samples": np.zeros((30, 30))}, "references are 30 x 30, the frame is 31 x 24"),
    ("white", {"exposure": 0}, "does not tell its exposure"),
])
def test_references_that_do_not_fit(tmp_path, write, noise, kind, change, told):
    frame = write("frame.hxc", noise)
    references = {name: write(f"{name}.hxc", **{"samples": noise, **(change if name == kind else {})})
                  for name in ("dark", "white")}
    result = cube(frame, "-o", tmp_path / "a.hdr", "--dark", references["dark"], "--white",
                  references["white"])
    assert result.code == FAILED and told in result.err
    assert not (tmp_path / "a.hdr").exists()


HEAD = b"band,wavelength_nm\n"
REGION = b"name,left,top,width,height\n"


@pytest.mark.parametrize("option, data, told", [
    ("--mask", b"", "neither"), ("--mask", b"P5 31 24 255\n" + bytes(31 * 24 - 1), "cut off"),
    ("--mask", b"P5 31 x", "number is missing"), ("--mask", b"P5 99999 99999 1\n", "wrong number"),
    ("--mask", b"P2 2 1 5 6 0", "wrong number"),
    ("--mask", b"P5 3 2 255\n" + bytes(6), "the mask is 3 x 2"),
    ("--mask", b"\x89PNG\r\n\x1a\n", "damaged PNG"),
    ("--bands", b"", "empty"), ("--bands", b"band,colour\n", 'line 1: there is no column "colour"'),
    ("--bands", b"name\nx\n", "no column band"), ("--bands", b"band,fwhm_nm\n", "fwhm needs"),
    ("--bands", HEAD + b"1,500\n1,500\n", "line 3: the band is there twice"),
    ("--bands", HEAD + b"# first\n1\n", "line 3: it has 1 fields"),
    ("--bands", HEAD + b"10,500\n", "no band"), ("--bands", HEAD + b"1,-5\n", "no positive"),
    ("--bands", HEAD + b"1,500\n", "each of the nine"), ("--bands", b"band,name\n1,{a}\n", "braces"),
    ("--bands", HEAD + b"1,500nm\n", "no positive number"), ("--regions", REGION, "no region"),
    ("--regions", b"a,1,2,3,4\n", "name,left,top"),
    ("--regions", REGION + b"a,0,0,0,5\n", "line 2: \"0\" is no width"),
    ("--regions", REGION + b"a,20,0,12,5\n", "reaches out"),
])
def test_wrong_masks_and_tables(tmp_path, write, noise, option, data, told):
    (tmp_path / "wrong").write_bytes(data)
    result = cube(write("f.hxc", noise), "-o", tmp_path / "a.hdr", option, tmp_path / "wrong")
    assert result.code == FAILED and told in result.err
    assert files_in(tmp_path) == ["f.hxc", "wrong"]


@pytest.mark.parametrize("args, told", [
    ((), "nothing to make"), (("-o", "a.img"), "must end in"), (("-o", "-"), "not to -"),
    (("-o", "a.tif", "--interleave", "bip"), "--interleave"), (("-o", "a.hdr", "--format", "x"), ""),
    (("-o", "a.tif", "--format", "envi"), ".hdr"), (("--preview", "p", "--type", "float32"), "--type"),
    (("-o", "a.hdr", "--white", "w"), "needs --dark"), (("-o", "a.hdr", "--white-min", "5"), "--white"),
    (("-o", "a.hdr", "--preview-bands", "1,2,3"), "--preview"), (("-", "-o", "d/"), "once"),
    (("-o", "a.hdr", "--preview", "p", "--preview-bands", "1,2,0"), "from 1 to 9"),
    (("-o", "a.hdr", "--dark", "d", "--white", "w", "--white-min", "0"), "above 0"),
])
def test_usage(args, told):
    result = cube("-", *args)
    assert result.code == USAGE and told in result.err
