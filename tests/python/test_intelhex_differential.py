"""hexblocks.intelhex against python intelhex (Debian's python3-intelhex) as
the oracle: the same calls on both give the same values, the same written
text and the same exception class and message."""

import contextlib
import io
import random

import pytest

import hexblocks.intelhex as ours

ref = pytest.importorskip("intelhex", reason="python3-intelhex is not installed")

def outcome(call, module):
    """What call(module) gives, comparable between the two modules: values
    with IntelHex objects as their dicts and arrays as lists, or the
    exception's class name and message; and what it printed."""
    printed = io.StringIO()
    try:
        with contextlib.redirect_stdout(printed):
            value = call(module)
        if isinstance(value, (ref.IntelHex, ours.IntelHex)):
            value = ("IntelHex", value.todict(), value.start_addr)
        elif hasattr(value, "typecode"):
            value = (value.typecode, list(value))
        result = ("ok", value)
    except Exception as e:  # the class and message are what is compared
        result = (type(e).__name__, str(e))
    return result, printed.getvalue()


def same(call):
    theirs, ours_ = outcome(call, ref), outcome(call, ours)
    assert ours_ == theirs


def rec(kind, offset, data, count=None, bad_sum=False):
    body = bytes([len(data) if count is None else count, offset >> 8, offset & 0xFF, kind]) + bytes(data)
    return ":" + (body + bytes([(-sum(body) + bad_sum) & 0xFF])).hex().upper()


def random_hex(rng):
    """HEX text python intelhex wrote for a random image."""
    ih = ref.IntelHex()
    for _ in range(rng.randint(1, 5)):
        address = rng.choice([0, 0x10, 0xFFF0, 0x1FFF0, 0x2FF00]) + rng.randint(0, 300)
        for i in range(rng.randint(1, 70)):
            ih[address + i] = rng.randrange(256)
    pick = rng.random()
    if pick < 0.3:
        ih.start_addr = {"EIP": rng.randrange(1 << 32)}
    elif pick < 0.6:
        ih.start_addr = {"CS": rng.randrange(1 << 16), "IP": rng.randrange(1 << 16)}
    out = io.StringIO()
    ih.write_hex_file(out, byte_count=rng.choice([1, 8, 16, 32, 255]))
    return out.getvalue()


def load(module, text):
    return module.IntelHex(io.StringIO(text))


def dumped(ih, **options):
    out = io.StringIO()
    ih.dump(out, **options)
    return out.getvalue()


def written(ih, **options):
    out = io.StringIO()
    ih.write_hex_file(out, **options)
    return out.getvalue()


@pytest.mark.parametrize("seed", range(40))
def test_random_images_read_queried_and_written_alike(seed):
    rng = random.Random(seed)
    text = random_hex(rng)
    same(lambda m: load(m, text))
    same(lambda m: len(load(m, text)))
    same(lambda m: (load(m, text).minaddr(), load(m, text).maxaddr()))
    same(lambda m: load(m, text).addresses())
    same(lambda m: load(m, text).segments())
    for gap in (0, 1, 2, 64, 0x10000):
        same(lambda m: load(m, text).segments(min_gap=gap))
    same(lambda m: load(m, text).tobinarray())
    same(lambda m: load(m, text).tobinstr())
    low = load(ref, text).minaddr()
    high = load(ref, text).maxaddr()
    for start, end, size in [(low, None, None), (None, high, None), (low + 3, high - 3, None), (low, None, 20),
                             (None, high, 20), (low - 5, None, 3), (None, None, 7), (low, high, 4),
                             (high, low, None), (None, None, 0), (low, None, -1), (None, 5, 10)]:
        same(lambda m: load(m, text).tobinarray(start=start, end=end, size=size))
        same(lambda m: load(m, text).tobinstr(start=start, end=end, size=size))
    same(lambda m: load(m, text).tobinarray(pad=0))
    same(lambda m: load(m, text).tobinarray(pad=None))
    for byte_count in (1, 7, 16, 255, 0, 256):
        same(lambda m: written(load(m, text), byte_count=byte_count))
    same(lambda m: written(load(m, text), write_start_addr=False))
    same(lambda m: written(load(m, text), eolstyle="CRLF"))
    same(lambda m: written(load(m, text), eolstyle="LF"))
    if high - low < 0x3000:
        same(lambda m: dumped(load(m, text)))
        same(lambda m: dumped(load(m, text), width=7, withpadding=True))
    same(lambda m: dumped(load(m, text), width=0))
    for address in (low, low + 1, high, high + 1, 0x20000):
        same(lambda m: load(m, text)[address])
        for length in (0, 1, 5, 40):
            same(lambda m: load(m, text).gets(address, length))
        same(lambda m: load(m, text).getsz(address))
    same(lambda m: load(m, text)[low + 2:high - 2])
    same(lambda m: load(m, text)[:low + 9])
    same(lambda m: load(m, text)[low + 9:])
    same(lambda m: load(m, text)[low:high:3])
    data = load(ref, text).tobinstr()
    for sub in (data[5:9], data[:1], b"\xff\xff\xff\xff\xff\xff", b""):
        same(lambda m: load(m, text).find(sub))
        same(lambda m: load(m, text).find(sub, low + 4))
        same(lambda m: load(m, text).find(sub, low + 4, low + 30))


