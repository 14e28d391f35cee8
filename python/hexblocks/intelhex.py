"""python intelhex's interface over hexblocks: ``from hexblocks.intelhex
import IntelHex`` in place of ``from intelhex import IntelHex``.

IntelHex, IntelHex16bit, hex2bin, bin2hex, diff_dumps and the exception
classes behave as python intelhex 2.3 documents them, and raise the same
exceptions with the same messages. The bytes are kept in a hexblocks.Image
rather than a dictionary entry per byte: reading and converting are many
times faster, and an image takes about its own size in memory.

What follows from that model, and differs on purpose (see the Python page
of the documentation): addresses are 0 to 0xFFFFFFFF (an address beyond
raises ValueError, where python intelhex would keep it); a byte is 0 to 255
(another value raises ValueError, where python intelhex would store it);
get_memory_size() gives the image's own footprint; file objects opened in
binary mode are read too.
"""

import array
import io
import os
import sys
from typing import Any, Dict, List, Optional, Tuple

from . import _native

__all__ = [
    "IntelHex", "IntelHex16bit", "hex2bin", "bin2hex", "diff_dumps",
    "IntelHexError", "HexReaderError", "AddressOverlapError", "HexRecordError", "RecordLengthError",
    "RecordTypeError", "RecordChecksumError", "EOFRecordError", "ExtendedAddressRecordError",
    "ExtendedSegmentAddressRecordError", "ExtendedLinearAddressRecordError", "StartAddressRecordError",
    "StartSegmentAddressRecordError", "StartLinearAddressRecordError", "DuplicateStartAddressRecordError",
    "InvalidStartAddressValueError", "NotEnoughDataError", "BadAccess16bit", "EmptyIntelHexError",
]

_ADDRESS_LIMIT = 1 << 32


# --- exceptions ------------------------------------------------------------------------------------------------

class IntelHexError(Exception):
    """Base Exception class for IntelHex module"""

    _fmt = "IntelHex base error"

    def __init__(self, msg: Optional[str] = None, **kw: Any) -> None:
        """Initialize the Exception with the given message."""
        self.msg = msg
        for key, value in kw.items():
            setattr(self, key, value)

    def __str__(self) -> str:
        """Return the message in this Exception."""
        if self.msg:
            return self.msg
        try:
            return self._fmt % self.__dict__
        except (NameError, ValueError, KeyError) as e:
            return "Unprintable exception %s: %s" % (repr(e), str(e))


class HexReaderError(IntelHexError):
    _fmt = "Hex reader base error"


class AddressOverlapError(HexReaderError):
    _fmt = "Hex file has data overlap at address 0x%(address)X on line %(line)d"


class HexRecordError(HexReaderError):
    _fmt = "Hex file contains invalid record at line %(line)d"


class RecordLengthError(HexRecordError):
    _fmt = "Record at line %(line)d has invalid length"


class RecordTypeError(HexRecordError):
    _fmt = "Record at line %(line)d has invalid record type"


class RecordChecksumError(HexRecordError):
    _fmt = "Record at line %(line)d has invalid checksum"


class EOFRecordError(HexRecordError):
    _fmt = "File has invalid End-of-File record"


class ExtendedAddressRecordError(HexRecordError):
    _fmt = "Base class for extended address exceptions"


class ExtendedSegmentAddressRecordError(ExtendedAddressRecordError):
    _fmt = "Invalid Extended Segment Address Record at line %(line)d"


class ExtendedLinearAddressRecordError(ExtendedAddressRecordError):
    _fmt = "Invalid Extended Linear Address Record at line %(line)d"


class StartAddressRecordError(HexRecordError):
    _fmt = "Base class for start address exceptions"


class StartSegmentAddressRecordError(StartAddressRecordError):
    _fmt = "Invalid Start Segment Address Record at line %(line)d"


class StartLinearAddressRecordError(StartAddressRecordError):
    _fmt = "Invalid Start Linear Address Record at line %(line)d"


class DuplicateStartAddressRecordError(StartAddressRecordError):
    _fmt = "Start Address Record appears twice at line %(line)d"


class InvalidStartAddressValueError(StartAddressRecordError):
    _fmt = "Invalid start address value: %(start_addr)s"


class NotEnoughDataError(IntelHexError):
    _fmt = "Bad access at 0x%(address)X: not enough data to read %(length)d contiguous bytes"


class BadAccess16bit(NotEnoughDataError):
    _fmt = "Bad access at 0x%(address)X: not enough data to read 16 bit value"


class EmptyIntelHexError(IntelHexError):
    _fmt = "Requested operation cannot be executed with empty object"


# --- reading HEX text by python intelhex's rules -----------------------------------------------------------------

_HEX_DIGITS = frozenset("0123456789abcdefABCDEF")
_RECORD_ERRORS = {2: ExtendedSegmentAddressRecordError, 3: StartSegmentAddressRecordError,
                  4: ExtendedLinearAddressRecordError, 5: StartLinearAddressRecordError}


