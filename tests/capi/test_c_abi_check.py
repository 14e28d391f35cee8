"""scripts/check-c-abi.py: it passes the header as recorded, and fails each
kind of change that breaks callers under one SONAME, and each addition the
record lacks. And the C suite calls every function the header declares."""

import os
import subprocess
import sys

import pytest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
SCRIPT = os.path.join(ROOT, "scripts", "check-c-abi.py")
HEADER = os.path.join(ROOT, "util", "capi", "hexblocks.h")
SONAME = "libhexblocks.so.9.9"


def check(header, record, soname=SONAME, *extra):
    done = subprocess.run([sys.executable, SCRIPT, str(header), str(record), soname, *extra], capture_output=True,
                          text=True, check=False)
    return done.returncode, done.stderr


@pytest.fixture
def recorded(tmp_path):
    """A copy of the header, and its record under SONAME."""
    header = tmp_path / "hexblocks.h"
    with open(HEADER) as f:
        header.write_text(f.read())
    record = tmp_path / "c.abi"
    subprocess.run([sys.executable, SCRIPT, str(header), str(record), SONAME, "--update"], check=True,
                   capture_output=True)
    return header, record


def changed(header, old, new):
    text = header.read_text()
    assert old in text, old
    header.write_text(text.replace(old, new, 1))


def test_the_header_as_recorded_passes(recorded):
    header, record = recorded
    assert check(header, record) == (0, "")


def test_the_project_header_is_recorded(tmp_path):
    with open(os.path.join(ROOT, "cmake", "hexblocks-c.abi")) as f:
        soname = next(line.split()[1] for line in f if line.startswith("soname "))
    status, errors = check(HEADER, os.path.join(ROOT, "cmake", "hexblocks-c.abi"), soname)
    assert (status, errors) == (0, "")


@pytest.mark.parametrize("old, new, message", [
    ("hb_imageWrite(hb_image_t* image, uint32_t address, const void* data, size_t size,",
     "hb_imageWrite(hb_image_t* image, uint64_t address, const void* data, size_t size,",
     "C ABI: function hb_imageWrite changed: hb_status_t hb_imageWrite(hb_image_t*image,uint32_t address,"),
    ("HEXBLOCKS_API void hb_imageClear(hb_image_t* image);", "",
     "C ABI: function hb_imageClear was removed, under the same SONAME libhexblocks.so.9.9"),
    ("    uint32_t address; /**< Where. */\n    uint8_t expected;",
     "    uint32_t address; /**< Where. */\n    uint16_t expected;", "C ABI: struct hb_mismatch_t changed"),
    ("    size_t listed;            /**< The mismatches written to the caller's array. */\n",
     "    size_t listed;\n    int more;\n", "C ABI: struct hb_verify_result_t changed"),
    ("    int crlf;           /**< End lines with CR LF. */\n", "",
     "C ABI: struct hb_write_options_t changed"),
    ("HB_MISMATCH = 13,", "HB_MISMATCH = 15,", "C ABI: enum hb_status_t: HB_MISMATCH was 13, is now 15"),
    ("#define HB_REASON_SIZE 512", "#define HB_REASON_SIZE 256", "C ABI: HB_REASON_SIZE was 512, is now 256"),
])
def test_a_break_under_the_same_soname_fails(recorded, old, new, message):
    header, record = recorded
    changed(header, old, new)
    status, errors = check(header, record)
    assert status == 1
    assert errors.startswith(message), errors


@pytest.mark.parametrize("old, new, message", [
    ("HEXBLOCKS_API void hb_imageClear(hb_image_t* image);",
     "HEXBLOCKS_API void hb_imageClear(hb_image_t* image);\nHEXBLOCKS_API int hb_imageSomething(void);",
     "C ABI: function hb_imageSomething is not in the record: record it"),
    ("    const char* name;   /**< C arrays: the prefix of every name; NULL for \"image\". */\n",
     "    const char* name;\n    int later;\n", "C ABI: struct hb_write_options_t: int later is not in the record"),
    ("HB_INTERNAL = 14 ", "HB_INTERNAL = 14, HB_LATER = 15 ", "C ABI: enum hb_status_t: HB_LATER is not in the record"),
])
def test_what_may_be_added_must_be_recorded(recorded, old, new, message):
    header, record = recorded
    changed(header, old, new)
    status, errors = check(header, record)
    assert status == 1
    assert errors.startswith(message), errors
    subprocess.run([sys.executable, SCRIPT, str(header), str(record), SONAME, "--update"], check=True,
                   capture_output=True)
    assert check(header, record) == (0, "")


def test_a_new_soname_asks_for_a_new_record(recorded):
    header, record = recorded
    changed(header, "uint32_t address, const void* data, size_t size,", "uint64_t address, const void* data, size_t size,")
    status, errors = check(header, record, "libhexblocks.so.10.0")
    assert status == 1
    assert errors == ("C ABI: the SONAME is now libhexblocks.so.10.0, the record's libhexblocks.so.9.9: record the "
                      "C API anew (scripts/check-c-abi.py ... --update)\n")


def test_the_c_suite_calls_every_function_of_the_header():
    sys.path.insert(0, os.path.join(ROOT, "scripts"))
    import importlib
    checker = importlib.import_module("check-c-abi")
    with open(HEADER) as f:
        functions = checker.read_api(f.read())[0]
    with open(os.path.join(ROOT, "tests", "capi", "test_c_api.c")) as f:
        suite = f.read()
    uncalled = [name for name in functions if name + "(" not in suite]
    assert len(functions) > 70
    assert uncalled == []
