"""What the Python tests share: the project's paths, the tool, and images
made at random (gaps, several 64 KiB windows, start addresses of both kinds)
as {address: bytes} maps, written as Intel HEX by an independent writer in
this file."""

import json
import os
import random
import subprocess
from typing import Dict, List, Optional, Tuple

import pytest

SOURCE_DIR = os.environ.get("HEXBLOCKS_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
SAMPLE_HEX = os.path.join(SOURCE_DIR, "examples", "sample.hex")
TOOL = os.environ.get("HEXBLOCKS_TOOL", "")


@pytest.fixture
def tool():
    """Runs the hexblocks tool, expecting its exit status (verify and diff
    exit with 1 when they find differences), and gives its standard output
    (parsed when json_output), or its standard error when stderr; skips the
    test where the tool is not built."""
    if not TOOL:
        pytest.skip("the hexblocks tool is not built")

    def run(*args: str, json_output: bool = False, status: int = 0, stderr: bool = False):
        done = subprocess.run([TOOL, *args], capture_output=True, check=False)
        assert done.returncode == status, done.stderr.decode()
        if stderr:
            return done.stderr.decode()
        return json.loads(done.stdout) if json_output else done.stdout

    return run


Segments = Dict[int, bytes]


def random_segments(rng: random.Random, count: int = 6, near_top: bool = False) -> Segments:
    """count segments of 1 to 300 bytes, at least one byte apart, some across
    64 KiB boundaries; one ending at 0xFFFFFFFF when near_top."""
    segments: Segments = {}
    address = rng.choice([0, 0x100, 0x0800_0000, 0x2000_FF00])
    for _ in range(count):
        size = rng.randint(1, 300)
        segments[address] = bytes(rng.randrange(256) for _ in range(size))
        address += size + rng.choice([1, 7, 0x40, 0x1_0000, 0x23_4567])
    if near_top:
        segments[0xFFFF_FFFF - 99] = bytes(rng.randrange(256) for _ in range(100))
    return segments


def _record(kind: int, offset: int, data: bytes) -> str:
    body = bytes([len(data), offset >> 8, offset & 0xFF, kind]) + data
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


def hex_text(segments: Segments, start: Optional[Tuple[int, int]] = None, record_size: int = 16) -> str:
    """Intel HEX for segments: data records of record_size bytes that stay
    inside their 64 KiB, extended linear address records, the start address
    record (type 3 or 5, value) when given, the end record."""
    lines: List[str] = []
    upper = 0
    for address, data in sorted(segments.items()):
        at = 0
        while at < len(data):
            here = address + at
            if here >> 16 != upper:
                upper = here >> 16
                lines.append(_record(4, 0, upper.to_bytes(2, "big")))
            size = min(record_size, len(data) - at, 0x1_0000 - (here & 0xFFFF))
            lines.append(_record(0, here & 0xFFFF, data[at:at + size]))
            at += size
    if start is not None:
        lines.append(_record(start[0], 0, start[1].to_bytes(4, "big")))
    lines.append(":00000001FF")
    return "\n".join(lines) + "\n"


def joined(segments: Segments) -> Segments:
    """segments with those that touch joined, as an image holds them."""
    result: Segments = {}
    for address, data in sorted(segments.items()):
        if result:
            last = max(result)
            if last + len(result[last]) == address:
                result[last] += data
                continue
        result[address] = data
    return result