def _lines_of(text: str, universal: bool) -> List[str]:
    """The lines as python intelhex iterates over them: a file opened by name
    ends lines at LF, CR LF or CR; another file object at LF."""
    return text.splitlines(True) if universal else text.split("\n")


def _careful_records(text: str, universal: bool, image: "_native.Image", existing: "_native.Image"):
    """Reads text record by record with python intelhex's rules into image,
    refusing bytes that existing or an earlier record holds. Returns the
    start address as python intelhex keeps it."""
    base = 0
    start_addr: Optional[Dict[str, int]] = None
    for line, s in enumerate(_lines_of(text, universal), 1):
        s = s.rstrip("\r\n")
        if not s:
            continue
        digits = s[1:]
        if s[0] != ":" or len(digits) % 2 or len(digits) < 10 or not _HEX_DIGITS.issuperset(digits):
            raise HexRecordError(line=line)
        record = bytes.fromhex(digits)
        length, offset, kind = record[0], record[1] << 8 | record[2], record[3]
        if length != len(record) - 5:
            raise RecordLengthError(line=line)
        if kind > 5:
            raise RecordTypeError(line=line)
        if sum(record) & 0xFF:
            raise RecordChecksumError(line=line)
        data = record[4:-1]
        if kind == 0:
            address = base + offset
            for i in range(length):
                if address + i in existing or address + i in image:
                    raise AddressOverlapError(address=address + i, line=line)
            if address + length > _ADDRESS_LIMIT:
                raise ValueError(f"line {line}: the record's data runs past address 0xFFFFFFFF, where "
                                 f"hexblocks.intelhex keeps none")
            image.put(address, data)
        elif kind == 1:
            if length != 0:
                raise EOFRecordError(line=line)
            break
        elif kind in (2, 4):
            if length != 2 or offset != 0:
                raise _RECORD_ERRORS[kind](line=line)
            base = (data[0] << 8 | data[1]) * (16 if kind == 2 else 65536)
        else:
            if length != 4 or offset != 0:
                raise _RECORD_ERRORS[kind](line=line)
            if start_addr is not None:
                raise DuplicateStartAddressRecordError(line=line)
            if kind == 3:
                start_addr = {"CS": data[0] << 8 | data[1], "IP": data[2] << 8 | data[3]}
            else:
                start_addr = {"EIP": int.from_bytes(data, "big")}
    return start_addr


def _start_addr_of(start: Any) -> Optional[Dict[str, int]]:
    if start is None:
        return None
    if start.type == 3:
        return {"CS": start.value >> 16, "IP": start.value & 0xFFFF}
    return {"EIP": start.value}


def _library_read(read: Any, existing: "_native.Image") -> Optional["_native.Image"]:
    """The image the library's reader gives (read() calls it), or None when it
    fails or gives bytes that existing holds: python intelhex's rules then
    decide what happens."""
    try:
        image, _, _, _ = read()
    except Exception:
        return None
    if len(existing) and _overlaps(image, existing):
        return None
    return image


def _read_hex(data: bytes, universal: bool, existing: "_native.Image") -> Tuple["_native.Image", Any]:
    """The image and start address that python intelhex's loadhex() gives for
    data, or its exception. Plain text goes through the library's reader;
    any other through the careful reader above."""
    if _native._intelhex_plain(data):
        image = _library_read(lambda: _native._read_memory(data, "ihex", 0, 8, "error", None), existing)
        if image is not None:
            return image, _start_addr_of(image.start_address)
    text = data.decode("utf-8") if isinstance(data, (bytes, bytearray)) else data
    image = _native.Image()
    start = _careful_records(text, universal, image, existing)
    return image, start


def _read_hex_file(path: str, existing: "_native.Image") -> Tuple["_native.Image", Any]:
    """_read_hex() for the file at path. A plain file goes to the library's
    reader by name, so that its text is never held whole."""
    if _native._intelhex_plain_file(path):
        image = _library_read(lambda: _native._read_file(path, "ihex", 0, 8, "error", None), existing)
        if image is not None:
            return image, _start_addr_of(image.start_address)
    with open(path, "rb") as f:
        data = f.read()
    return _read_hex(data, True, existing)


def _overlaps(a: "_native.Image", b: "_native.Image") -> bool:
    for segment in a.segments:
        for other in b.segments:
            if segment.address < other.address + len(other.data) and other.address < segment.address + len(
                    segment.data):
                return True
    return False


def _open_binary_output(target: Any):
    return open(target, "wb") if isinstance(target, str) else None


# --- IntelHex ----------------------------------------------------------------------------------------------------

class _DeprecatedParam(object):
    pass


_DEPRECATED_PARAM = _DeprecatedParam()


def _check_address(address: Any) -> int:
    if not isinstance(address, int):
        raise TypeError("Address has unsupported type: %s" % type(address))
    if address < 0:
        raise TypeError("Address should be >= 0.")
    if address >= _ADDRESS_LIMIT:
        raise ValueError("hexblocks.intelhex keeps addresses up to 0xFFFFFFFF, not 0x%X" % address)
    return address


