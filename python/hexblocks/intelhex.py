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
from ._intelhex_errors import (AddressOverlapError, BadAccess16bit, DuplicateStartAddressRecordError,
                               EmptyIntelHexError, EOFRecordError, ExtendedAddressRecordError,
                               ExtendedLinearAddressRecordError, ExtendedSegmentAddressRecordError,
                               HexReaderError, HexRecordError, IntelHexError, InvalidStartAddressValueError,
                               NotEnoughDataError, RecordChecksumError, RecordLengthError, RecordTypeError,
                               StartAddressRecordError, StartLinearAddressRecordError,
                               StartSegmentAddressRecordError)
from ._intelhex_text import (ADDRESS_LIMIT as _ADDRESS_LIMIT, _dump_text, _hex_bytes, _read_hex,
                             _read_hex_file)

__all__ = [
    "IntelHex", "IntelHex16bit", "hex2bin", "bin2hex", "diff_dumps",
    "IntelHexError", "HexReaderError", "AddressOverlapError", "HexRecordError", "RecordLengthError",
    "RecordTypeError", "RecordChecksumError", "EOFRecordError", "ExtendedAddressRecordError",
    "ExtendedSegmentAddressRecordError", "ExtendedLinearAddressRecordError", "StartAddressRecordError",
    "StartSegmentAddressRecordError", "StartLinearAddressRecordError", "DuplicateStartAddressRecordError",
    "InvalidStartAddressValueError", "NotEnoughDataError", "BadAccess16bit", "EmptyIntelHexError",
]

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
            image, start = _read_hex_file(fobj, self._image, self.start_addr)
        else:
            data = fobj.read()
            if isinstance(data, str):
                data = data.encode("utf-8", "surrogateescape")
            image, start = _read_hex(data, False, self._image, self.start_addr)
        image.start_address = None
        if len(self._image):
            self._image.merge(image, overlap="last", start="first")
        else:
            self._image = image
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
