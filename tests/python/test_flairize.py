"""The Python module flairize against the flairize command: the same pictures, byte for byte, for every offered
effect, channel order, depth and array layout; the GIL released while rendering; refusals of bad arguments."""
import os
import subprocess
import sys
import threading

import numpy as np
import pytest

import flairize
from bmp_files import read_bmp, write_bmp

COMMAND = os.environ.get("FLAIRIZE_COMMAND", "flairize")
OFFERED = [e for e in flairize.effects() if e.offered]


def picture(height, width, channels, seed):
    """A picture with smooth gradients, edges and noise; a fourth channel varies as the mask."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:height, 0:width]
    base = np.stack([(x * 255) // max(width - 1, 1), (y * 255) // max(height - 1, 1), ((x + y) * 7) % 256], axis=2)
    base[height // 3:height // 2, :] = 240   # a flat bright band with hard edges
    noisy = base + rng.integers(-30, 31, base.shape)
    pixels = np.clip(noisy, 0, 255).astype(np.uint8)
    if channels == 4:
        mask = ((x * 5 + y * 3) % 256).astype(np.uint8)
        mask[:, : width // 4] = 255
        pixels = np.concatenate([pixels, mask[:, :, None]], axis=2)
    return np.ascontiguousarray(pixels)


def command_render(tmp_path, pixels, options):
    """The flairize command's render of an RGB(A) array with the given options."""
    source, output = tmp_path / "in.bmp", tmp_path / "out.bmp"
    write_bmp(source, pixels)
    run = subprocess.run([COMMAND, "render", str(source), str(output), "--quiet", *options], capture_output=True,
                         text=True)
    assert run.returncode == 0, run.stderr
    result = read_bmp(output)
    assert result.shape == pixels.shape
    return result


def slider_settings(effect):
    """Slider values away from the defaults: (keywords for render, the command's options)."""
    keywords, options = {}, []
    for k, slider in enumerate(effect.sliders):
        value = (slider.default + 37 + 61 * k) % (slider.maximum + 1)
        keywords[slider.option] = value
        options += [f"--{slider.option}", str(value)]
    return keywords, options


@pytest.mark.parametrize("effect", OFFERED, ids=[e.slug for e in OFFERED])
def test_renders_equal_the_command(effect, tmp_path):
    rgb = picture(41, 57, 3, seed=effect.index)
    rgba = picture(29, 35, 4, seed=100 + effect.index)

    # At the defaults, 3 bytes a pixel: RGB, BGR, a strided view, the calling thread alone and into out=.
    expected = command_render(tmp_path, rgb, ["--effect", effect.slug])
    assert np.array_equal(flairize.render(rgb, effect.slug), expected)
    bgr = np.ascontiguousarray(rgb[:, :, ::-1])
    assert np.array_equal(flairize.render(bgr, effect.index, order="BGR")[:, :, ::-1], expected)
    wider = np.zeros((41, 70, 3), dtype=np.uint8)
    wider[:, 5:62] = rgb
    view = wider[:, 5:62]                      # rows 70 pixels apart
    assert not view.flags.c_contiguous
    assert np.array_equal(flairize.render(view, effect.name, threads=1), expected)
    out = np.full_like(rgb, 7)
    assert flairize.render(rgb, effect.slug, out=out) is out
    assert np.array_equal(out, expected)

    # Given sliders, colour, progress and 4 bytes a pixel (the fourth the mask), RGBA and BGRA.
    keywords, options = slider_settings(effect)
    colour = (0x1A, 0xC2, 0x3C)
    progress = 0.3 if effect.fades_in else 0.75
    expected = command_render(tmp_path, rgba, ["--effect", effect.slug, "--progress", str(progress),
                                               "--colour", "1ac23c"] + options)
    got = flairize.render(rgba, effect.slug, progress=progress, colour=colour, threads=3, **keywords)
    assert np.array_equal(got, expected)
    bgra = np.ascontiguousarray(rgba[:, :, [2, 1, 0, 3]])
    got = flairize.render(bgra, effect.slug, progress=progress, colour="#1ac23c", order="BGR", **keywords)
    assert np.array_equal(got[:, :, [2, 1, 0, 3]], expected)
    # A view with its rows bottom first, a strided out= (rendered aside, then copied in).
    flipped = rgba[::-1]
    out = np.zeros((29, 35, 8), dtype=np.uint8)[:, :, 2:6]
    flairize.render(flipped, effect.slug, progress=progress, colour=colour, out=out, **keywords)
    assert np.array_equal(out[::-1], command_render(tmp_path, np.ascontiguousarray(flipped), [
        "--effect", effect.slug, "--progress", str(progress), "--colour", "1ac23c"] + options)[::-1])


