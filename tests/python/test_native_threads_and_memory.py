"""Reading releases the GIL, so that threads read images side by side; and
an image takes about its own size in memory. (CTest runs this file alone.)"""

import os
import subprocess
import sys
import threading
import time

import pytest

import hexblocks

IMAGE_SIZE = 16 << 20


@pytest.fixture(scope="module")
def large_hex(tmp_path_factory):
    """A 16 MiB image, written as Intel HEX (46 MB)."""
    image = hexblocks.Image()
    image.put(0x0800_0000, os.urandom(IMAGE_SIZE))
    path = tmp_path_factory.mktemp("large") / "large.hex"
    image.write(path)
    return path


def best_time(action, rounds: int = 5) -> float:
    best = float("inf")
    for _ in range(rounds):
        began = time.perf_counter()
        action()
        best = min(best, time.perf_counter() - began)
    return best


def test_two_threads_read_in_well_under_twice_the_time_of_one(large_hex):
    if (os.cpu_count() or 1) < 2:
        pytest.skip("one processor: threads cannot run side by side")
    one = best_time(lambda: hexblocks.read(large_hex))

    def two_at_once():
        threads = [threading.Thread(target=hexblocks.read, args=(large_hex,)) for _ in range(2)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()

    two = best_time(two_at_once)
    # Holding the GIL would make it 2.0 or more.
    assert two < 1.5 * one, f"one read {one:.3f} s, two at once {two:.3f} s"


def test_reading_an_image_takes_at_most_one_and_a_half_times_its_size(large_hex):
    # The peak is reset after the imports (writing 5 to clear_refs), so
    # that what importing took does not hide the read's own peak.
    script = f"""
import hexblocks
def status(field):
    with open("/proc/self/status") as f:
        return next(int(line.split()[1]) * 1024 for line in f if line.startswith(field + ":"))
with open("/proc/self/clear_refs", "w") as f:
    f.write("5")
before = status("VmRSS")
image = hexblocks.read({str(large_hex)!r})
assert image.data_size == {IMAGE_SIZE}
print(status("VmHWM") - before)
"""
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    grown = int(done.stdout)
    assert IMAGE_SIZE <= grown <= 1.5 * IMAGE_SIZE, f"the peak grew by {grown / IMAGE_SIZE:.2f} times the image"
