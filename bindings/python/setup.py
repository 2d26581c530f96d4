"""Lets the project's CMake build and install what a wheel holds: python3 -m pip wheel --no-build-isolation bindings/python

The library is inside the module; libfmt, libsndfile and libsoxr are those of the machine that builds.
"""

import pathlib
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

project = pathlib.Path(__file__).resolve().parents[2]


class ByCMake(build_ext):
    def build_extension(self, extension):
        build, wheel = (pathlib.Path(folder).resolve() for folder in (self.build_temp, self.build_lib))
        options = {"CMAKE_BUILD_TYPE": "Release", "CMAKE_INSTALL_PREFIX": "/usr", "BUILD_SHARED_LIBS": "OFF",
                   "QVVOICE_TESTS": "OFF", "QVVOICE_PYTHON": "ON", "QVVOICE_PYTHON_DIR": ".",
                   "Python3_EXECUTABLE": sys.executable}
        for command in (["-S", project, "-B", build, *(f"-D{key}={value}" for key, value in options.items())],
                        ["--build", build, "--target", "qvvoice_python", "--parallel"],
                        ["--install", build, "--component", "python", "--prefix", wheel]):
            subprocess.run(["cmake", *map(str, command)], check=True)


version = re.search(r"project\(qvvoice VERSION ([\d.]+)", (project / "CMakeLists.txt").read_text())[1]
setup(version=version, ext_modules=[Extension("qvvoice._qvvoice", [])], cmdclass={"build_ext": ByCMake})
