"""hexblocks.intelhex where python intelhex cannot judge: which text takes
the library's reader, and the behaviour that differs on purpose."""

import io

import pytest

from hexblocks import _native
from hexblocks.intelhex import IntelHex, IntelHex16bit


def rec(kind, offset, data):
    body = bytes([len(data), offset >> 8, offset & 0xFF, kind]) + bytes(data)
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


@pytest.mark.parametrize("text, plain", [
    (rec(0, 0, [1]) + "\n:00000001FF\n", True),
    (rec(4, 0, [0, 1]) + "\r\n" + rec(0, 0, [1]) + "\r\n" + rec(5, 0, [0, 0, 1, 2]) + "\r\n", True),
    (rec(0, 0, [1]) + "\n\n:00000001FF\ngarbage after the end\n", True),
    (rec(0, 0, [1]), True),
    (" " + rec(0, 0, [1]) + "\n", False),
    (rec(0, 0, [1]) + " \n", False),
    (rec(2, 0, [0x10, 0]) + "\n", False),
    (rec(4, 1, [0, 1]) + "\n", False),
    (rec(5, 0, [0, 0, 1, 2]) + "\n" + rec(3, 0, [0, 0, 1, 2]) + "\n", False),
    (rec(6, 0, []) + "\n", False),
    (":01000001FFFF\n", False),
    (rec(0, 0, [1, 2])[:-2] + "\n", False),
    (rec(0, 0, [1]) + "\r" + rec(0, 1, [2]) + "\r", False),
    (rec(4, 0, [0xFF, 0xFF]) + "\n" + rec(0, 0xFFFE, [1, 2]) + "\n", True),
    (rec(4, 0, [0xFF, 0xFF]) + "\n" + rec(0, 0xFFFF, [1, 2]) + "\n", False),
])
def test_plain_text_goes_through_the_library_reader(text, plain):
    assert _native._intelhex_plain(text.encode()) is plain


def test_what_differs_from_python_intelhex_on_purpose():
    ih = IntelHex()
    with pytest.raises(ValueError, match="addresses up to 0xFFFFFFFF"):
        ih[1 << 32] = 1
    with pytest.raises(ValueError, match="bytes 0 to 255"):
        ih[0] = 256
    with pytest.raises(ValueError, match="bytes 0 to 255"):
        ih.fromdict({0: -1})
    with pytest.raises(ValueError, match="line 2: the record's data runs past address 0xFFFFFFFF"):
        IntelHex(io.StringIO(rec(4, 0, [0xFF, 0xFF]) + "\n" + rec(0, 0xFFFF, [1, 2]) + "\n"))
    binary = IntelHex(io.BytesIO((rec(0, 0x10, [7]) + "\n").encode()))
    assert binary.todict() == {0x10: 7}
    words = IntelHex16bit()
    with pytest.raises(ValueError, match="16-bit words"):
        words[0] = 0x10000
    assert ih.get_memory_size() < 1000


def test_bytes_by_address_from_the_native_base():
    ih = IntelHex()
    ih.frombytes(bytes(range(16)), offset=0x100)
    assert [ih[0x100], ih[0x10F], ih[0x110]] == [0, 15, 0xFF]
    ih.padding = 0
    assert ih[0x110] == 0 and ih[(1 << 40)] == 0
    with pytest.raises(TypeError, match="Address should be >= 0."):
        ih[-1]
    with pytest.raises(TypeError, match="unsupported type"):
        ih[1.5]
    assert ih[0x104:0x106].todict() == {0x104: 4, 0x105: 5}
