"""What hexblocks.intelhex does with text: reading Intel HEX by python
intelhex's rules (plain files through the library's reader, any other
record by record), and writing and dumping as python intelhex does."""

from typing import Any, Dict, List, Optional, Tuple

from . import _native
from ._intelhex_errors import (AddressOverlapError, DuplicateStartAddressRecordError, EOFRecordError,
                               ExtendedLinearAddressRecordError, ExtendedSegmentAddressRecordError,
                               HexRecordError, InvalidStartAddressValueError, RecordChecksumError,
                               RecordLengthError, RecordTypeError, StartLinearAddressRecordError,
                               StartSegmentAddressRecordError)

ADDRESS_LIMIT = 1 << 32

# --- reading HEX text by python intelhex's rules -----------------------------------------------------------------

_HEX_DIGITS = frozenset("0123456789abcdefABCDEF")
_RECORD_ERRORS = {2: ExtendedSegmentAddressRecordError, 3: StartSegmentAddressRecordError,
                  4: ExtendedLinearAddressRecordError, 5: StartLinearAddressRecordError}


def _lines_of(text: str, universal: bool) -> List[str]:
    """The lines as python intelhex iterates over them: a file opened by name
    ends lines at LF, CR LF or CR; another file object at LF."""
    return text.splitlines(True) if universal else text.split("\n")


def _careful_records(text: str, universal: bool, image: "_native.Image", existing: "_native.Image",
                     start_addr: Optional[Dict[str, int]]) -> Optional[Dict[str, int]]:
    """Reads text record by record with python intelhex's rules into image,
    refusing bytes that existing or an earlier record holds, and a start
    address when start_addr (the object's) or an earlier record gave one.
    Returns the start address as python intelhex keeps it."""
    base = 0
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
            if address + length > ADDRESS_LIMIT:
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


def _library_read(read: Any, existing: "_native.Image",
                  start_addr: Optional[Dict[str, int]]) -> Optional["_native.Image"]:
    """The image the library's reader gives (read() calls it), or None when it
    fails, gives bytes that existing holds, or a start address beside
    start_addr: python intelhex's rules then decide what happens."""
    try:
        image, _ = read()
    except Exception:
        return None
    if (len(existing) and _overlaps(image, existing)) or (start_addr and image.start_address is not None):
        return None
    return image


def _read_hex(data: bytes, universal: bool, existing: "_native.Image",
              start_addr: Optional[Dict[str, int]]) -> Tuple["_native.Image", Any]:
    """The image and start address that python intelhex's loadhex() gives for
    data, loaded into an object that holds existing and start_addr; or its
    exception. Plain text goes through the library's reader; any other
    through the careful reader above."""
    if _native._intelhex_plain(data):
        image = _library_read(lambda: _native._read_memory(data, "ihex", 0, 8, "error", None), existing,
                              start_addr)
        if image is not None:
            return image, _start_addr_of(image.start_address) or start_addr
    text = data.decode("utf-8") if isinstance(data, (bytes, bytearray)) else data
    image = _native.Image()
    return image, _careful_records(text, universal, image, existing, start_addr)


def _read_hex_file(path: str, existing: "_native.Image",
                   start_addr: Optional[Dict[str, int]]) -> Tuple["_native.Image", Any]:
    """_read_hex() for the file at path. A plain file goes to the library's
    reader by name, so that its text is never held whole."""
    if _native._intelhex_plain_file(path):
        image = _library_read(lambda: _native._read_file(path, "ihex", 0, 8, "error", None), existing,
                              start_addr)
        if image is not None:
            return image, _start_addr_of(image.start_address) or start_addr
    with open(path, "rb") as f:
        data = f.read()
    return _read_hex(data, True, existing, start_addr)


def _overlaps(a: "_native.Image", b: "_native.Image") -> bool:
    for segment in a.segments:
        for other in b.segments:
            if segment.address < other.address + len(other.data) and other.address < segment.address + len(
                    segment.data):
                return True
    return False


def _record(kind: int, offset: int, data: bytes) -> str:
    body = bytes([len(data), offset >> 8 & 0xFF, offset & 0xFF, kind]) + data
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


def _hex_bytes(ih: Any, write_start_addr: bool, eol: str, byte_count: int) -> bytes:
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


def _dump_text(ih: Any, width: int, withpadding: bool) -> str:
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