def _check_byte(value: Any) -> int:
    if not isinstance(value, int) or not 0 <= value <= 255:
        raise ValueError("hexblocks.intelhex keeps bytes 0 to 255, not %r" % (value,))
    return value


class IntelHex(_native._IntelHexBase):
    """Intel HEX file reader."""

    def __init__(self, source: Any = None) -> None:
        """Constructor. If source specified, object will be initialized
        with the contents of source. Otherwise the object will be empty.

        @param  source      source for initialization
                            (file name of HEX file, file object, addr dict or
                             other IntelHex object)
        """
        self.padding = 0xFF
        self.start_addr: Optional[Dict[str, int]] = None
        self._image = _native.Image()
        if source is not None:
            if isinstance(source, str) or getattr(source, "read", None):
                self.loadhex(source)
            elif isinstance(source, dict):
                self.fromdict(source)
            elif isinstance(source, IntelHex):
                self.padding = source.padding
                if source.start_addr:
                    self.start_addr = source.start_addr.copy()
                self._image = source._image.copy()
            else:
                raise ValueError("source: bad initializer type")

    # -- loading --

    def loadhex(self, fobj: Any) -> None:
        """Load hex file into internal buffer. This is not necessary
        if object was initialized with source set. This will overwrite
        addresses if object was already initialized.

        @param  fobj        file name or file-like object
        """
        if isinstance(fobj, str):
            image, start = _read_hex_file(fobj, self._image)
        else:
            data = fobj.read()
            if isinstance(data, str):
                data = data.encode("utf-8", "surrogateescape")
            image, start = _read_hex(data, False, self._image)
        image.start_address = None
        if start is not None and self.start_addr is not None:
            raise DuplicateStartAddressRecordError(line=_start_line(fobj))
        if len(self._image):
            self._image.merge(image, overlap="last", start="first")
        else:
            self._image = image
        if start is not None:
            self.start_addr = start

    def loadbin(self, fobj: Any, offset: int = 0) -> None:
        """Load bin file into internal buffer. Not needed if source set in
        constructor. This will overwrite addresses without warning
        if object was already initialized.

        @param  fobj        file name or file-like object
        @param  offset      starting address offset
        """
        if isinstance(fobj, str):
            with open(fobj, "rb") as f:
                data = f.read()
        else:
            data = fobj.read()
        self.frombytes(data, offset)

    def loadfile(self, fobj: Any, format: str) -> None:
        """Load data file into internal buffer. Preferred wrapper over
        loadbin or loadhex.

        @param  fobj        file name or file-like object
        @param  format      file format ("hex" or "bin")
        """
        if format == "hex":
            self.loadhex(fobj)
        elif format == "bin":
            self.loadbin(fobj)
        else:
            raise ValueError('format should be either "hex" or "bin";'
                             ' got %r instead' % format)

    fromfile = loadfile

    def fromdict(self, dikt: Dict[Any, Any]) -> None:
        """Load data from dictionary. Dictionary should contain int keys
        representing addresses. Values should be the data to be stored in
        those addresses in unsigned char form (i.e. not strings).
        The dictionary may contain the key, ``start_addr``
        to indicate the starting address of the data as described in README.

        The contents of the dict will be merged with this object and will
        overwrite any conflicts. This function is not necessary if the
        object was initialized with source specified.
        """
        s = dikt.copy()
        start_addr = s.get("start_addr")
        if start_addr is not None:
            del s["start_addr"]
        for k in s.keys():
            if not isinstance(k, int) or k < 0:
                raise ValueError("Source dictionary should have only int keys")
        for address, value in sorted(s.items()):
            self._image[_check_address(address)] = _check_byte(value)
        if start_addr is not None:
            self.start_addr = start_addr

    def frombytes(self, bytes: Any, offset: int = 0) -> None:
        """Load data from array or list of bytes.
        Similar to loadbin() method but works directly with iterable bytes.
        """
        data = bytes if isinstance(bytes, (type(b""), bytearray, memoryview)) else type(b"")(bytes)
        if len(data):
            _check_address(offset)
            _check_address(offset + len(data) - 1)
            self._image.put(offset, data)

    # -- bytes by address --

    # ih[address] with an int address that holds data or not is the base
    # class's, in C; every other key comes here.
    def _getitem_other(self, addr: Any) -> Any:
        """Get requested byte from address.
        @param  addr    address of byte.
        @return         byte if address exists in HEX file, or self.padding
                        if no data found.
        """
        if isinstance(addr, int):
            if addr < 0:
                raise TypeError("Address should be >= 0.")
            return self._image[addr] if addr in self._image else self.padding
        if isinstance(addr, slice):
            ih = IntelHex()
            if len(self._image):
                start, stop, step = self._slice_bounds(addr)
                if step == 1:
                    if start < stop:
                        ih._image = self._image.copy()
                        ih._image.crop([(start, min(stop, _ADDRESS_LIMIT))])
                else:
                    for i in range(start, stop, step):
                        if i in self._image:
                            ih._image[i] = self._image[i]
            return ih
        raise TypeError("Address has unsupported type: %s" % type(addr))

    def __setitem__(self, addr: Any, byte: Any) -> None:
        """Set byte at address."""
        if isinstance(addr, int):
            if addr < 0:
                raise TypeError("Address should be >= 0.")
            self._image[_check_address(addr)] = _check_byte(byte)
        elif isinstance(addr, slice):
            if not isinstance(byte, (list, tuple)):
                raise ValueError("Slice operation expects sequence of bytes")
            start, stop, step = addr.start, addr.stop, addr.step or 1
            if None not in (start, stop):
                ra = range(start, stop, step)
                if len(ra) != len(byte):
                    raise ValueError("Length of bytes sequence does not match address range")
            elif (start, stop) == (None, None):
                raise TypeError("Unsupported address range")
            elif start is None:
                start = stop - len(byte)
            if start < 0:
                raise TypeError("start address cannot be negative")
            if stop is not None and stop < 0:
                raise TypeError("stop address cannot be negative")
            for i, value in enumerate(byte):
                self._image[_check_address(start + i * step)] = _check_byte(value)
        else:
            raise TypeError("Address has unsupported type: %s" % type(addr))

    def __delitem__(self, addr: Any) -> None:
        """Delete byte at address."""
        if isinstance(addr, int):
            if addr < 0:
                raise TypeError("Address should be >= 0.")
            if addr not in self._image:
                raise KeyError(addr)
            self._image.exclude(addr, addr + 1)
        elif isinstance(addr, slice):
            if not len(self._image):
                return
            start, stop, step = self._slice_bounds(addr)
            if step == 1:
                if start < stop:
                    self._image.exclude(start, min(stop, _ADDRESS_LIMIT))
            else:
                for i in range(start, stop, step):
                    if i in self._image:
                        self._image.exclude(i, i + 1)
        else:
            raise TypeError("Address has unsupported type: %s" % type(addr))

    def _slice_bounds(self, addr: slice) -> Tuple[int, int, int]:
        start = addr.start if addr.start is not None else self._image.lowest_address
        stop = addr.stop if addr.stop is not None else self._image.highest_address + 1
        return max(start, 0), max(stop, 0), addr.step or 1

    def __len__(self) -> int:
        """Return count of bytes with real values."""
        return len(self._image)

    def addresses(self) -> List[int]:
        """Returns all used addresses in sorted order.
        @return         list of occupied data addresses in sorted order.
        """
        result: List[int] = []
        for segment in self._image.segments:
            result.extend(range(segment.address, segment.address + len(segment.data)))
        return result

    def minaddr(self) -> Optional[int]:
        """Get minimal address of HEX content.
        @return         minimal address or None if no data
        """
        return self._image.lowest_address

    def maxaddr(self) -> Optional[int]:
        """Get maximal address of HEX content.
        @return         maximal address or None if no data
        """
        return self._image.highest_address

    def todict(self) -> Dict[Any, Any]:
        """Convert to python dictionary.

        @return         dict suitable for initializing another IntelHex object.
        """
        r: Dict[Any, Any] = {}
        for segment in self._image.segments:
            r.update(zip(range(segment.address, segment.address + len(segment.data)), segment.data))
        if self.start_addr:
            r["start_addr"] = self.start_addr
        return r

    def segments(self, min_gap: int = 1) -> List[Tuple[int, int]]:
        """Return a list of ordered tuple objects, representing contiguous occupied data addresses.
        Each tuple has a length of two and follows the semantics of the range and xrange objects.
        The second entry of the tuple is always an integer greater than the first entry.
        @param min_gap      the minimum gap size between data in order to separate the segments
        """
        result: List[Tuple[int, int]] = []
        for segment in self._image.segments:
            start, end = segment.address, segment.address + len(segment.data)
            if result and start - result[-1][1] < min_gap:
                result[-1] = (result[-1][0], end)
            else:
                result.append((start, end))
        if min_gap < 1:
            # Every address its own segment, as python intelhex splits them.
            return [(a, a + 1) for s, e in result for a in range(s, e)]
        return result

    def get_memory_size(self) -> int:
        """Returns the approximate memory footprint for data."""
        return sys.getsizeof(self) + len(self._image) + 48 * len(self._image.segments)

    # -- strings of bytes --

    def gets(self, addr: int, length: int) -> bytes:
        """Get string of bytes from given address. If any entries are blank
        from addr through addr+length, a NotEnoughDataError exception will
        be raised. Padding is not used.
        """
        if length and (addr < 0 or not self._covers(addr, length)):
            raise NotEnoughDataError(address=addr, length=length)
        return self._image[addr:addr + length] if length else b""

    def puts(self, addr: int, s: Any) -> None:
        """Put string of bytes at given address. Will overwrite any previous
        entries.
        """
        if isinstance(s, str):
            s = s.encode("latin1")
        elif not isinstance(s, (bytes, bytearray, memoryview)):
            raise AttributeError("'%s' object has no attribute 'encode'" % type(s).__name__)
        if len(s):
            _check_address(addr)
            _check_address(addr + len(s) - 1)
            self._image.put(addr, s)

    def getsz(self, addr: int) -> bytes:
        """Get zero-terminated bytes string from given address. Will raise
        NotEnoughDataError exception if a hole is encountered before a 0.
        """
        for segment in self._image.segments:
            if segment.address <= addr < segment.address + len(segment.data):
                data = bytes(segment.data[addr - segment.address:])
                end = data.find(b"\x00")
                if end >= 0:
                    return data[:end]
                break
        raise NotEnoughDataError(msg=("Bad access at 0x%X: "
                                      "not enough data to read zero-terminated string") % addr)

    def putsz(self, addr: int, s: Any) -> None:
        """Put bytes string in object at addr and append terminating zero at end."""
        self.puts(addr, s)
        self._image[_check_address(addr + len(s))] = 0

    def find(self, sub: Any, start: Optional[int] = None, end: Optional[int] = None) -> int:
        """Return the lowest index in self[start:end] where subsection sub is found.
        Optional arguments start and end are interpreted as in slice notation.

        @param  sub     bytes-like subsection to find
        @param  start   start of section to search within (optional)
        @param  end     end of section to search within (optional)
        """
        sub = bytes(sub)
        for segment in self._image.segments:
            first = segment.address if start is None else max(start, segment.address)
            last = segment.address + len(segment.data) if end is None else min(end, segment.address + len(
                segment.data))
            if first >= last:
                continue
            data = segment.data[first - segment.address:last - segment.address]
            found = bytes(data).find(sub)
            if found >= 0:
                return first + found
        return -1

    def _covers(self, addr: int, length: int) -> bool:
        for segment in self._image.segments:
            if segment.address <= addr and addr + length <= segment.address + len(segment.data):
                return True
        return False

    # -- binary --

    def _get_start_end(self, start: Optional[int] = None, end: Optional[int] = None,
                       size: Optional[int] = None) -> Tuple[int, int]:
        """The first and last address of a range, as tobinarray() takes them."""
        if (start, end) == (None, None) and not len(self._image):
            raise EmptyIntelHexError
        if size is not None:
            if None not in (start, end):
                raise ValueError("tobinarray: you can't use start,end and size"
                                 " arguments in the same time")
            if (start, end) == (None, None):
                start = self.minaddr()
            if start is not None:
                end = start + size - 1
            else:
                start = end - size + 1  # type: ignore[operator]
                if start < 0:
                    raise ValueError("tobinarray: invalid size (%d) "
                                     "for given end address (%d)" % (size, end))
        else:
            if start is None:
                start = self.minaddr()
            if end is None:
                end = self.maxaddr()
            if start > end:  # type: ignore[operator]
                start, end = end, start
        return start, end  # type: ignore[return-value]

    def _binary(self, start: Optional[int], end: Optional[int], pad: Any, size: Optional[int]) -> bytes:
        if not isinstance(pad, _DeprecatedParam):
            print("IntelHex.tobinarray: 'pad' parameter is deprecated.")
            if pad is not None:
                print("Please, use IntelHex.padding attribute instead.")
            else:
                print("Please, don't pass it explicitly.")
                print("Use syntax like this: ih.tobinarray(start=xxx, end=yyy, size=zzz)")
        else:
            pad = None
        if size is not None and size <= 0:
            raise ValueError("tobinarray: wrong value for size")
        try:
            first, last = self._get_start_end(start, end, size)
        except EmptyIntelHexError:
            return b""
        fill = self.padding if pad is None else pad
        if last < first:
            return b""
        return self._image.copy_range(first, last - first + 1, fill=fill)

    def tobinarray(self, start: Optional[int] = None, end: Optional[int] = None, pad: Any = _DEPRECATED_PARAM,
                   size: Optional[int] = None) -> "array.array[int]":
        """Convert this object to binary form as array. If start and end
        unspecified, they will be inferred from the data.
        @param  start   start address of output bytes.
        @param  end     end address of output bytes (inclusive).
        @param  pad     [DEPRECATED PARAMETER, please use self.padding instead]
                        fill empty spaces with this value
                        (if pad is None then this method uses self.padding).
        @param  size    size of the block, used with start or end parameter.
        @return         array of unsigned char data.
        """
        return array.array("B", self._binary(start, end, pad, size))

    def tobinstr(self, start: Optional[int] = None, end: Optional[int] = None, pad: Any = _DEPRECATED_PARAM,
                 size: Optional[int] = None) -> bytes:
        """Convert to binary form and return as binary string.
        @param  start   start address of output bytes.
        @param  end     end address of output bytes (inclusive).
        @param  pad     [DEPRECATED PARAMETER, please use self.padding instead]
                        fill empty spaces with this value
                        (if pad is None then this method uses self.padding).
        @param  size    size of the block, used with start or end parameter.
        @return         bytes string of binary data.
        """
        return self._binary(start, end, pad, size)

    def tobinfile(self, fobj: Any, start: Optional[int] = None, end: Optional[int] = None,
                  pad: Any = _DEPRECATED_PARAM, size: Optional[int] = None) -> None:
        """Convert to binary and write to file.

        @param  fobj    file name or file object for writing output bytes.
        @param  start   start address of output bytes.
        @param  end     end address of output bytes (inclusive).
        @param  pad     [DEPRECATED PARAMETER, please use self.padding instead]
                        fill empty spaces with this value
                        (if pad is None then this method uses self.padding).
        @param  size    size of the block, used with start or end parameter.
        """
        data = self._binary(start, end, pad, size)
        if isinstance(fobj, str):
            with open(fobj, "wb") as f:
                f.write(data)
        else:
            fobj.write(data)

    # -- HEX --

    def write_hex_file(self, f: Any, write_start_addr: bool = True, eolstyle: str = "native",
                       byte_count: int = 16) -> None:
        """Write data to file f in HEX format.

        @param  f                   filename or file-like object for writing
        @param  write_start_addr    enable or disable writing start address
                                    record to file (enabled by default).
                                    If there is no start address in obj, nothing
                                    will be written regardless of this setting.
        @param  eolstyle            can be used to force CRLF line-endings
                                    for output file on different platforms.
                                    Supported eol styles: 'native', 'CRLF'.
        @param byte_count           number of bytes in the data field
        """
        if byte_count > 255 or byte_count < 1:
            raise ValueError("wrong byte_count value: %s" % byte_count)
        if eolstyle == "native":
            eol = os.linesep
        elif eolstyle == "CRLF":
            eol = "\r\n"
        else:
            raise ValueError("wrong eolstyle %s" % repr(eolstyle))
        data = _hex_bytes(self, write_start_addr, eol, byte_count)
        if isinstance(f, str):
            with open(f, "wb") as out:
                out.write(data)
        else:
            f.write(data.decode("ascii"))

    def tofile(self, fobj: Any, format: str, byte_count: int = 16) -> None:
        """Write data to hex or bin file. Preferred method over tobin or tohex.

        @param  fobj        file name or file-like object
        @param  format      file format ("hex" or "bin")
        @param  byte_count  bytes per line
        """
        if format == "hex":
            self.write_hex_file(fobj, byte_count=byte_count)
        elif format == "bin":
            self.tobinfile(fobj)
        else:
            raise ValueError('format should be either "hex" or "bin";'
                             ' got %r instead' % format)

    # -- merging and dumping --

    def merge(self, other: "IntelHex", overlap: str = "error") -> None:
        """Merge content of other IntelHex object into current object (self).
        @param  other   other IntelHex object.
        @param  overlap action on overlap of data or starting addr:
                        - error: raising OverlapError;
                        - ignore: ignore other data and keep current data
                                  in overlapping region;
                        - replace: replace data with other data
                                  in overlapping region.

        @raise  TypeError       if other is not instance of IntelHex
        @raise  ValueError      if other is the same object as self
                                (it can't merge itself)
        @raise  ValueError      if overlap argument has incorrect value
        @raise  AddressOverlapError    on overlapped data
        """
        if not isinstance(other, IntelHex):
            raise TypeError("other should be IntelHex object")
        if other is self:
            raise ValueError("Can't merge itself")
        if overlap not in ("error", "ignore", "replace"):
            raise ValueError("overlap argument should be either "
                             "'error', 'ignore' or 'replace'")
        if overlap == "error":
            clash = self._image.copy()
            try:
                clash.merge(other._image, overlap="error", start="first")
            except Exception as e:
                address = getattr(e, "address", None)
                if address is None:
                    raise
                raise AddressOverlapError("Data overlapped at address 0x%X" % address)
            self._image = clash
        else:
            self._image.merge(other._image, overlap="first" if overlap == "ignore" else "last", start="first")
        if self.start_addr != other.start_addr:
            if self.start_addr is None:
                self.start_addr = other.start_addr
            elif other.start_addr is None:
                pass
            elif overlap == "error":
                raise AddressOverlapError("Starting addresses are different")
            elif overlap == "replace":
                self.start_addr = other.start_addr

    def dump(self, tofile: Any = None, width: int = 16, withpadding: bool = False) -> None:
        """Dump object content to specified file object or to stdout if None.
        Format is a hexdump with some header information at the beginning,
        addresses on the left, and data on right.

        @param  tofile          file-like object to dump to
        @param  width           number of bytes per line (i.e. columns)
        @param  withpadding     print padding character instead of '--'
        @raise  ValueError      if width is not a positive integer
        """
        if not isinstance(width, int) or width < 1:
            raise ValueError("width must be a positive integer.")
        if tofile is None:
            tofile = sys.stdout
        tofile.write(_dump_text(self, width, withpadding))

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, IntelHex):
            return NotImplemented
        return self.todict() == other.todict()

    __hash__ = None  # type: ignore[assignment]