@pytest.mark.parametrize("seed", range(10))
def test_merges_alike(seed):
    rng = random.Random(100 + seed)
    a, b = random_hex(rng), random_hex(rng)
    for overlap in ("error", "ignore", "replace", "other"):
        def merged(m, overlap=overlap):
            x = load(m, a)
            x.merge(load(m, b), overlap=overlap)
            return x
        same(merged)
    same(lambda m: load(m, a).merge(load(m, a), overlap="ignore"))
    same(lambda m: (lambda x: x.merge(x))(load(m, a)))
    same(lambda m: load(m, a).merge({}, overlap="ignore"))


def test_edits_alike():
    def edited(m, action):
        x = m.IntelHex()
        x.frombytes(bytes(range(40)), offset=0x100)
        action(x)
        return x
    actions = [
        lambda x: x.__setitem__(0x200, 7),
        lambda x: x.__setitem__(slice(0x300, 0x303), [1, 2, 3]),
        lambda x: x.__setitem__(slice(0x300, 0x306, 2), [1, 2, 3]),
        lambda x: x.__setitem__(slice(0x300, None), [1, 2, 3]),
        lambda x: x.__setitem__(slice(None, 0x303), [1, 2, 3]),
        lambda x: x.__setitem__(slice(0x300, 0x303), [1, 2]),
        lambda x: x.__setitem__(-1, 1),
        lambda x: x.__setitem__(1.5, 1),
        lambda x: x.__delitem__(0x101),
        lambda x: x.__delitem__(0x90),
        lambda x: x.__delitem__(slice(0x104, 0x110)),
        lambda x: x.__delitem__(slice(0x104, None)),
        lambda x: x.__delitem__(slice(None, None)),
        lambda x: x.__delitem__(slice(0x100, 0x128, 5)),
        lambda x: x.puts(0x400, b"abc"),
        lambda x: x.puts(0x400, "abc"),
        lambda x: x.putsz(0x400, b"abc"),
        lambda x: x.fromdict({0x500: 1, 0x502: 2, "start_addr": {"EIP": 5}}),
        lambda x: x.fromdict({"x": 1}),
        lambda x: x.fromdict({-1: 1}),
        lambda x: x.frombytes([1, 2, 3], offset=0x600),
        lambda x: x.loadbin(io.BytesIO(b"\x01\x02"), offset=0x700),
        lambda x: x.loadfile(io.BytesIO(b"\x01"), "bin"),
        lambda x: x.loadfile(io.BytesIO(b"\x01"), "elf"),
        lambda x: x.loadhex(io.StringIO(rec(0, 0x100, [1]))),
        lambda x: x.loadhex(io.StringIO(rec(0, 0x800, [1]))),
    ]
    for action in actions:
        same(lambda m: edited(m, action))
    same(lambda m: m.IntelHex()[-1])
    same(lambda m: m.IntelHex()["a"])
    same(lambda m: m.IntelHex(5))
    same(lambda m: m.IntelHex([1]))
    same(lambda m: m.IntelHex(m.IntelHex(io.StringIO(rec(5, 0, [0, 0, 1, 2])))))
    same(lambda m: m.IntelHex({0: 1, 3: 4}))
    same(lambda m: m.IntelHex().padding)
    same(lambda m: m.IntelHex().tobinarray())
    same(lambda m: m.IntelHex().tobinarray(start=0, end=3))
    same(lambda m: m.IntelHex().segments())
    same(lambda m: (m.IntelHex().minaddr(), m.IntelHex().maxaddr()))
    same(lambda m: m.IntelHex().find(b"\x01"))
    same(lambda m: dumped(m.IntelHex()))
    same(lambda m: written(m.IntelHex()))


