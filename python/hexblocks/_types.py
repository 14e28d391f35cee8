"""The small records hexblocks returns: named tuples."""

from typing import List, NamedTuple, Optional


class Segment(NamedTuple):
    """Contiguous bytes of an image: data is a read-only memoryview of the
    image's own bytes."""
    address: int
    data: memoryview


class StartAddress(NamedTuple):
    """type 5: a linear start address (EIP); type 3: a segment address,
    value CS << 16 | IP."""
    type: int
    value: int


class Mismatch(NamedTuple):
    """A data byte that a read-back dump does not match."""
    address: int
    expected: int
    found: int


class VerifyResult(NamedTuple):
    """What Image.verify() found. ok is true when every data byte lies in the
    dump and matches."""
    ok: bool
    compared: int
    mismatches: int
    not_covered: int
    first_not_covered: Optional[int]
    first: List[Mismatch]
    reason: str


class Difference(NamedTuple):
    """A range [start, end) where two images differ: kind is "only_image",
    "only_other" or "differ"; bytes counts the bytes that differ."""
    kind: str
    start: int
    end: int
    bytes: int


class Diff(NamedTuple):
    """How two images differ."""
    ranges: List[Difference]
    start_differs: bool
    equal: bool


class FormatInfo(NamedTuple):
    """A format: its name (as read() and write() take it), what people call
    it, its file name extensions, and whether it is read and written."""
    name: str
    title: str
    extensions: List[str]
    readable: bool
    writable: bool


class Uf2Family(NamedTuple):
    """A UF2 family ID and its name."""
    id: int
    name: str
    description: str


class Algorithm(NamedTuple):
    """A checksum algorithm; check is its value for b"123456789"."""
    name: str
    kind: str
    width: int
    poly: int
    init: int
    reflect_in: bool
    reflect_out: bool
    xor_out: int
    check: int


class CrcModel(NamedTuple):
    """A CRC in the usual parameters (width 8, 16 or 32), for Checksum()."""
    width: int
    poly: int
    init: int = 0
    reflect_in: bool = False
    reflect_out: bool = False
    xor_out: int = 0


class Sector(NamedTuple):
    """A sector to erase; partial when the image does not fill it."""
    address: int
    size: int
    partial: bool


class Page(NamedTuple):
    """A page to program."""
    address: int
    data: bytes
