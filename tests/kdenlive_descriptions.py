#!/usr/bin/env python3
"""Checks Kdenlive's descriptions of the frei0r plug-ins against melt and `flairize render`.

  kdenlive_descriptions.py FLAIRIZE PLUGIN_DIR DESCRIPTION_DIR WORK_DIR

Every offered effect has one well-formed description naming a filter melt
lists; every parameter it names is one of that filter's; the shown sliders,
Progress and (for effects that paint with one) the colour are all there. Then
each effect renders through melt twice with the values Kdenlive sends: the
descriptions' defaults, which must equal `flairize render` with the effect's own
defaults, and a set of other slider positions, a colour and Progress keyframed
from 0% to 100% over three frames. Exit status 77 (a skip) when melt or ffmpeg
is missing.
"""
import os
import re
import shutil
import subprocess

from sanitized_plugins import host_environment
import sys
import time
import xml.etree.ElementTree as ET

W, H, FRAMES = 40, 24, 3


def fail(message):
    print("FAIL:", message)
    sys.exit(1)


def run(args, **kw):
    return subprocess.run(args, capture_output=True, text=True, **kw)


def melt_frames(out, filter_args, env):
    """Renders in0.png for FRAMES frames through the filter into raw bgra; melt's own
    start-up race (see frei0r_integration.sh) is met by trying again."""
    expected_size = FRAMES * W * H * 4
    for _ in range(5):
        if os.path.exists(out):
            os.remove(out)
        try:
            r = run(["melt", "-silent", "-profile", "profile", "avformat:in0.png", "in=0", f"out={FRAMES - 1}",
                     *filter_args, "-consumer", f"avformat:{out}", "f=rawvideo", "pix_fmt=bgra", "real_time=0"],
                    env=env, timeout=60)
            if r.returncode != 0:
                fail(f"melt {' '.join(filter_args)} failed: {r.stderr}")
        except subprocess.TimeoutExpired:
            pass
        size = os.path.getsize(out) if os.path.exists(out) else 0
        if size == expected_size:
            with open(out, "rb") as f:
                return f.read()
        if size:
            fail(f"melt wrote {size} bytes, not {FRAMES} frames of {W}x{H}")
        time.sleep(1)
    fail(f"melt {' '.join(filter_args)} wrote no frames in five runs")


def render(flairize, options):
    r = run([flairize, "render", "in0.png", "expect.png", *options])
    if r.returncode != 0:
        fail(f"flairize render {' '.join(options)} failed: {r.stderr}")
    r = subprocess.run(["ffmpeg", "-hide_banner", "-v", "error", "-i", "expect.png", "-pix_fmt", "bgra",
                        "-f", "rawvideo", "-"], capture_output=True)
    if r.returncode != 0 or len(r.stdout) != W * H * 4:
        fail("ffmpeg cannot read expect.png")
    return r.stdout


def melt_parameter_titles(plugin, env):
    r = run(["melt", "-query", f"filter={plugin}"], env=env)
    return set(t.strip().strip('"') for t in re.findall(r"^\s*title:\s*(.+)$", r.stdout, re.M)[1:])


