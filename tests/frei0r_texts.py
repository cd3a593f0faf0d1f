#!/usr/bin/env python3
"""The frei0r plug-ins explain themselves in the hosts: gst-inspect-1.0 and
`melt -query` show each effect's description and, for every shown slider, what
it does in the effect's own terms (as `flairize list --json` has it), its unit
where it has one, and how 0..1 maps onto the slider's steps.

  frei0r_texts.py FLAIRIZE PLUGIN_DIR WORK_DIR

Exit status 77 (a skip) when neither gst-inspect-1.0 nor melt is installed.
"""
import json
import os
import re
import shutil
import subprocess
import sys

from sanitized_plugins import host_environment

EFFECTS = ["posterize", "shake"]   # one slider without a unit, two with one of them in turns


def flat(text):
    return re.sub(r"\s+", " ", text).lower()


def main():
    if len(sys.argv) != 4:
        print(__doc__)
        return 1
    flairize, plugins, work = (os.path.realpath(a) for a in sys.argv[1:])
    os.makedirs(work, exist_ok=True)
    registry = os.path.join(work, "gst-registry.bin")   # made afresh: an old one may remember a failed load
    if os.path.exists(registry):
        os.remove(registry)
    env = dict(os.environ, FREI0R_PATH=plugins, GST_REGISTRY=registry)
    env = host_environment(os.path.join(plugins, "flairize-posterize.so"), env)
    hosts = []
    if shutil.which("gst-inspect-1.0"):
        hosts.append(("gst-inspect-1.0", lambda slug: ["gst-inspect-1.0", f"frei0r-filter-flairize-{slug}"]))
    if shutil.which("melt"):
        hosts.append(("melt", lambda slug: ["melt", "-query", f"filter=frei0r.flairize-{slug}"]))
    if not hosts:
        print("SKIP: neither gst-inspect-1.0 (gstreamer1.0-tools) nor melt is installed")
        return 77

    catalogue = {e["slug"]: e for e in json.loads(subprocess.run([flairize, "list", "--json"], capture_output=True,
                                                                    text=True, check=True).stdout)["effects"]}
    failures = []
    for host, command in hosts:
        for slug in EFFECTS:
            effect = catalogue[slug]
            shown = flat(subprocess.run(command(slug), capture_output=True, text=True, env=env).stdout)
            wanted = [effect["description"]]
            for slider in effect["sliders"]:
                wanted.append(slider["meaning"])
                wanted.append(f"0..1 covers the slider's {slider['min']}..{slider['max']}")
                if slider["unit"]:
                    wanted.append(f"step of {slider['unit']}")
            for text in wanted:
                if flat(text) not in shown:
                    failures.append(f"{host} does not show {slug}'s {text!r}")
    for failure in failures:
        print("FAIL:", failure)
    if not failures:
        print(f"{', '.join(h for h, _ in hosts)}: the plug-ins' texts explain {', '.join(EFFECTS)}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
