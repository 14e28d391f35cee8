"""hexblocks.read() and hexblocks.write(): every kind of source and target,
the formats, the options, and the exceptions with what they blame."""

import io
import os
import random
import warnings

import pytest

import hexblocks
from conftest import SAMPLE_HEX, hex_text, joined, random_segments


def segments_of(image):
    return {s.address: bytes(s.data) for s in image.segments}


def test_a_path_bytes_bytearray_memoryview_and_a_file_object_give_the_same_image():
    with open(SAMPLE_HEX, "rb") as f:
        text = f.read()
    expected = segments_of(hexblocks.read(SAMPLE_HEX))
    assert sorted(expected) == [0x08000000, 0x08004000, 0x0801FC00]
    for source in (text, bytearray(text), memoryview(text), io.BytesIO(text)):
        assert segments_of(hexblocks.read(source)) == expected
    import pathlib
    assert segments_of(hexblocks.read(pathlib.Path(SAMPLE_HEX))) == expected
    with open(SAMPLE_HEX, "rb") as f:
        assert segments_of(hexblocks.read(f)) == expected


def test_random_images_read_as_an_independent_writer_wrote_them():
    rng = random.Random(26)
    for _ in range(20):
        segments = random_segments(rng, near_top=rng.random() < 0.5)
        start = rng.choice([None, (5, rng.randrange(1 << 32)), (3, rng.randrange(1 << 32))])
        image = hexblocks.read(hex_text(segments, start, record_size=rng.choice([1, 16, 32, 255])).encode())
        assert segments_of(image) == joined(segments)
        assert image.start_address == (None if start is None else hexblocks.StartAddress(*start))


def test_the_format_is_told_from_the_content_or_named():
    image = hexblocks.read(SAMPLE_HEX)
    srec = image.tobytes("srec")
    assert srec.startswith(b"S0")
    assert segments_of(hexblocks.read(srec)) == segments_of(image)
    assert segments_of(hexblocks.read(srec, "srec")) == segments_of(image)
    with pytest.raises(hexblocks.UnknownFormatError) as e:
        hexblocks.read(b"\x01\x02\x03")
    assert e.value.status == "UNKNOWN_FORMAT"
    binary = hexblocks.read(b"\x01\x02\x03", "bin", address=0x1000)
    assert segments_of(binary) == {0x1000: b"\x01\x02\x03"}
    with pytest.raises(hexblocks.BadArgumentError) as e:
        hexblocks.read(b"", "elf32")
    assert str(e.value).startswith("unknown format 'elf32': ihex, srec")
    assert isinstance(e.value, ValueError)


def test_word_widths_and_uf2_families():
    image = hexblocks.read(b"\x01\x02\x03\x04", "bin", address=0x100)
    vmem = image.tobytes("vmem", word_width=16)
    assert vmem == b"@00000080\n0102 0304\n"
    assert segments_of(hexblocks.read(vmem, "vmem", word_width=16)) == {0x100: b"\x01\x02\x03\x04"}
    uf2 = image.tobytes("uf2", family="rp2040")
    assert len(uf2) == 512
    assert segments_of(hexblocks.read(uf2, family=0xE48BFF56))[0x100][:4] == b"\x01\x02\x03\x04"
    with pytest.raises(hexblocks.MismatchError):
        hexblocks.read(uf2, family="samd51")
    with pytest.raises(hexblocks.BadArgumentError) as e:
        image.tobytes("uf2", family="no-such-chip")
    assert str(e.value) == "unknown UF2 family 'no-such-chip': a name from uf2_families(), or a number"


def test_errors_name_the_line_and_the_file(tmp_path):
    bad = b":0400000001020304F2\n:0400040001020304FF\n"
    with pytest.raises(hexblocks.ChecksumError) as e:
        hexblocks.read(bad)
    assert (e.value.line, e.value.reason, e.value.file) == (2, "checksum error", None)
    assert str(e.value) == "line 2: checksum error"
    path = tmp_path / "bad.hex"
    path.write_bytes(bad)
    with pytest.raises(hexblocks.ChecksumError) as e:
        hexblocks.read(path)
    assert str(e.value) == f"{path}:2: checksum error"
    with pytest.raises(hexblocks.BadSyntaxError) as e:
        hexblocks.read(b":04000000010203G4F2\n")
    assert (e.value.line, e.value.reason) == (1, "character that is not a hex digit")
    with pytest.raises(hexblocks.CannotOpenError) as e:
        hexblocks.read(tmp_path / "missing.hex")
    assert isinstance(e.value, OSError) and isinstance(e.value, hexblocks.Error)
    assert e.value.file == str(tmp_path / "missing.hex")
    with pytest.raises(TypeError, match="binary mode"):
        hexblocks.read(io.StringIO(":00000001FF\n"))