@pytest.mark.parametrize("arguments, render_keywords", [
    (["--progress", "0.5"], {"progress": 0.5}),
    (["--progress", "0.123457"], {"progress": 0.123457}),
    (["--progress", "5000"], {"position": 5000}),
    (["--progress", "0"], {"position": 0}),
    (["--filter-only", "--progress", "0.25"], {"mix": False, "progress": 0.25}),
    (["--p1", "9", "--p2", "200"], {"p1": 9, "p2": 200}),
])
def test_progress_mix_and_positional_sliders(arguments, render_keywords, tmp_path):
    fading = next(e for e in OFFERED if e.fades_in and e.sliders)
    pixels = picture(23, 31, 3, seed=5)
    expected = command_render(tmp_path, pixels, ["--effect", fading.slug] + arguments)
    assert np.array_equal(flairize.render(pixels, fading.slug, **render_keywords), expected)


def test_in_place_render():
    effect = next(e for e in OFFERED if not e.fades_in)
    pixels = picture(30, 30, 3, seed=9)
    expected = flairize.render(pixels, effect.slug)
    assert flairize.render(pixels, effect.slug, out=pixels) is pixels
    assert np.array_equal(pixels, expected)


def test_the_gil_is_released_while_rendering():
    """With a long switch interval a thread only runs while another releases the GIL: the small render must
    finish while the big one is still on."""
    effect = max(OFFERED, key=lambda e: e.index)
    big = picture(2000, 2500, 3, seed=1)
    small = picture(16, 16, 3, seed=2)
    started = threading.Event()
    big_done = []

    def render_big():
        started.set()
        flairize.render(big, effect.slug, threads=1)
        big_done.append(True)

    interval = sys.getswitchinterval()
    sys.setswitchinterval(30.0)
    try:
        worker = threading.Thread(target=render_big)
        worker.start()
        started.wait()
        small_result = flairize.render(small, effect.slug, threads=1)
        finished_first = not big_done
        worker.join()
    finally:
        sys.setswitchinterval(interval)
    assert finished_first, "the small render waited for the big one: the GIL was held"
    assert np.array_equal(small_result, flairize.render(small, effect.slug))