def _start_line(fobj: Any) -> int:
    """The line of the first start address record of the file loadhex() was
    given, read again."""
    if isinstance(fobj, str):
        with open(fobj, "rb") as f:
            text = f.read().decode("utf-8", "replace")
        lines = _lines_of(text, True)
    else:
        fobj.seek(0)
        data = fobj.read()
        lines = _lines_of(data.decode("utf-8", "replace") if isinstance(data, bytes) else data, False)
    for line, s in enumerate(lines, 1):
        if s[7:9] in ("03", "05"):
            return line
    return 0


def _record(kind: int, offset: int, data: bytes) -> str:
    body = bytes([len(data), offset >> 8 & 0xFF, offset & 0xFF, kind]) + data
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


def _hex_bytes(ih: IntelHex, write_start_addr: bool, eol: str, byte_count: int) -> bytes:
    """Intel HEX as python intelhex writes it: the start address record first;
    when data lies above 0xFFFF, an extended linear address record before
    the data of each 64 KiB, the first one too; data records of byte_count
    bytes that stop at gaps and 64 KiB boundaries; the end record. The
    library's writer makes the data records and their address records."""
    newline = eol.encode("ascii")
    head = b""
    start = ih.start_addr
    if write_start_addr and start:
        keys = sorted(start.keys())
        if keys == ["CS", "IP"]:
            head = _record(3, 0, start["CS"].to_bytes(2, "big") + start["IP"].to_bytes(2, "big")).encode() + newline
        elif keys == ["EIP"]:
            head = _record(5, 0, start["EIP"].to_bytes(4, "big")).encode() + newline
        else:
            raise InvalidStartAddressValueError(start_addr=start)
    end = b":00000001FF" + newline
    if not len(ih._image):
        return head + end
    image = ih._image
    if image.start_address is not None:
        image = image.copy()
        image.start_address = None
    body = image.tobytes("ihex", record_size=byte_count, crlf=eol == "\r\n")
    body = body[:len(body) - len(end)]  # the library's end record
    if image.highest_address > 0xFFFF and not body.startswith(b":02000004"):
        head += _record(4, 0, b"\x00\x00").encode() + newline
    return head + body + end


