"""The type stubs: they name what the package has (mypy's stubtest), and a
type checker accepts a script that uses the package rightly and points at
one that does not. And the docstrings: every public name has one."""

import os
import subprocess
import sys

import pytest

pytest.importorskip("mypy", reason="mypy is not installed (Debian: python3-mypy)")

PACKAGE_DIR = os.path.dirname(os.path.dirname(__import__("hexblocks").__file__))
HERE = os.path.dirname(os.path.abspath(__file__))

GOOD = """
import io
from typing import List, Optional
import hexblocks

image: hexblocks.Image = hexblocks.read("firmware.hex", overlap="last")
image.put(0x08000000, b"\\x01\\x02")
image[0x08000002] = 3
first: int = image[0x08000000]
page: bytes = image[0x08000000:0x08000100]
segments: List[hexblocks.Segment] = image.segments
lowest: Optional[int] = image.lowest_address
crc: int = image.checksum("crc32", start=0x08000000, end=0x08001000)
image.merge(hexblocks.read(io.BytesIO(b":00000001FF")), overlap="first")
text: Optional[bytes] = image.write(None, "srec", record_size=32)
plan = hexblocks.FlashPlan(image, "0x08000000:4x16K")
for p in plan.pages():
    address: int = p.address
try:
    hexblocks.read(b"")
except hexblocks.ChecksumError as e:
    line: Optional[int] = e.line

from hexblocks.intelhex import IntelHex, hex2bin
ih = IntelHex("firmware.hex")
ih[0] = 1
byte: int = ih[5]
part: IntelHex = ih[0:16]
ih.write_hex_file("copy.hex", byte_count=32)
words = ih.tobinarray(start=0, size=16)
status: int = hex2bin("firmware.hex", "firmware.bin")
"""

BAD = """
import hexblocks
image = hexblocks.read("firmware.hex")
image.put("0x08000000", 7)
"""


def mypy(*args: str) -> subprocess.CompletedProcess:
    env = dict(os.environ, MYPYPATH=PACKAGE_DIR)
    return subprocess.run([sys.executable, "-m", *args], capture_output=True, text=True, env=env, cwd=HERE,
                          check=False)


def test_the_stubs_name_what_the_package_has():
    done = mypy("mypy.stubtest", "hexblocks", "--allowlist", os.path.join(HERE, "stubtest-allowlist.txt"))
    assert done.returncode == 0, done.stdout + done.stderr


def test_a_type_checker_accepts_right_use_and_finds_wrong_use(tmp_path):
    good = tmp_path / "good.py"
    good.write_text(GOOD)
    done = mypy("mypy", "--strict", "--no-incremental", "--cache-dir", os.devnull, str(good))
    assert done.returncode == 0, done.stdout
    bad = tmp_path / "bad.py"
    bad.write_text(BAD)
    done = mypy("mypy", "--strict", "--no-incremental", "--cache-dir", os.devnull, str(bad))
    assert done.returncode == 1
    assert 'bad.py:4: error: Argument 1 to "put" of "Image" has incompatible type "str"; expected "int"' in done.stdout
    assert 'bad.py:4: error: Argument 2 to "put" of "Image" has incompatible type "int"' in done.stdout


def test_every_public_name_has_a_docstring():
    import inspect

    import hexblocks
    import hexblocks.intelhex
    missing = []
    for module in (hexblocks, hexblocks.intelhex):
        for name in module.__all__:
            value = getattr(module, name)
            members = [(name, value)]
            if inspect.isclass(value):
                members += [(f"{name}.{m}", getattr(value, m)) for m, v in vars(value).items()
                            if not m.startswith("_") and (callable(v) or isinstance(v, property))]
            for label, member in members:
                doc = (member.__doc__ or "").strip()
                # pybind11 puts the signature first: text must follow it.
                lines = [line for line in doc.splitlines() if line.strip()]
                if not lines or (len(lines) == 1 and "->" in lines[0] and "(" in lines[0]):
                    missing.append(f"{module.__name__}.{label}")
    assert missing == []
