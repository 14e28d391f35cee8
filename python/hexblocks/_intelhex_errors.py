"""python intelhex's exception classes, with its hierarchy and messages, for
hexblocks.intelhex."""

from typing import Any, Optional

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


# Shown, and pickled, as members of hexblocks.intelhex, which exports them;
# each says what its message is.
for _cls in list(globals().values()):
    if isinstance(_cls, type) and issubclass(_cls, IntelHexError):
        _cls.__module__ = "hexblocks.intelhex"
        if _cls.__doc__ is None:
            _cls.__doc__ = "python intelhex's exception, with the message %r." % _cls._fmt