def main():
    if len(sys.argv) != 5:
        print(__doc__)
        return 1
    flairize, plugins, descriptions, work = (os.path.realpath(a) for a in sys.argv[1:])
    if not shutil.which("melt"):
        print("SKIP: melt is not installed (Debian package melt): Kdenlive's descriptions cannot be checked")
        return 77
    if not shutil.which("ffmpeg"):
        print("SKIP: ffmpeg is not installed: it makes the test's source picture")
        return 77
    env = host_environment(os.path.join(plugins, "flairize-posterize.so"), dict(os.environ, FREI0R_PATH=plugins))
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    os.chdir(work)

    # The offered effects: index, name, shown, flags, three slider labels (flairize list --tsv).
    effects = {}
    for line in run([flairize, "list", "--tsv"]).stdout.splitlines():
        fields = line.split("\t")
        if fields[2] == "1":
            slug = re.sub(r"\s+", "-", fields[1].strip().lower())
            effects[f"frei0r.flairize-{slug}"] = (fields[0], int(fields[3]), [(k, l) for k, l in enumerate(fields[4:7]) if l])
    if not effects:
        fail("flairize list names no offered effect")
    listed = set(re.findall(r"^\s*- (\S+)$", run(["melt", "-query", "filters"], env=env).stdout, re.M))

    files = sorted(f for f in os.listdir(descriptions) if f.endswith(".xml"))
    described = {}
    for name in files:
        try:
            root = ET.parse(os.path.join(descriptions, name)).getroot()
        except ET.ParseError as error:
            fail(f"{name} is not well-formed XML: {error}")
        tag = root.get("tag")
        if root.tag != "effect" or tag != root.get("id") or name != tag.replace(".", "_", 1) + ".xml":
            fail(f"{name}: not an effect whose tag and id name its file")
        if tag not in listed:
            fail(f"{name}: melt -query filters does not list {tag}")
        if not (root.findtext("name") or "").strip() or not (root.findtext("description") or "").strip():
            fail(f"{name}: no name or description")
        described[tag] = root
    if set(described) != set(effects):
        fail(f"descriptions {sorted(described)} are not the offered effects {sorted(effects)}")

    with open("profile", "w") as f:
        f.write(f"description=flairize kdenlive test\nframe_rate_num=25\nframe_rate_den=1\nwidth={W}\nheight={H}\n"
                f"progressive=1\nsample_aspect_num=1\nsample_aspect_den=1\ndisplay_aspect_num={W}\n"
                f"display_aspect_den={H}\ncolorspace=709\n")
    if subprocess.run(["ffmpeg", "-hide_banner", "-v", "error", "-f", "lavfi", "-i",
                       f"testsrc2=size={W}x{H},format=gbrap,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':"
                       "a='mod(X*7+Y*13,256)'", "-frames:v", "1", "-pix_fmt", "rgba", "-y", "in0.png"]).returncode:
        fail("ffmpeg could not make the source picture")

    other_steps = [37, 200, 91]   # none of them a slider's default
    for tag, root in sorted(described.items()):
        index, flags, labels = effects[tag]
        params = {p.get("name"): p for p in root.findall("parameter")}
        titles = melt_parameter_titles(tag, env)
        for pname, p in params.items():
            if pname not in titles:
                fail(f"{tag}: parameter {pname!r} is not one melt reports ({sorted(titles)})")
            if (p.findtext("name") or "").strip() == "":
                fail(f"{tag}: parameter {pname!r} has no label")
        wanted = {l for _, l in labels} | {"Progress"} | ({"Color"} if flags & 2 else set())
        if set(params) != wanted:
            fail(f"{tag}: parameters {sorted(params)}, not {sorted(wanted)}")
        if params["Progress"].get("type") != "animated" or any(params[l].get("type") != "animated" for _, l in labels):
            fail(f"{tag}: Progress and the sliders must be keyframable")
        for pname in [l for _, l in labels] + ["Progress"]:   # the shown range is the plug-in's whole 0..1
            p = params[pname]
            if float(p.get("min")) != 0 or float(p.get("max")) != float(p.get("factor", "1")):
                fail(f"{tag}: {pname} shows {p.get('min')}..{p.get('max')} with factor {p.get('factor')}, not 0..1")
        if flags & 2 and params["Color"].get("type") != "color":
            fail(f"{tag}: Color is not a colour parameter")

        # The defaults, sent as Kdenlive sends an untouched effect's values.
        defaults = [f"{n}={p.get('default')}" for n, p in params.items()]
        got = melt_frames("defaults.raw", ["-filter", tag, *defaults], env)
        expect = render(flairize, ["--effect", index, "--colour", "000000"])
        for f in range(FRAMES):
            if got[f * W * H * 4:(f + 1) * W * H * 4] != expect:
                fail(f"{tag}: melt frame {f} with Kdenlive's defaults {defaults} differs from flairize render's")

        # Other slider positions as Kdenlive shows them (0..max, sent divided by the factor), a colour,
        # and Progress keyframed 0% at the first frame to 100% at the last, as Kdenlive writes keyframes.
        sent, options = [], ["--effect", index]
        for k, label in labels:
            p = params[label]
            shown = min(other_steps[k], int(p.get("max")))
            sent.append(f"{label}={shown / float(p.get('factor', '1')):.6g}")
            options += [f"--p{k + 1}", str(shown)]
        factor = float(params["Progress"].get("factor", "1"))
        last = (FRAMES - 1) / 25
        sent.append(f"Progress=00:00:00.000={0 / factor:g};00:00:{last:06.3f}={100 / factor:g}")
        if flags & 2:
            sent.append("Color=0x3399ffff")
            options += ["--colour", "3399ff"]
        got = melt_frames("other.raw", ["-filter", tag, *sent], env)
        for f in range(FRAMES):
            progress = (f * 16384 * 2 + FRAMES - 1) // (2 * (FRAMES - 1))
            if got[f * W * H * 4:(f + 1) * W * H * 4] != render(flairize, options + ["--progress", str(progress)]):
                fail(f"{tag}: melt frame {f} with {sent} differs from flairize render {' '.join(options)} "
                     f"--progress {progress}")
    print(f"Kdenlive descriptions: {len(described)} effects, melt renders byte-identical to flairize render")
    return 0


if __name__ == "__main__":
    sys.exit(main())