def _dump_text(ih: IntelHex, width: int, withpadding: bool) -> str:
    out: List[str] = []
    if ih.start_addr is not None:
        cs, ip, eip = (ih.start_addr.get(k) for k in ("CS", "IP", "EIP"))
        if eip is not None and cs is None and ip is None:
            out.append("EIP = 0x%08X\n" % eip)
        elif eip is None and cs is not None and ip is not None:
            out.append("CS = 0x%04X, IP = 0x%04X\n" % (cs, ip))
        else:
            out.append("start_addr = %r\n" % ih.start_addr)
    if not len(ih._image):
        return "".join(out)
    low, high = ih.minaddr(), ih.maxaddr()
    assert low is not None and high is not None
    digits = max(4, len("%X" % high))
    first = low // width * width
    last = high // width * width + width
    image = ih._image
    for row in range(first, last, width):
        chunk = image.copy_range(row, width, fill=ih.padding)
        cells = []
        chars = []
        for i, value in enumerate(chunk):
            if withpadding or row + i in image:
                cells.append("%02X" % value)
                chars.append(chr(value) if 32 <= value < 127 else ".")
            else:
                cells.append("--")
                chars.append(" ")
        out.append("%0*X  %s  |%s|\n" % (digits, row, " ".join(cells), "".join(chars)))
    return "".join(out)