HEX_CASES = {
    "ok": rec(0, 0, [1, 2]) + "\n:00000001FF\n",
    "lower case": rec(0, 0, [0xAB]).lower() + "\n:00000001ff\n",
    "blank lines": "\n\n" + rec(0, 0, [1]) + "\n\n:00000001FF\n",
    "leading spaces": "  " + rec(0, 0, [1]) + "\n",
    "trailing spaces": rec(0, 0, [1]) + "   \n",
    "a line of spaces": rec(0, 0, [1]) + "\n  \n",
    "crlf": rec(0, 0, [1]) + "\r\n:00000001FF\r\n",
    "cr only": rec(0, 0, [1]) + "\r" + rec(0, 1, [2]) + "\r",
    "no end record": rec(0, 0, [1]) + "\n",
    "data after the end": ":00000001FF\n" + rec(0, 0, [1]) + "\n",
    "garbage after the end": ":00000001FF\nhello\n",
    "bad checksum": rec(0, 0, [1], bad_sum=True) + "\n",
    "bad digit": ":0100000G01FE\n",
    "no colon": rec(0, 0, [1])[1:] + "\n",
    "odd digits": rec(0, 0, [1]) + "0\n",
    "too short": ":00000001\n",
    "count too small": rec(0, 0, [1, 2], count=1) + "\n",
    "count too large": rec(0, 0, [1, 2], count=3) + "\n",
    "count and checksum wrong": rec(0, 0, [1, 2], count=1, bad_sum=True) + "\n",
    "type 6": rec(6, 0, []) + "\n",
    "type 6 and bad checksum": rec(6, 0, [], bad_sum=True) + "\n",
    "overlap": rec(0, 0, [1, 2]) + "\n" + rec(0, 1, [3]) + "\n",
    "overlap of the same value": rec(0, 0, [1, 2]) + "\n" + rec(0, 1, [2]) + "\n",
    "overlap out of order": rec(0, 0x10, [1, 2]) + "\n" + rec(0, 0, [1]) + "\n" + rec(0, 0x0F, [3, 4]) + "\n",
    "linear base": rec(4, 0, [0, 1]) + "\n" + rec(0, 0x10, [1]) + "\n",
    "linear base, count 3": rec(4, 0, [0, 1, 2]) + "\n",
    "linear base, offset 1": rec(4, 1, [0, 1]) + "\n",
    "linear base, count 0": rec(4, 0, []) + "\n",
    "segment base": rec(2, 0, [0x10, 0]) + "\n" + rec(0, 0x10, [1]) + "\n",
    "segment base, count 1": rec(2, 0, [0]) + "\n",
    "segment base, offset 1": rec(2, 1, [0x10, 0]) + "\n",
    "segment then linear": rec(2, 0, [0x10, 0]) + "\n" + rec(4, 0, [0, 2]) + "\n" + rec(0, 0, [7]) + "\n",
    "linear then segment": rec(4, 0, [0, 2]) + "\n" + rec(2, 0, [0x10, 0]) + "\n" + rec(0, 0, [7]) + "\n",
    "across 64 KiB": rec(0, 0xFFFF, [1, 2]) + "\n",
    "across 64 KiB of a segment": rec(2, 0, [0xF0, 0]) + "\n" + rec(0, 0xFFFF, [1, 2]) + "\n",
    "linear start": rec(5, 0, [0x08, 0, 1, 0x31]) + "\n",
    "segment start": rec(3, 0, [0x12, 0x34, 0x56, 0x78]) + "\n",
    "two linear starts": rec(5, 0, [8, 0, 1, 0x31]) + "\n" + rec(5, 0, [8, 0, 1, 0x31]) + "\n",
    "segment and linear starts": rec(3, 0, [1, 2, 3, 4]) + "\n" + rec(5, 0, [8, 0, 1, 0x31]) + "\n",
    "linear start, count 3": rec(5, 0, [8, 0, 1]) + "\n",
    "linear start, offset 1": rec(5, 1, [8, 0, 1, 0x31]) + "\n",
    "segment start, count 3": rec(3, 0, [1, 2, 3]) + "\n",
    "second start, count 3": rec(5, 0, [0, 0, 0, 1]) + "\n" + rec(5, 0, [0, 0, 1]) + "\n",
    "end record with data": ":01000001FFFF\n",
    "end record with an offset": ":00000101FE\n" + rec(0, 0, [1]) + "\n",
    "end record, bad checksum": rec(1, 0, [1], bad_sum=True) + "\n",
    "empty data record": rec(0, 0, []) + "\n",
    "empty file": "",
    "255 bytes": rec(0, 0, list(range(255))) + "\n",
    "a tab": "\t" + rec(0, 0, [1]) + "\n",
    "trailing garbage": rec(0, 0, [1]) + "xyz\n",
    "a non-ASCII character": ":01000000\u00e901FE\n",
    "top of the address space": rec(4, 0, [0xFF, 0xFF]) + "\n" + rec(0, 0xFFF0, [1, 2]) + "\n",
}


