"""Builds the wheel: the extension comes from the project's CMake build (the target flairize_python), configured
in the build's temporary folder with the interpreter that runs this. Extra CMake arguments: CMAKE_ARGS."""
import os
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

PROJECT_ROOT = Path(__file__).resolve().parent.parent


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build_dir = Path(self.build_temp).resolve() / "cmake"
        build_dir.mkdir(parents=True, exist_ok=True)
        configure = ["cmake", "-S", str(PROJECT_ROOT), "-B", str(build_dir), "-DCMAKE_BUILD_TYPE=Release",
                     f"-DPython3_EXECUTABLE={sys.executable}", "-DFLAIRIZE_TESTS=OFF", "-DFLAIRIZE_BENCH=OFF",
                     "-DFLAIRIZE_WEB=OFF"] + shlex.split(os.environ.get("CMAKE_ARGS", ""))
        subprocess.run(configure, check=True)
        jobs = str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", str(build_dir), "--target", "flairize_python", "-j", jobs], check=True)
        built = sorted((build_dir / "python" / "flairize").glob("_flairize*.so"))
        if len(built) != 1:
            raise RuntimeError(f"expected one built module in {build_dir / 'python' / 'flairize'}, found {built}")
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built[0], target)


setup(ext_modules=[CMakeExtension("flairize._flairize")], cmdclass={"build_ext": CMakeBuild})
