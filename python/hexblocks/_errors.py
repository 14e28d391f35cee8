"""The exceptions of hexblocks: one class for each kind of failure the
library reports, all derived from hexblocks.Error."""

from typing import Optional


class Error(Exception):
    """A failure the library reported.

    reason is the library's one-line description; file, line and address
    name what to blame when the library gives them (else None); status is
    the library's name for the kind of failure, such as "CHECKSUM".
    """

    status = "ERROR"

    def __init__(self, reason: str, *, file: Optional[str] = None, line: Optional[int] = None,
                 address: Optional[int] = None) -> None:
        super().__init__(reason)
        self.reason = reason
        self.file = file
        self.line = line
        self.address = address

    def __str__(self) -> str:
        where = ""
        if self.file is not None:
            where = self.file + (f":{self.line}" if self.line is not None else "") + ": "
        elif self.line is not None:
            where = f"line {self.line}: "
        text = where + self.reason
        if self.address is not None and f"0x{self.address:08X}" not in self.reason:
            text += f" (at 0x{self.address:08X})"
        return text


class BadArgumentError(Error, ValueError):
    """An argument or option the operation cannot take."""
    status = "BAD_ARGUMENT"


class CannotOpenError(Error, OSError):
    """A file could not be opened or created."""
    status = "CANNOT_OPEN"


class CannotReadError(Error, OSError):
    """Reading failed, or a file changed while it was read."""
    status = "CANNOT_READ"


class CannotWriteError(Error, OSError):
    """Writing a file or stream failed."""
    status = "CANNOT_WRITE"


class BadSyntaxError(Error, ValueError):
    """Input that breaks the rules of its format."""
    status = "SYNTAX"


class ChecksumError(Error, ValueError):
    """A record whose checksum is wrong."""
    status = "CHECKSUM"


class UnsupportedError(Error, ValueError):
    """A record type or a kind of file the reader does not take."""
    status = "UNSUPPORTED"


class UnknownFormatError(Error, ValueError):
    """Input whose format cannot be told from its content."""
    status = "UNKNOWN_FORMAT"


class OverlapError(Error, ValueError):
    """Two images, or two records, give different data or start addresses."""
    status = "OVERLAP"


class OutOfRangeError(Error, ValueError):
    """An address beyond 0xFFFFFFFF, or data outside where it must lie."""
    status = "OUT_OF_RANGE"


class TooLargeError(Error, ValueError):
    """More than a limit the operation sets."""
    status = "TOO_LARGE"


class OutOfMemoryError(Error, MemoryError):
    """The memory the operation needs could not be had."""
    status = "OUT_OF_MEMORY"


class MismatchError(Error, ValueError):
    """A comparison found bytes that differ or are missing."""
    status = "MISMATCH"


class ReadWarning(UserWarning):
    """Something a reader accepted but that deserves a look, such as records
    that give the same bytes twice."""


# Shown, and pickled, as members of the package that exports them.
for _cls in (Error, BadArgumentError, CannotOpenError, CannotReadError, CannotWriteError, BadSyntaxError,
             ChecksumError, UnsupportedError, UnknownFormatError, OverlapError, OutOfRangeError, TooLargeError,
             OutOfMemoryError, MismatchError, ReadWarning):
    _cls.__module__ = "hexblocks"

_BY_STATUS = {cls.status: cls for cls in (
    BadArgumentError, CannotOpenError, CannotReadError, CannotWriteError, BadSyntaxError, ChecksumError,
    UnsupportedError, UnknownFormatError, OverlapError, OutOfRangeError, TooLargeError, OutOfMemoryError,
    MismatchError)}


def error_from_status(status: str, reason: str, file: Optional[str], line: Optional[int],
                      address: Optional[int]) -> Error:
    """The exception for a failure the native module reports."""
    return _BY_STATUS.get(status, Error)(reason, file=file, line=line, address=address)
