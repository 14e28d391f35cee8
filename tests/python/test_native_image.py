"""hexblocks.Image: its bytes and segments, the views of them, its edits,
merging, verifying and diffing; checksums; flash plans. Checked against the
hexblocks tool on the same files."""

import copy
import gc

import pytest

import hexblocks
from conftest import SAMPLE_HEX


def image_of(segments, start=None):
    image = hexblocks.Image()
    for address, data in segments.items():
        image.put(address, data)
    image.start_address = start
    return image


def segments_of(image):
    return {s.address: bytes(s.data) for s in image.segments}


def test_an_empty_image():
    image = hexblocks.Image()
    assert (len(image), image.data_size, image.span) == (0, 0, 0)
    assert image.lowest_address is None and image.highest_address is None
    assert image.segments == [] and image.start_address is None and image.header == b""
    assert repr(image) == "<hexblocks.Image: empty>"
    assert not image


def test_bytes_by_address_with_the_fill_byte_where_there_is_none():
    image = image_of({0x1000: b"\x01\x02\x03", 0x1010: b"\x04"})
    assert (image.lowest_address, image.highest_address, image.span, len(image)) == (0x1000, 0x1010, 0x11, 4)
    assert image[0x1001] == 2 and image[0x1003] == 0xFF
    assert image[0x0FFF:0x1004] == b"\xff\x01\x02\x03\xff"
    assert image[:] == b"\x01\x02\x03" + b"\xff" * 13 + b"\x04"
    assert image[0x100F:] == b"\xff\x04"
    assert image.copy_range(0x1002, 3, fill=0) == b"\x03\x00\x00"
    assert 0x1002 in image and 0x1003 not in image and -1 not in image and "x" not in image
    assert repr(image) == "<hexblocks.Image: 2 segment(s), 4 bytes, 0x00001000-0x00001010>"
    with pytest.raises(hexblocks.BadArgumentError, match="step must be 1"):
        image[0x1000:0x1004:2]
    with pytest.raises(hexblocks.BadArgumentError, match="must not be negative"):
        image[-1]
    with pytest.raises(hexblocks.BadArgumentError, match="beyond 0xFFFFFFFF"):
        image[1 << 32]
    with pytest.raises(TypeError):
        image["0x1000"]


def test_writing_bytes_joins_and_overwrites():
    image = image_of({0x1000: b"\x01\x02"})
    image[0x1002] = 3
    image[0x1001:0x1003] = b"\x22\x33"
    image.put(0x0FFE, bytearray(b"\xaa\xbb"))
    assert segments_of(image) == {0x0FFE: b"\xaa\xbb\x01\x22\x33"}
    image[0x2000:] = memoryview(b"\x09\x08")
    assert segments_of(image)[0x2000] == b"\x09\x08"
    with pytest.raises(hexblocks.BadArgumentError, match="covers 2 addresses and 3 bytes"):
        image[0x1000:0x1002] = b"abc"
    with pytest.raises(hexblocks.BadArgumentError, match="0 to 255"):
        image[0x1000] = 256
    with pytest.raises(hexblocks.OutOfRangeError) as e:
        image.put(0xFFFFFFFF, b"\x01\x02")
    assert e.value.address == 0xFFFFFFFF
    image.put(0xFFFFFFFE, b"\x01\x02")
    assert image.highest_address == 0xFFFFFFFF


def test_segments_are_views_of_the_image_bytes_that_hold_the_image_still():
    image = hexblocks.read(SAMPLE_HEX)
    segments = image.segments
    view = segments[0].data
    assert view.readonly and view.nbytes == 4096 and bytes(view[:4]) == image[0x08000000:0x08000004]
    with pytest.raises(TypeError):
        view[0] = 1
    with pytest.raises(BufferError, match="in use by 3 memoryview"):
        image[0x08000000] = 0
    with pytest.raises(BufferError):
        image.offset(0x100)
    with pytest.raises(BufferError):
        image.clear()
    del view
    del segments
    gc.collect()
    image[0x08000000] = 0x5A
    assert image.segments[0].data[0] == 0x5A


def test_a_view_taken_after_the_image_changed_is_refused_and_a_view_outlives_the_image():
    image = image_of({0x10: b"abc"})
    exporter = image.segments[0].data.obj
    gc.collect()
    image[0x10] = ord("x")
    with pytest.raises(BufferError, match="changed since this segment was listed"):
        memoryview(exporter)
    view = image.segments[0].data
    del image
    gc.collect()
    assert bytes(view) == b"xbc"
    view.release()