# --- IntelHex16bit -----------------------------------------------------------------------------------------------

class IntelHex16bit(IntelHex):
    """Access to data as 16-bit words. Intended to use with Microchip HEX files."""

    def __init__(self, source: Any = None) -> None:
        """Construct class from HEX file
        or from instance of ordinary IntelHex class. If IntelHex object
        is passed as source, the original IntelHex object should not be used
        again because this class will alter it. This class leaves padding
        alone unless it was precisely 0xFF. In that instance it is sign
        extended to 0xFFFF.

        @param  source  file name of HEX file or file object
                        or instance of ordinary IntelHex class.
                        Will also accept dictionary from todict method.
        """
        if isinstance(source, IntelHex):
            self.padding = source.padding
            self.start_addr = source.start_addr
            self._image = source._image
        else:
            IntelHex.__init__(self, source)
        if self.padding == 0xFF:
            self.padding = 0xFFFF

    def __getitem__(self, addr16: Any) -> Any:
        """Get 16-bit word from address.
        Raise error if only one byte from the pair is set.
        We assume a Little Endian interpretation of the hex file.

        @param  addr16  address of word (addr8 = 2 * addr16).
        @return         word if bytes exists in HEX file, or self.padding
                        if no data found.
        """
        addr1 = addr16 * 2
        addr2 = addr1 + 1
        has1 = addr1 in self._image
        has2 = addr2 in self._image
        if not has1 and not has2:
            return self.padding
        if not has1 or not has2:
            raise BadAccess16bit(address=addr16)
        return self._image[addr1] | self._image[addr2] << 8

    def __setitem__(self, addr16: Any, word: Any) -> None:
        """Sets the address at addr16 to word assuming Little Endian mode."""
        addr_byte = _check_address(addr16 * 2)
        _check_address(addr_byte + 1)
        if not isinstance(word, int) or not 0 <= word <= 0xFFFF:
            raise ValueError("hexblocks.intelhex keeps 16-bit words 0 to 0xFFFF, not %r" % (word,))
        self._image.put(addr_byte, word.to_bytes(2, "little"))

    def minaddr(self) -> int:  # type: ignore[override]
        """Get minimal address of HEX content in 16-bit mode.

        @return         minimal address used in this object
        """
        low = self._image.lowest_address
        return 0 if low is None else low >> 1

    def maxaddr(self) -> int:  # type: ignore[override]
        """Get maximal address of HEX content in 16-bit mode.

        @return         maximal address used in this object
        """
        high = self._image.highest_address
        return 0 if high is None else high >> 1

    def tobinarray(self, start: Optional[int] = None, end: Optional[int] = None,  # type: ignore[override]
                   size: Optional[int] = None) -> "array.array[int]":
        """Convert this object to binary form as array (of 2-bytes word data).
        If start and end unspecified, they will be inferred from the data.
        @param  start   start address of output data.
        @param  end     end address of output data (inclusive).
        @param  size    size of the block (number of words),
                        used with start or end parameter.
        @return         array of unsigned short (uint16_t) data.
        """
        bin = array.array("H")
        if (start, end, size) == (None, None, None) and not len(self._image):
            return bin
        if size is not None and size <= 0:
            raise ValueError("tobinarray: wrong value for size")
        start, end = self._get_start_end(start, end, size)
        for addr in range(start, end + 1):
            bin.append(self[addr])
        return bin


