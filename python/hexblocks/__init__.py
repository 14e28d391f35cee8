"""hexblocks: firmware images read, changed, checked and written.

Read an image from a file or bytes in any format the library reads (Intel
HEX, S-records, ELF, UF2, TI-TXT, Verilog memory files, MIF, INHX16,
binary), look at its segments, edit it, compute checksums, plan flashing,
and write it in any format::

    import hexblocks

    image = hexblocks.read("firmware.hex")
    for segment in image.segments:
        print(hex(segment.address), len(segment.data))
    print(hex(image.checksum("crc32")))
    image.write("firmware.s37")

Failures raise hexblocks.Error, or one of its subclasses, with the reason,
the file, and the line or address to blame. python intelhex scripts can
use hexblocks.intelhex.IntelHex instead.
"""

import os
import warnings as _warnings
from typing import Any, Optional, Union

from ._errors import (BadArgumentError, BadSyntaxError, CannotOpenError, CannotReadError, CannotWriteError,
                      ChecksumError, Error, MismatchError, OutOfMemoryError, OutOfRangeError, OverlapError,
                      ReadWarning, TooLargeError, UnknownFormatError, UnsupportedError)
from ._types import (Algorithm, CrcModel, Diff, Difference, FormatInfo, Mismatch, Page, Sector, Segment,
                     StartAddress, Uf2Family, VerifyResult)
from . import _native
from ._native import (Checksum, FlashPlan, Image, algorithms, checksum, detect_format, format_by_extension,
                      formats, insert_checksum, recognise_formats, uf2_families)

__version__ = "0.6.0"

__all__ = [
    "read", "write", "convert_binary_file", "find_line", "Image", "Checksum", "FlashPlan", "algorithms",
    "checksum", "insert_checksum", "detect_format", "recognise_formats", "format_by_extension", "formats",
    "uf2_families",
    "Error", "BadArgumentError", "BadSyntaxError", "CannotOpenError", "CannotReadError", "CannotWriteError",
    "ChecksumError", "MismatchError", "OutOfMemoryError", "OutOfRangeError", "OverlapError", "TooLargeError",
    "UnknownFormatError", "UnsupportedError", "ReadWarning",
    "Algorithm", "CrcModel", "Diff", "Difference", "FormatInfo", "Mismatch", "Page", "Sector", "Segment",
    "StartAddress", "Uf2Family", "VerifyResult",
]

Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, Any]


def read(source: Source, format: Optional[str] = None, *, address: int = 0, word_width: int = 8,
         overlap: Optional[str] = None, family: Union[None, int, str] = None) -> Image:
    """Reads an image.

    source is a path, bytes (or any object with the buffer protocol), or a
    binary file object. format names the format ("ihex", "srec", "elf",
    "uf2", "ti-txt", "vmem", "mif", "ihex16", "bin"); without it, it is told
    from the content, as the hexblocks tool tells it. Binary data is placed
    at address. word_width is the width of a word in Verilog and MIF files
    (8, 16, 32 or 64). overlap says what to do with bytes that two records
    of the input give: "error", "first", "last", "identical"; by default the
    first value is kept, with a ReadWarning. family selects the blocks of
    one UF2 family (a name from uf2_families(), or a number).

    The GIL is released while the bytes are read and decoded.
    """
    if isinstance(source, (str, os.PathLike)):
        path = os.fsdecode(source)
        image, warnings = _native._read_file(path, format, address, word_width, overlap, family)
    elif hasattr(source, "read"):
        data = source.read()
        if isinstance(data, str):
            raise TypeError("read() takes a file object opened in binary mode ('rb')")
        path = getattr(source, "name", None)
        image, warnings = _native._read_memory(data, format, address, word_width, overlap, family)
    else:
        path = None
        image, warnings = _native._read_memory(source, format, address, word_width, overlap, family)
    for line, message in warnings:
        # As exceptions show what they blame: "file:line: ", "line N: ", "file: ".
        if isinstance(path, str):
            where = f"{path}:{line}: " if line else f"{path}: "
        else:
            where = f"line {line}: " if line else ""
        _warnings.warn(ReadWarning(where + message), stacklevel=2)
    return image