def test_thread_counts_give_the_same_picture():
    pixels = picture(300, 200, 4, seed=4)
    for effect in OFFERED[:: max(1, len(OFFERED) // 6)]:
        one = flairize.render(pixels, effect.slug, threads=1)
        for threads in (0, 2, 5):
            assert np.array_equal(flairize.render(pixels, effect.slug, threads=threads), one), effect.slug


def test_catalogue():
    effects = flairize.effects()
    assert [e.index for e in effects] == list(range(len(effects)))
    listed = subprocess.run([COMMAND, "list", "--tsv"], capture_output=True, text=True, check=True).stdout
    rows = [line.split("\t") for line in listed.splitlines() if line.strip()]
    assert len(rows) == len(effects)
    for effect, row in zip(effects, rows):
        assert int(row[0]) == effect.index
        assert row[1] == effect.name
        assert (row[2] == "1") == effect.offered
        flags = int(row[3])
        assert bool(flags & 1) == effect.fades_in and bool(flags & 2) == effect.uses_colour
        for slider in effect.sliders:
            assert row[4 + slider.index] == slider.label
            assert int(row[7 + slider.index]) == slider.default
            assert slider.minimum <= slider.default <= slider.maximum
            assert slider.option and slider.meaning
        assert effect.category in {"Artistic", "Blur", "Distort", "Stylize", "Texture"}


def test_settings_block_against_the_command(tmp_path):
    effect = next(e for e in OFFERED if e.uses_colour and e.sliders)
    slider = effect.sliders[0]
    written = tmp_path / "command.flr"
    subprocess.run([COMMAND, "settings", str(written), "--effect", effect.slug, f"--{slider.option}", "77",
                    "--colour", "#123456", "--direction", "Cycle"], check=True, capture_output=True)
    settings = flairize.Settings.load(written)
    assert settings.effect == effect.index
    assert settings.sliders[slider.index] == 77
    assert settings.colour == "#123456"
    assert settings.direction & 3 == flairize.CYCLE
    assert settings.to_bytes() == written.read_bytes()

    # Changed in Python, saved, and rendered by the command through --settings.
    settings.colour = (200, 10, 99)
    settings.sliders = (5, 6, 7)
    settings.progress = 4000
    ours = tmp_path / "ours.flr"
    settings.save(ours)
    again = flairize.Settings.from_bytes(ours.read_bytes())
    assert again == settings and again.colour == "#c80a63" and again.sliders == (5, 6, 7)
    pixels = picture(20, 24, 3, seed=8)
    expected = command_render(tmp_path, pixels, ["--settings", str(ours)])
    keywords = {f"p{k + 1}": v for k, v in enumerate((5, 6, 7))}
    assert np.array_equal(flairize.render(pixels, effect.index, colour="#c80a63", **keywords), expected)


def test_frame_timing_against_the_command():
    for frames, speed, direction in [(7, 0, "Forward"), (11, 90, "Cycle"), (5, -124, "Backward"),
                                     (9, 30, "Reverse Cycle")]:
        run = subprocess.run([COMMAND, "timing", "--frames", str(frames), "--speed", str(speed), "--direction",
                              direction], capture_output=True, text=True, check=True)
        code = {"Backward": flairize.BACKWARD, "Cycle": flairize.CYCLE, "Forward": flairize.FORWARD,
                "Reverse Cycle": flairize.REVERSE_CYCLE}[direction]
        lines = [line.split() for line in run.stdout.splitlines() if line.strip() and line.split()[0].isdigit()]
        assert len(lines) == frames
        for frame, position, progress in ((int(a), int(b), int(c)) for a, b, c in lines):
            assert flairize.sequence_position(frame, frames) == position
            assert flairize.frame_progress(position, speed, code) == progress


def read_only(pixels):
    frozen = np.zeros_like(pixels)
    frozen.setflags(write=False)
    return frozen


def too_wide():
    return np.zeros((2, 70000, 3), dtype=np.uint8)


@pytest.mark.parametrize("call, words", [
    (lambda p: flairize.render(p.astype(np.float32), "posterize"), "dtype uint8, got float32"),
    (lambda p: flairize.render(p[:, :, 0], "posterize"), "shape (height, width, 3)"),
    (lambda p: flairize.render(np.zeros((4, 4, 2), np.uint8), "posterize"), "got (4, 4, 2)"),
    (lambda p: flairize.render(p.tolist(), "posterize"), "must be a NumPy array"),
    (lambda p: flairize.render(too_wide(), "posterize"), "1..65535"),
    (lambda p: flairize.render(p, "posterise"), 'did you mean "posterize"'),
    (lambda p: flairize.render(p, 999), "effect index 999 is outside"),
    (lambda p: flairize.render(p, "posterize", colrs=4), 'did you mean "colors"'),
    (lambda p: flairize.render(p, "posterize", angle=4), 'posterize has no slider "angle"'),
    (lambda p: flairize.render(p, "posterize", colors=256), "colors=256 is out of range 0..255"),
    (lambda p: flairize.render(p, "posterize", colors=-1), "out of range"),
    (lambda p: flairize.render(p, "posterize", colors=2.5), "whole number"),
    (lambda p: flairize.render(p, "posterize", colors=3, p1=4), "both set slider 1"),
    (lambda p: flairize.render(p, "posterize", progress=1.5), "outside 0..1"),
    (lambda p: flairize.render(p, "posterize", progress=float("nan")), "outside 0..1"),
    (lambda p: flairize.render(p, "posterize", position=16385), "out of range 0..16384"),
    (lambda p: flairize.render(p, "posterize", position=5, progress=0.5), "not both"),
    (lambda p: flairize.render(p, "posterize", colour="#12345"), "#rrggbb"),
    (lambda p: flairize.render(p, "posterize", colour=(1, 2, 300)), "colour blue=300"),
    (lambda p: flairize.render(p, "posterize", order="GRB"), 'order must be "RGB" or "BGR"'),
    (lambda p: flairize.render(p, "posterize", threads=2000), "threads=2000"),
    (lambda p: flairize.render(p, "posterize", out=np.zeros((8, 9, 3), np.uint8)), "shape of pixels"),
    (lambda p: flairize.render(p, "posterize", out=read_only(p)), "read-only"),
    (lambda p: flairize.sequence_position(5, 5), "outside 0..4"),
    (lambda p: flairize.sequence_position(0, 0), "at least one frame"),
    (lambda p: flairize.Settings.from_bytes(b"\0" * 19), "20 bytes, got 19"),
    (lambda p: flairize.Settings("no-such-effect"), "no effect named"),
])
def test_refusals(call, words):
    pixels = picture(8, 8, 3, seed=0)
    before = pixels.copy()
    with pytest.raises(ValueError) as raised:
        call(pixels)
    assert words in str(raised.value)
    assert np.array_equal(pixels, before)