# --- scripts' functions ------------------------------------------------------------------------------------------

def hex2bin(fin: Any, fout: Any, start: Optional[int] = None, end: Optional[int] = None,
            size: Optional[int] = None, pad: Optional[int] = None) -> int:
    """Hex-to-Bin convertor engine.
    @return     0   if all OK

    @param  fin     input hex file (filename or file-like object)
    @param  fout    output bin file (filename or file-like object)
    @param  start   start of address range (optional)
    @param  end     end of address range (inclusive; optional)
    @param  size    size of resulting file (in bytes) (optional)
    @param  pad     padding byte (optional)
    """
    try:
        h = IntelHex(fin)
    except HexReaderError as e:
        txt = "ERROR: bad HEX file: %s" % str(e)
        print(txt)
        return 1
    if size is not None and size != 0:
        if end is None:
            if start is None:
                start = h.minaddr()
            end = start + size - 1  # type: ignore[operator]
        else:
            if (end + 1) >= size:
                start = end + 1 - size
            else:
                start = 0
    try:
        if pad is not None:
            h.padding = pad
        h.tobinfile(fout, start, end)
    except IOError as e:
        print("ERROR: Could not write to file: %s: %s" % (fout, str(e)))
        return 1
    return 0


def bin2hex(fin: Any, fout: Any, offset: int = 0) -> int:
    """Simple bin-to-hex convertor.
    @return     0   if all OK

    @param  fin     input bin file (filename or file-like object)
    @param  fout    output hex file (filename or file-like object)
    @param  offset  starting address offset for loading bin
    """
    h = IntelHex()
    try:
        h.loadbin(fin, offset)
    except IOError as e:
        txt = "ERROR: unable to load bin file:", str(e)
        print(txt)
        return 1
    try:
        h.tofile(fout, format="hex")
    except IOError as e:
        txt = "ERROR: Could not write to file: %s: %s" % (fout, str(e))
        print(txt)
        return 1
    return 0


def diff_dumps(ih1: IntelHex, ih2: IntelHex, tofile: Any = None, name1: str = "a", name2: str = "b",
               n_context: int = 3) -> None:
    """Diff 2 IntelHex objects and produce unified diff output for their
    hex dumps.

    @param ih1        first IntelHex object to compare
    @param ih2        second IntelHex object to compare
    @param tofile     file-like object to write output
    @param name1      name of the first hex file to show in the diff header
    @param name2      name of the first hex file to show in the diff header
    @param n_context  number of context lines in the unidiff output
    """
    import difflib

    def prepare_lines(ih: IntelHex) -> List[str]:
        sio = io.StringIO()
        ih.dump(sio)
        return sio.getvalue().splitlines()

    a = prepare_lines(ih1)
    b = prepare_lines(ih2)
    result = list(difflib.unified_diff(a, b, fromfile=name1, tofile=name2, n=n_context, lineterm=""))
    if tofile is None:
        tofile = sys.stdout
    output = "\n".join(result) + "\n"
    tofile.write(output)