def write(image: Image, target: Union[None, str, "os.PathLike[str]", Any] = None, format: Optional[str] = None,
          **options: Any) -> Optional[bytes]:
    """Writes an image.

    target is a path (written through a temporary file, so that a failure
    leaves no partial file), a binary file object, or None to get the bytes.
    format is the name of the format; for a path, it defaults to the one its
    extension implies, else to Intel HEX. The options are the writers':
    record_size (16), addressing ("linear" or "segment"), address_size (0:
    the smallest that fits), crlf (False), fill (0xFF), word_width (8),
    family (UF2: a name or number), name (C arrays: "image").

    The GIL is released while the bytes are made and written.
    """
    if isinstance(target, (str, os.PathLike)):
        path = os.fsdecode(target)
        chosen = format or format_by_extension(path) or "ihex"
        _native._write_file(image, path, chosen, **options)
        return None
    data = _native._write_bytes(image, format or "ihex", **options)
    if target is None:
        return data
    target.write(data)
    return None


def convert_binary_file(input: Union[str, "os.PathLike[str]"], address: int, output: Union[str, "os.PathLike[str]"],
                        format: Optional[str] = None, **options: Any) -> None:
    """Writes the binary file at input, placed at address, to the file at
    output, as read(input, "bin", address=address) and then write(image,
    output, format, **options) would, without holding the image: the input
    is read a piece at a time while the output is written, so memory stays
    at a few MiB however large the file. format and options are write()'s.
    A failure leaves no output; its exception names the input when reading
    it failed, else the output.

    The GIL is released while the files are read and written.
    """
    target = os.fsdecode(output)
    chosen = format or format_by_extension(target) or "ihex"
    _native._convert_binary_file(os.fsdecode(input), address, target, chosen, **options)


def find_line(source: Source, address: int, format: Optional[str] = None, *, word_width: int = 8,
              overlap: Optional[str] = None, family: Union[None, int, str] = None) -> Optional[int]:
    """The line of the record that gives the byte at address in an Intel
    HEX or S-record input (and the other text formats with records), as
    read() takes it: the first record that gives the byte. None when no
    record gives it, when the input cannot be read, or when its format has
    no lines (ELF, UF2, binary). source and the options are read()'s.

    The GIL is released while the input is read.
    """
    if isinstance(source, (str, os.PathLike)):
        return _native._find_line_in_file(os.fsdecode(source), address, format, word_width, overlap, family)
    data = source.read() if hasattr(source, "read") else source
    if isinstance(data, str):
        raise TypeError("find_line() takes a file object opened in binary mode ('rb')")
    return _native._find_line_in_memory(data, address, format, word_width, overlap, family)


def _image_write(self: Image, target: Union[None, str, "os.PathLike[str]", Any] = None,
                 format: Optional[str] = None, **options: Any) -> Optional[bytes]:
    return write(self, target, format, **options)


def _image_tobytes(self: Image, format: str = "ihex", **options: Any) -> bytes:
    data = _native._write_bytes(self, format, **options)
    return data


def _image_checksum(self: Image, algorithm: Union[str, CrcModel] = "crc32", *, start: Optional[int] = None,
                    end: Optional[int] = None, fill: int = 0xFF) -> int:
    return checksum(self, algorithm, start=start, end=end, fill=fill)


def _image_insert_checksum(self: Image, algorithm: Union[str, CrcModel], *, start: int, end: int, address: int,
                           fill: int = 0xFF, byteorder: str = "little") -> None:
    insert_checksum(self, algorithm, start=start, end=end, address=address, fill=fill, byteorder=byteorder)


_image_write.__doc__ = "Writes the image: hexblocks.write(image, target, format, **options)."
_image_tobytes.__doc__ = "The image in a format, as bytes (Intel HEX by default); the options of write()."
_image_checksum.__doc__ = checksum.__doc__
_image_insert_checksum.__doc__ = insert_checksum.__doc__
Image.write = _image_write
Image.tobytes = _image_tobytes
Image.checksum = _image_checksum
Image.insert_checksum = _image_insert_checksum