def test_start_address_and_header():
    image = hexblocks.Image()
    image.start_address = 0x08000131
    assert image.start_address == hexblocks.StartAddress(5, 0x08000131)
    image.start_address = (3, 0x1234_5678)
    assert image.start_address == (3, 0x1234_5678)
    with pytest.raises(hexblocks.BadArgumentError, match="type 3 or 5, not 4"):
        image.start_address = (4, 0)
    image.start_address = None
    assert image.start_address is None
    image.header = b"boot"
    assert image.header == b"boot"
    with pytest.raises(hexblocks.TooLargeError):
        image.header = b"x" * 253


def test_copies_compare_equal_and_do_not_share_bytes():
    image = hexblocks.read(SAMPLE_HEX)
    for other in (image.copy(), copy.copy(image), copy.deepcopy(image)):
        assert other == image
        other[0x08000000] = image[0x08000000] ^ 1
        assert other != image
    assert image != "image"


def test_merge_with_the_policies():
    a = image_of({0x100: b"\x01\x02"}, start=0x100)
    b = image_of({0x101: b"\x09\x03"}, start=0x200)
    with pytest.raises(hexblocks.OverlapError) as e:
        a.merge(b)
    assert e.value.address == 0x101
    assert segments_of(a) == {0x100: b"\x01\x02"}
    a.merge(b, overlap="first", start="first")
    assert segments_of(a) == {0x100: b"\x01\x02\x03"} and a.start_address.value == 0x100
    a.merge(b, overlap="last", start="last")
    assert segments_of(a) == {0x100: b"\x01\x09\x03"} and a.start_address.value == 0x200
    a.merge(b, overlap="identical", start="drop")
    assert a.start_address is None
    with pytest.raises(hexblocks.BadArgumentError) as e:
        a.merge(b, start="keep")
    assert str(e.value) == "unknown start address policy 'keep': error, first, last or drop"
    with pytest.raises(hexblocks.BadArgumentError, match="with itself"):
        a.merge(a)


def test_the_edits():
    image = image_of({0x1000: bytes(range(16))}, start=0x1004)
    image.offset(0x100)
    assert image.lowest_address == 0x1100 and image.start_address.value == 0x1104
    image.offset(-0x100)
    with pytest.raises(hexblocks.OutOfRangeError):
        image.offset(-0x2000)
    image.exclude(0x1004, 0x1008)
    assert sorted(segments_of(image)) == [0x1000, 0x1008]
    image.fill_range(0x1000, 0x1010, 0xEE)
    assert image[0x1000:0x1010] == bytes(range(4)) + b"\xee" * 4 + bytes(range(8, 16))
    image.crop([(0x1002, 0x1006), (0x100E, None)])
    assert segments_of(image) == {0x1002: b"\x02\x03\xee\xee", 0x100E: b"\x0e\x0f"}
    image.swap_bytes(2)
    assert segments_of(image) == {0x1002: b"\x03\x02\xee\xee", 0x100E: b"\x0f\x0e"}
    with pytest.raises(hexblocks.BadArgumentError):
        image.swap_bytes(3)
    with pytest.raises(hexblocks.BadArgumentError, match="must not end before it starts"):
        image.exclude(0x10, 0x8)


def test_verify_a_dump_in_memory_and_in_a_file(tmp_path, tool):
    image = image_of({0x100: b"\x01\x02\x03\x04", 0x110: b"\x05"})
    dump = bytearray(b"\xff" * 0x20)
    dump[0:4] = b"\x01\x02\x03\x04"
    dump[0x10] = 5
    result = image.verify(bytes(dump), 0x100)
    assert result.ok and result.compared == 5 and result.mismatches == 0 and result.first == []
    dump[2] = 0x33
    result = image.verify(dump, 0x100)
    assert not result.ok and result.mismatches == 1
    assert result.first == [hexblocks.Mismatch(0x102, 0x03, 0x33)]
    short = image.verify(dump[:0x10], 0x100)
    assert (short.not_covered, short.first_not_covered) == (1, 0x110)
    path = tmp_path / "dump.bin"
    path.write_bytes(bytes(dump))
    from_file = image.verify(path, 0x100)
    assert from_file == result
    hexfile = tmp_path / "image.hex"
    image.write(hexfile)
    reference = tool("verify", str(hexfile), str(path), "--at", "0x100", "--json", json_output=True, status=1)
    assert (reference["compared"], reference["mismatches"]) == (result.compared, result.mismatches)
    with pytest.raises(hexblocks.CannotOpenError):
        image.verify(tmp_path / "missing.bin", 0)


def test_diff_as_the_tool_gives_it(tmp_path, tool):
    a = hexblocks.read(SAMPLE_HEX)
    b = a.copy()
    b[0x08000010] = b[0x08000010] ^ 0xFF
    b.exclude(0x0801FC00, 0x0801FC40)
    b.put(0x09000000, b"\x01")
    diff = a.diff(b)
    assert not diff.equal and not diff.start_differs
    assert [(d.kind, d.start, d.end) for d in diff.ranges] == [
        ("differ", 0x08000010, 0x08000011), ("only_image", 0x0801FC00, 0x0801FC40),
        ("only_other", 0x09000000, 0x09000001)]
    a.write(tmp_path / "a.hex")
    b.write(tmp_path / "b.hex")
    reference = tool("diff", str(tmp_path / "a.hex"), str(tmp_path / "b.hex"), "--json", json_output=True,
                     status=1)
    assert [(r["start"], r["end"]) for r in reference["ranges"]] == [(d.start, d.end) for d in diff.ranges]
    assert a.diff(a.copy()).equal