def test_records_that_give_the_same_bytes_follow_the_overlap_policy():
    text = b":0401000001020304F1\n:020102000307F1\n:00000001FF\n"
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        image = hexblocks.read(text)
    assert image[0x100:0x104] == b"\x01\x02\x03\x04"
    assert [str(w.message) for w in caught] == \
        ["line 2: 2 bytes given by more than one record; the first value of each is kept"]
    assert all(issubclass(w.category, hexblocks.ReadWarning) for w in caught)
    assert hexblocks.read(text, overlap="last")[0x100:0x104] == b"\x01\x02\x03\x07"
    with pytest.raises(hexblocks.OverlapError) as e:
        hexblocks.read(text, overlap="identical")
    assert (e.value.line, e.value.address) == (2, 0x103)
    with pytest.raises(hexblocks.BadArgumentError) as e:
        hexblocks.read(text, overlap="newest")
    assert str(e.value) == "unknown overlap policy 'newest': error, first, last or identical"


def test_writing_to_a_path_bytes_and_a_file_object_as_the_tool_writes(tmp_path, tool):
    image = hexblocks.read(SAMPLE_HEX)
    for name, fmt, options, tool_options in [
            ("a.hex", None, {}, []),
            ("b.s37", None, {"record_size": 32}, ["--record-size", "32"]),
            ("c.hex", "ihex", {"crlf": True, "record_size": 8}, ["--crlf", "--record-size", "8"]),
            ("d.mif", None, {"word_width": 32}, ["--word-width", "32"]),
            ("e.uf2", None, {"family": "rp2040"}, ["--family", "rp2040"]),
            ("f.c", None, {"name": "boot"}, ["--array-name", "boot"])]:
        path = tmp_path / name
        image.write(path, fmt, **options)
        reference = tmp_path / ("tool-" + name)
        tool("convert", SAMPLE_HEX, "-o", str(reference), *tool_options)
        assert path.read_bytes() == reference.read_bytes(), name
        chosen = fmt or hexblocks.format_by_extension(name)
        assert image.tobytes(chosen, **options) == reference.read_bytes()
        buffer = io.BytesIO()
        hexblocks.write(image, buffer, chosen, **options)
        assert buffer.getvalue() == reference.read_bytes()
    assert hexblocks.write(image) == image.tobytes()


def test_an_output_of_many_buffers_is_the_same_to_bytes_and_to_a_file(tmp_path, tool):
    # 3 MiB of data across 64 KiB windows: about 8.6 MB of text, which goes
    # through the writer's buffers several times over.
    data = bytes((i * 31 + (i >> 16)) & 0xFF for i in range(3 << 20))
    binary = tmp_path / "big.bin"
    binary.write_bytes(data)
    reference = tmp_path / "tool.hex"
    tool("convert", f"{binary}@0x0800fff3", "-o", str(reference))
    image = hexblocks.Image()
    image.put(0x0800FFF3, data)
    text = image.tobytes()
    assert len(text) > 8_000_000
    assert text == reference.read_bytes()


def test_a_failed_write_leaves_no_file_and_says_why(tmp_path):
    image = hexblocks.read(SAMPLE_HEX)
    with pytest.raises(hexblocks.CannotOpenError) as e:
        image.write(tmp_path / "no-such-folder" / "out.hex")
    assert e.value.file == str(tmp_path / "no-such-folder" / "out.hex")
    with pytest.raises(hexblocks.BadArgumentError) as e:
        image.write(tmp_path / "out.hex", record_size=0)
    assert not (tmp_path / "out.hex").exists()
    with pytest.raises(hexblocks.UnsupportedError) as e:
        image.tobytes("elf")
    assert str(e.value) == "images cannot be saved as ELF"
    with pytest.raises(hexblocks.BadArgumentError) as e:
        image.tobytes("ihex", addressing="flat")
    assert str(e.value) == "unknown addressing 'flat': linear or segment"


def test_the_format_table_and_detection():
    names = [f.name for f in hexblocks.formats()]
    assert names == ["ihex", "srec", "elf", "uf2", "ti-txt", "vmem", "mif", "coe", "c", "ihex16", "bin"]
    assert {"uf2", "ti-txt", "vmem", "mif", "coe", "c", "ihex16"} <= set(names)
    elf = next(f for f in hexblocks.formats() if f.name == "elf")
    assert (elf.readable, elf.writable) == (True, False)
    assert hexblocks.detect_format(b":00000001FF") == "ihex"
    assert hexblocks.detect_format(b"S00600004844521B") == "srec"
    assert hexblocks.detect_format(b"\x00\x01") is None
    assert hexblocks.format_by_extension("x.s19") == "srec"
    assert hexblocks.format_by_extension("x.txt") is None
    families = {f.name: f.id for f in hexblocks.uf2_families()}
    assert families["rp2040"] == 0xE48BFF56 and len(families) == 78