@pytest.mark.parametrize("name", sorted(HEX_CASES))
def test_hex_files_read_alike_errors_included(name, tmp_path):
    text = HEX_CASES[name]
    same(lambda m: (lambda x: (x.todict(), x.start_addr))(load(m, text)))
    path = tmp_path / "case.hex"
    path.write_bytes(text.encode("utf-8"))
    same(lambda m: m.IntelHex(str(path)).todict())


def test_the_projects_sample_file_alike():
    from conftest import SAMPLE_HEX
    same(lambda m: m.IntelHex(SAMPLE_HEX))
    same(lambda m: m.IntelHex(SAMPLE_HEX).segments())
    same(lambda m: m.IntelHex(SAMPLE_HEX).tobinstr())
    same(lambda m: m.IntelHex(SAMPLE_HEX).tobinarray(start=0x08003FF0, size=0x40))
    same(lambda m: written(m.IntelHex(SAMPLE_HEX)))
    same(lambda m: written(m.IntelHex(SAMPLE_HEX), byte_count=32, eolstyle="CRLF"))
    same(lambda m: dumped(m.IntelHex(SAMPLE_HEX)[0x0801FC00:]))
    same(lambda m: m.IntelHex(SAMPLE_HEX).find(b"\x00\x20"))


def test_loading_into_an_image_with_data_and_a_start_address(tmp_path):
    def loaded(m, first, second):
        x = load(m, first)
        x.loadhex(io.StringIO(second))
        return x

    def loaded_by_name(m, first, second):
        path = tmp_path / "second.hex"
        path.write_text(second)
        x = load(m, first)
        x.loadhex(str(path))
        return x
    same(lambda m: loaded_by_name(m, rec(5, 0, [0, 0, 0, 1]), rec(0, 1, [2]) + "\n" + rec(5, 0, [0, 0, 0, 2])))
    same(lambda m: loaded_by_name(m, rec(0, 0, [1]), rec(0, 1, [2]) + "\n" + rec(5, 0, [0, 0, 0, 2])))
    same(lambda m: loaded(m, rec(0, 0, [1]), rec(0, 1, [2])))
    same(lambda m: loaded(m, rec(0, 0, [1, 2]), rec(0, 1, [2])))
    same(lambda m: loaded(m, rec(5, 0, [0, 0, 0, 1]), rec(0, 1, [2])))
    same(lambda m: loaded(m, rec(5, 0, [0, 0, 0, 1]), rec(0, 1, [2]) + "\n" + rec(5, 0, [0, 0, 0, 2])))
    same(lambda m: loaded(m, rec(3, 0, [0, 0, 0, 1]), rec(5, 0, [0, 0, 0, 2])))


