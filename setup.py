"""Builds and installs the Python package hexblocks:

    pip install --no-build-isolation .

The native module is built with CMake (3.25 or later), a C++17 compiler,
pybind11 and Python's headers (Debian: cmake, g++, pybind11-dev,
python3-dev); the package's Python files come from python/hexblocks.
"""

import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


class CMakeExtension(Extension):
    def __init__(self) -> None:
        super().__init__("hexblocks._native", sources=[])


class CMakeBuild(build_ext):
    """Configures the project with only the library and the module, builds the
    module, and puts it where setuptools packs the extension."""

    def build_extension(self, ext: Extension) -> None:
        build = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        subprocess.check_call([
            "cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DHEXBLOCKS_BUILD_PYTHON=ON",
            f"-DHEXBLOCKS_PYTHON_EXECUTABLE={sys.executable}", "-DHEXBLOCKS_BUILD_TESTS=OFF",
            "-DHEXBLOCKS_BUILD_TOOLS=OFF", "-DHEXBLOCKS_BUILD_BENCHMARKS=OFF", "-DHEXBLOCKS_BUILD_EXAMPLES=OFF",
            "-DHEXBLOCKS_INSTALL=OFF"])
        subprocess.check_call(["cmake", "--build", build, "--target", "hexblocks_python", "-j",
                               str(os.cpu_count() or 2)])
        built = os.path.join(build, "python", "hexblocks")
        module = next(name for name in os.listdir(built) if name.startswith("_native.") and name.endswith(".so"))
        destination = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(destination), exist_ok=True)
        shutil.copyfile(os.path.join(built, module), destination)


setup(
    name="hexblocks",
    version="0.6.0",
    description="Firmware images: read, convert, check, lay out and write Intel HEX, S-records, ELF, UF2 and more",
    python_requires=">=3.8",
    packages=["hexblocks"],
    package_dir={"": "python"},
    package_data={"hexblocks": ["*.pyi", "py.typed"]},
    ext_modules=[CMakeExtension()],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
)
