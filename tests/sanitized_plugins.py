"""Hosts that load plug-ins built with AddressSanitizer need its run-time first."""
import os
import subprocess


def host_environment(plugin, env):
    """env for a host (melt, gst-inspect-1.0) that loads `plugin`: with the
    sanitizers' run-time preloaded where the plug-in was built with them."""
    dynamic = subprocess.run(["readelf", "-d", plugin], capture_output=True, text=True).stdout
    if "libasan" not in dynamic:
        return env
    runtime = [subprocess.run(["gcc", f"-print-file-name={lib}"], capture_output=True, text=True).stdout.strip()
               for lib in ("libasan.so", "libubsan.so")]
    return dict(env, LD_PRELOAD=" ".join(runtime), ASAN_OPTIONS="detect_leaks=0")
