"""Builds the pyquarn package with CMake: the compiled module plus the Python
files and type stubs that CMake places beside it.

The CMake build folder is build/release (QUARN_CMAKE_BUILD_DIR overrides it),
so that an install after `make build` only relinks what changed.
"""
import os
import re
import shutil
import subprocess
import sys
import sysconfig

from setuptools import setup
from setuptools.command.build_ext import build_ext
from setuptools.dist import Distribution

ROOT = os.path.dirname(os.path.abspath(__file__))


def library_version():
    text = open(os.path.join(ROOT, "python", "wrpCore.h"), encoding="utf-8").read()
    return re.search(r'kLibraryVersion = "([^"]+)"', text).group(1)


class CMakeBuild(build_ext):
    """Runs CMake for the module and copies its package folder."""

    def run(self):
        build_dir = os.environ.get("QUARN_CMAKE_BUILD_DIR", os.path.join(ROOT, "build", "release"))
        if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
            command = ["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                       "-DQUARN_TESTS=OFF", "-DPython3_EXECUTABLE=" + sys.executable,
                       "-DPYTHON_EXECUTABLE=" + sys.executable]
            if shutil.which("ninja"):
                command += ["-G", "Ninja"]
            if shutil.which("ccache"):
                command += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
            subprocess.check_call(command)
        jobs = os.environ.get("QUARN_BUILD_JOBS", "2")
        subprocess.check_call(["cmake", "--build", build_dir, "-j", jobs, "--target", "pyquarn"])
        package = os.path.join(build_dir, "python", "pyquarn")
        suffix = sysconfig.get_config_var("EXT_SUFFIX")
        if not os.path.exists(os.path.join(package, "__init__" + suffix)):
            raise RuntimeError("%s holds no module for this interpreter (%s); set QUARN_CMAKE_BUILD_DIR to a "
                               "fresh folder" % (package, suffix))
        target = os.path.join(self.build_lib, "pyquarn")
        os.makedirs(target, exist_ok=True)
        for name in sorted(os.listdir(package)):
            if name.endswith((".py", ".pyi", "py.typed", suffix)):
                shutil.copy2(os.path.join(package, name), os.path.join(target, name))


class BinaryDistribution(Distribution):
    """The wheel holds a compiled module, so it is tagged for this platform."""

    def has_ext_modules(self):
        return True


setup(
    version=library_version(),
    packages=[],
    cmdclass={"build_ext": CMakeBuild},
    distclass=BinaryDistribution,
    zip_safe=False,
)
