"""The package installed, and imported from outside the source tree: by pip
into a fresh virtual environment (Debian's packages visible, nothing
fetched), and by cmake --install from the build tree."""

import glob
import os
import subprocess
import sys

import pytest

SOURCE_DIR = os.environ.get("HEXBLOCKS_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD_DIR = os.environ.get("HEXBLOCKS_BUILD_DIR", "")
CMAKE = os.environ.get("CMAKE_COMMAND", "cmake")

# Reads, writes and uses the drop-in; prints where the package came from.
USE = r"""
import io
import hexblocks, hexblocks.intelhex
image = hexblocks.read(b":0400100001020304E2\n:00000001FF\n")
assert image[0x10:0x14] == b"\x01\x02\x03\x04"
text = io.StringIO(image.tobytes().decode())
assert hexblocks.intelhex.IntelHex(text).todict() == {16: 1, 17: 2, 18: 3, 19: 4}
print(hexblocks.__file__)
"""


def clean_environment(**extra):
    env = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "PYTHONHOME")}
    env.update(extra)
    return env


def test_pip_installs_the_package_into_a_virtual_environment(tmp_path):
    venv = tmp_path / "venv"
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", str(venv)], check=True)
    python = str(venv / "bin" / "python")
    done = subprocess.run([python, "-m", "pip", "install", "--no-build-isolation", "--no-index", "--quiet",
                           SOURCE_DIR], capture_output=True, text=True, env=clean_environment(), check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    done = subprocess.run([python, "-c", USE], capture_output=True, text=True, cwd=tmp_path,
                          env=clean_environment(), check=True)
    assert done.stdout.strip().startswith(str(venv))


def test_cmake_installs_the_package_under_a_prefix(tmp_path):
    if not BUILD_DIR:
        pytest.skip("no build tree named")
    prefix = tmp_path / "prefix"
    subprocess.run([CMAKE, "--install", BUILD_DIR, "--component", "python", "--prefix", str(prefix)],
                   check=True, capture_output=True)
    found = glob.glob(str(prefix / "lib" / "python3*" / "dist-packages" / "hexblocks" / "_native*.so"))
    assert len(found) == 1
    package_dir = os.path.dirname(os.path.dirname(found[0]))
    done = subprocess.run([sys.executable, "-c", USE], capture_output=True, text=True, cwd=tmp_path,
                          env=clean_environment(PYTHONPATH=package_dir), check=True)
    assert done.stdout.strip() == os.path.join(package_dir, "hexblocks", "__init__.py")