def test_checksums_as_the_tool_computes_them(tool):
    image = hexblocks.read(SAMPLE_HEX)
    names = [a.name for a in hexblocks.algorithms()]
    assert names == ["crc32", "crc32c", "crc32-mpeg2", "crc32-bzip2", "crc16-ccitt-false", "crc16-xmodem",
                     "crc16-kermit", "crc16-modbus", "crc16-arc", "crc8", "stm32", "sum8", "sum16"]
    crc32 = hexblocks.algorithms()[0]
    assert crc32 == hexblocks.Algorithm("crc32", "crc", 32, 0x04C11DB7, 0xFFFFFFFF, True, True, 0xFFFFFFFF,
                                        0xCBF43926)
    for algorithm in hexblocks.algorithms():
        checksum = hexblocks.Checksum(algorithm.name)
        checksum.update(b"123456789")
        assert checksum.value == algorithm.check, algorithm.name
        reference = tool("crc", SAMPLE_HEX, "--algorithm", algorithm.name, "--json", json_output=True)
        assert image.checksum(algorithm.name) == reference["value"], algorithm.name
    ranged = tool("crc", SAMPLE_HEX, "--range", "0x08000000:0x08004010", "--fill", "0", "--json", json_output=True)
    assert image.checksum("crc32", start=0x08000000, end=0x08004010, fill=0) == ranged["value"]
    assert hexblocks.checksum(image) == image.checksum()
    with pytest.raises(hexblocks.BadArgumentError, match="unknown checksum algorithm 'crc33'"):
        image.checksum("crc33")


def test_a_custom_crc_and_a_running_checksum():
    ccitt = hexblocks.CrcModel(width=16, poly=0x1021, init=0xFFFF)
    checksum = hexblocks.Checksum(ccitt)
    checksum.update(b"1234")
    checksum.update(memoryview(b"56789"))
    assert checksum.value == 0x29B1 and checksum.size == 2
    checksum.reset()
    checksum.update_fill(0xFF, 4)
    direct = hexblocks.Checksum(ccitt)
    direct.update(b"\xff" * 4)
    assert checksum.value == direct.value
    image = image_of({0x10: b"123456789"})
    running = hexblocks.Checksum(ccitt)
    running.update_image(image)
    assert running.value == 0x29B1
    with pytest.raises(hexblocks.BadArgumentError):
        hexblocks.Checksum(hexblocks.CrcModel(width=12, poly=0x80F))


def test_a_checksum_inserted_into_the_image(tmp_path, tool):
    image = hexblocks.read(SAMPLE_HEX)
    image.insert_checksum("crc32", start=0x08000000, end=0x08001000, address=0x08001000, byteorder="big")
    value = hexblocks.read(SAMPLE_HEX).checksum("crc32", start=0x08000000, end=0x08001000)
    assert image[0x08001000:0x08001004] == value.to_bytes(4, "big")
    with pytest.raises(hexblocks.BadArgumentError):
        image.insert_checksum("crc32", start=0x08000000, end=0x08001000, address=0, byteorder="middle")


def test_a_flash_plan_as_the_tool_makes_it(tool):
    image = hexblocks.read(SAMPLE_HEX)
    sectors = "0x08000000:4x16K,1x64K,7x128K"
    plan = hexblocks.FlashPlan(image, sectors, page_size=256)
    reference = tool("plan", SAMPLE_HEX, "--sectors", sectors, "--json", json_output=True)
    assert [(s.address, s.size, s.partial) for s in plan.erase_list] == \
        [(s["address"], s["size"], s["partial"]) for s in reference["erase"]]
    pages = list(plan.pages())
    assert [(p.address, len(p.data)) for p in pages] == [(w["address"], w["size"]) for w in reference["write"]]
    assert plan.write_pages == len(pages) and plan.write_bytes == 256 * len(pages)
    for page in pages:
        assert page.data == image.copy_range(page.address, 256)
    assert sum(end - start for start, end in plan.write_list) == plan.write_bytes
    with pytest.raises(hexblocks.BadSyntaxError, match="expected ADDRESS:COUNTxSIZE"):
        hexblocks.FlashPlan(image, "4 sectors")
    with pytest.raises(hexblocks.OutOfRangeError):
        hexblocks.FlashPlan(image, "0x08000000:1x16K")
