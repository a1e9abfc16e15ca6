"""Builds the two shared libraries with CMake and puts them into the wheel, which then needs nothing
installed beside numpy. Settings for CMake go into the environment variable CMAKE_ARGS."""

import os
import re
import shlex
import shutil
import subprocess
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
LIBRARIES = {"vornynr2cnr4": "libvornynr2cnr4.so.1", "vorn_tuning": "libvorn_tuning.so.1"}


def run(*command):
    print(*command, flush=True)
    try:
        subprocess.run(command, check=True)
    except FileNotFoundError:
        raise SystemExit(f"{command[0]} is needed to build the libraries (Debian: apt install cmake)")
    except subprocess.CalledProcessError:
        raise SystemExit("the libraries cannot be built; the lines above say why")


class BuildWithLibraries(build_py):
    def run(self):
        super().run()
        if not (SOURCE / "tuning" / "CMakeLists.txt").exists():
            raise SystemExit(f"{SOURCE} is not the source tree: build from a checkout of all of it")
        build = Path(self.get_finalized_command("build").build_temp).resolve() / "libraries"
        cache = build / "CMakeCache.txt"
        if cache.exists() and f"HOME_DIRECTORY:INTERNAL={SOURCE}\n" not in cache.read_text():
            shutil.rmtree(build)  # came with a tree that was moved or copied
        run("cmake", "-S", str(SOURCE), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
            "-DVORN_BUILD_TUNING=ON", *shlex.split(os.environ.get("CMAKE_ARGS", "")))  # fmt: skip
        run("cmake", "--build", str(build), "--parallel", str(os.cpu_count() or 1), "--target",
            *LIBRARIES)  # fmt: skip
        inside = Path(self.build_lib) / "vornycnr" / "lib"
        inside.mkdir(parents=True, exist_ok=True)
        for name in LIBRARIES.values():
            built = next(path for path in build.rglob(name))
            shutil.copyfile(built.resolve(), inside / name)
            if shutil.which("strip"):
                subprocess.run(["strip", "--strip-unneeded", str(inside / name)], check=False)


class PlatformWheel(bdist_wheel):
    """Any Python 3, but this machine's kind only."""

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


class BinaryDistribution(Distribution):
    def has_ext_modules(self):
        return True


version = re.search(r"project\(vornycnr VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text())
setup(
    version=version.group(1),
    cmdclass={"build_py": BuildWithLibraries, "bdist_wheel": PlatformWheel},
    distclass=BinaryDistribution,
)
