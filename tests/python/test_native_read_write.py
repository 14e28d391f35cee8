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


def test_recognise_formats_gives_every_format_the_start_fits_where_detect_format_gives_none(tmp_path, tool):
    ambiguous = b"@0000\n01 02\nq\n"
    assert hexblocks.recognise_formats(ambiguous) == ["ti-txt", "vmem"]
    assert hexblocks.detect_format(ambiguous) is None
    path = tmp_path / "ambiguous.txt"
    path.write_bytes(ambiguous)
    message = tool("info", str(path), status=1, stderr=True)
    assert message == (f"{path}: the content could be TI-TXT or Verilog memory file: the format must be given "
                       "(ti-txt or vmem): use --input-format\n")
    for start, names in [(b"  :00000001FF\n", ["ihex"]), (b"S00600004844521B\n", ["srec"]),
                         (b"\x7fELF\x01\x01", ["elf"]), (b"nothing of the kind", []), (b"", [])]:
        assert hexblocks.recognise_formats(start) == names, start
        assert hexblocks.recognise_formats(bytearray(start)) == names
        assert hexblocks.detect_format(memoryview(start)) == (names[0] if names else None)


def record(address, data, kind=0):
    fields = [len(data), address >> 8, address & 0xFF, kind, *data]
    return ":" + "".join(f"{b:02X}" for b in fields + [-sum(fields) & 0xFF])


def test_find_line_gives_the_line_of_the_first_record_that_gives_a_byte(tmp_path, tool):
    text = "\n".join(["", "", record(0x10, [5, 6, 7, 8]), record(2, [9, 9, 9, 9]), record(0, [1, 2, 3, 4]),
                      record(0x10, [0xAA]), ":00000001FF", ""]).encode()
    path = tmp_path / "later.hex"
    path.write_bytes(text)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", hexblocks.ReadWarning)
        assert hexblocks.read(path)[0:6] == bytes([1, 2, 9, 9, 9, 9])
    # Bytes 0 and 1 come from line 5, 2 to 5 from line 4 (the first record
    # that gives them), 0x10 from line 3 (the record of line 6 starts where
    # it does and is dropped); nothing gives 0x0F or 0x14.
    expected = {0: 5, 1: 5, 2: 4, 3: 4, 5: 4, 6: None, 0x0F: None, 0x10: 3, 0x13: 3, 0x14: None}
    for address, line in expected.items():
        assert hexblocks.find_line(path, address) == line, hex(address)
        assert hexblocks.find_line(str(path), address) == line
        assert hexblocks.find_line(text, address) == line
        assert hexblocks.find_line(io.BytesIO(text), address) == line
    # The tool names the same line when an earlier input clashes there.
    first = tmp_path / "first.hex"
    first.write_text(record(0x40, [1]) + "\n" + record(2, [1]) + "\n:00000001FF\n")
    message = tool("convert", str(first), str(path), "-o", str(tmp_path / "out.hex"), status=1, stderr=True)
    assert message.splitlines()[-1] == f"hexblocks: {first}:2 and {path}:4 both give data at 0x00000002"


def test_find_line_in_s_records_formats_without_lines_and_bad_input():
    srec = b"S00600004844521B\nS1060100010203F2\nS1060200040506E8\nS9030000FC\n"
    assert [hexblocks.find_line(srec, a) for a in (0x100, 0x102, 0x103, 0x200)] == [2, 2, None, 3]
    assert hexblocks.find_line(srec, 0x100, "srec") == 2
    assert hexblocks.find_line(bytes(16), 0, "bin") is None
    assert hexblocks.find_line(b":0100000001FE\n:00000001FF\n", 0, "srec") is None
    assert hexblocks.find_line(b":01000000zzFE\n", 0) is None
    assert hexblocks.find_line("/no/such/file.hex", 0) is None
    with pytest.raises(hexblocks.BadArgumentError) as e:
        hexblocks.find_line(srec, 1 << 32)
    assert str(e.value) == "the address lies beyond 0xFFFFFFFF"
    with pytest.raises(TypeError):
        hexblocks.find_line(io.StringIO(":00000001FF\n"), 0)


def test_convert_binary_file_writes_what_the_tool_writes(tmp_path, tool):
    rng = random.Random(261)
    data = rng.randbytes(300_000)
    binary = tmp_path / "in.bin"
    binary.write_bytes(data)
    for name, fmt, address, options, tool_options in [
            ("a.hex", None, 0x0800FFF3, {}, []),
            ("b.s37", None, 0x1000, {"record_size": 32}, ["--record-size", "32"]),
            ("c.out", "uf2", 0x10000000, {"family": "rp2040"}, ["-O", "uf2", "--family", "rp2040"]),
            ("d.hex", None, 0xFFFFFFFF - len(data) + 1, {"crlf": True}, ["--crlf"])]:
        output = tmp_path / name
        hexblocks.convert_binary_file(binary, address, output, fmt, **options)
        reference = tmp_path / ("tool-" + name)
        tool("convert", f"{binary}@{address:#x}", "-o", str(reference), *tool_options)
        assert output.read_bytes() == reference.read_bytes(), name
        image = hexblocks.Image()
        image.put(address, data)
        assert output.read_bytes() == image.tobytes(fmt or hexblocks.format_by_extension(name), **options)


def test_convert_binary_file_failures_name_the_file_to_blame_and_leave_no_output(tmp_path):
    binary = tmp_path / "in.bin"
    binary.write_bytes(bytes(64))
    output = tmp_path / "out.hex"
    with pytest.raises(hexblocks.CannotOpenError) as e:
        hexblocks.convert_binary_file(tmp_path / "missing.bin", 0, output)
    assert e.value.file == str(tmp_path / "missing.bin")
    with pytest.raises(hexblocks.CannotOpenError) as e:
        hexblocks.convert_binary_file(binary, 0, tmp_path / "no-such-folder" / "out.hex")
    assert e.value.file == str(tmp_path / "no-such-folder" / "out.hex")
    with pytest.raises(hexblocks.OutOfRangeError) as e:
        hexblocks.convert_binary_file(binary, 0xFFFFFFF0, output)
    assert (e.value.file, e.value.address) == (str(binary), 0xFFFFFFF0)
    assert str(e.value) == f"{binary}: binary input of 64 bytes at 0xFFFFFFF0 would run past address 0xFFFFFFFF"
    with pytest.raises(hexblocks.BadArgumentError):
        hexblocks.convert_binary_file(binary, 0, output, record_size=0)
    assert not output.exists()
    assert sorted(p.name for p in tmp_path.iterdir()) == ["in.bin"]