def test_16_bit_words_alike():
    text = rec(0, 0, [0x34, 0x12, 0x78, 0x56, 0x01]) + "\n"
    same(lambda m: m.IntelHex16bit(io.StringIO(text))[0])
    same(lambda m: m.IntelHex16bit(io.StringIO(text))[1])
    same(lambda m: m.IntelHex16bit(io.StringIO(text))[2])
    same(lambda m: m.IntelHex16bit(io.StringIO(text))[9])
    same(lambda m: (m.IntelHex16bit(io.StringIO(text)).minaddr(), m.IntelHex16bit(io.StringIO(text)).maxaddr()))
    same(lambda m: m.IntelHex16bit(io.StringIO(text[:-3] + "\n")).tobinarray())
    same(lambda m: m.IntelHex16bit(io.StringIO(text)).tobinarray(start=0, end=1))
    same(lambda m: m.IntelHex16bit(io.StringIO(text)).tobinarray(start=0, size=4))
    same(lambda m: m.IntelHex16bit().tobinarray())
    same(lambda m: m.IntelHex16bit().padding)
    same(lambda m: len(m.IntelHex16bit(io.StringIO(text))))

    def words(m):
        x = m.IntelHex16bit()
        x[0] = 0x1234
        x[3] = 0xBEEF
        return x.todict()
    same(words)
    same(lambda m: m.IntelHex16bit(m.IntelHex(io.StringIO(text))).todict())


def test_the_scripts_functions_alike(tmp_path):
    good = rec(0, 0x10, [1, 2, 3]) + "\n:00000001FF\n"

    def hex2bin(m, text, **options):
        out = tmp_path / f"{m.__name__}.bin"
        code = m.hex2bin(io.StringIO(text), str(out), **options)
        return code, out.read_bytes() if code == 0 else None
    same(lambda m: hex2bin(m, good))
    same(lambda m: hex2bin(m, good, start=0, end=0x14))
    same(lambda m: hex2bin(m, good, size=8))
    same(lambda m: hex2bin(m, good, end=0x13, size=8))
    same(lambda m: hex2bin(m, good, pad=0))
    same(lambda m: hex2bin(m, ":zz\n"))
    binary = tmp_path / "in.bin"
    binary.write_bytes(b"\x01\x02\x03")

    def bin2hex(m, source, **options):
        out = io.StringIO()
        return m.bin2hex(source, out, **options), out.getvalue()
    same(lambda m: bin2hex(m, str(binary), offset=0x10))
    same(lambda m: bin2hex(m, str(tmp_path / "missing.bin")))

    def diff(m, a, b):
        out = io.StringIO()
        m.diff_dumps(load(m, a), load(m, b), out, name1="one", name2="two")
        return out.getvalue()
    same(lambda m: diff(m, good, rec(0, 0x10, [1, 9, 3]) + "\n"))
    same(lambda m: diff(m, good, good))


def test_the_exception_classes_alike():
    for name in ours.__all__:
        theirs = getattr(ref, name)
        mine = getattr(ours, name)
        if isinstance(theirs, type) and issubclass(theirs, Exception):
            assert [c.__name__ for c in mine.__mro__] == [c.__name__ for c in theirs.__mro__]
            same(lambda m, name=name: str(getattr(m, name)(line=7, address=0x10, length=3,
                                                           start_addr={"EIP": 1})))
            same(lambda m, name=name: str(getattr(m, name)("a message")))

