# The native module, for type checkers. Its public names are the package's,
# declared in __init__.pyi; the rest are the package's helpers.
from typing import Any

from . import (Checksum as Checksum, FlashPlan as FlashPlan, Image as Image, algorithms as algorithms,
               checksum as checksum, detect_format as detect_format, format_by_extension as format_by_extension,
               formats as formats, insert_checksum as insert_checksum, recognise_formats as recognise_formats,
               uf2_families as uf2_families)

class _IntelHexBase:
    def __getitem__(self, key: Any) -> Any: ...

def __getattr__(name: str) -> Any: ...
