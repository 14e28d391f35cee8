"""The Python package against python intelhex, in one run on one machine: a
4 MiB image written as Intel HEX with 16-byte records (11.5 MB), read,
converted, indexed and written by both (to a new file, over an existing one,
to memory), and the peak memory of a script that reads it. Prints a Markdown table; each time is the best of the rounds.

Usage: PYTHONPATH=build/ci/python python3 bench/python_bench.py [ROUNDS]
"""

import io
import os
import random
import subprocess
import sys
import tempfile
import time

import hexblocks
import hexblocks.intelhex
import intelhex

IMAGE_SIZE = 4 << 20


def best(action, rounds, before=None):
    """The shortest time of action over rounds; before (untimed) runs ahead
    of each round."""
    times = []
    for _ in range(rounds):
        if before is not None:
            before()
        began = time.perf_counter()
        action()
        times.append(time.perf_counter() - began)
    return min(times)


# The resident memory now, and its peak since the last reset: the peak is
# reset first (writing 5 to clear_refs), so that what importing took before
# does not hide a smaller peak after.
MEMORY_FUNCTIONS = """
def status(field):
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
def resident():
    with open("/proc/self/clear_refs", "w") as f:
        f.write("5")
    return status("VmRSS")
def peak():
    return status("VmHWM")
"""


def peak_growth(statement, path):
    """How much a fresh interpreter's peak memory grows while it runs
    statement on the file at path, in bytes."""
    script = (f"import hexblocks, hexblocks.intelhex, intelhex\n"
              f"{MEMORY_FUNCTIONS}\n"
              f"before = resident()\n"
              f"x = {statement}\n"
              f"print(peak() - before)\n")
    done = subprocess.run([sys.executable, "-c", script.replace("PATH", repr(path))], capture_output=True,
                          text=True, check=True)
    return int(done.stdout)


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    work = tempfile.mkdtemp()
    path = os.path.join(work, "4MiB.hex")
    image = hexblocks.Image()
    image.put(0x0800_0000, random.Random(4).randbytes(IMAGE_SIZE))
    image.write(path)
    out = os.path.join(work, "out.hex")

    theirs = intelhex.IntelHex(path)
    ours = hexblocks.intelhex.IntelHex(path)
    rng = random.Random(5)
    addresses = [0x0800_0000 + rng.randrange(IMAGE_SIZE) for _ in range(100_000)]

    rows = []

    def pair(what, peer, mine, before=None):
        a = best(peer, rounds, before)
        b = best(mine, rounds, before)
        rows.append((what, a, b))

    def remove_out():
        if os.path.exists(out):
            os.unlink(out)

    pair("read HEX: IntelHex(path) / hexblocks.read(path)", lambda: intelhex.IntelHex(path),
         lambda: hexblocks.read(path))
    pair("write HEX to a new file: write_hex_file / Image.write", lambda: theirs.write_hex_file(out),
         lambda: image.write(out), remove_out)
    pair("write HEX over an existing file: write_hex_file / Image.write", lambda: theirs.write_hex_file(out),
         lambda: image.write(out))
    pair("write HEX to memory: write_hex_file(StringIO) / Image.tobytes", lambda: theirs.write_hex_file(io.StringIO()),
         image.tobytes)
    pair("IntelHex(path), drop-in", lambda: intelhex.IntelHex(path), lambda: hexblocks.intelhex.IntelHex(path))
    pair("tobinarray() of the whole image, drop-in", theirs.tobinarray, ours.tobinarray)
    pair("write_hex_file, drop-in", lambda: theirs.write_hex_file(out), lambda: ours.write_hex_file(out))
    pair("segments(), drop-in", theirs.segments, ours.segments)
    pair("ih[address] x 100,000, drop-in", lambda: [theirs[a] for a in addresses],
         lambda: [ours[a] for a in addresses])

    print(f"4 MiB image, {os.path.getsize(path) / 1e6:.1f} MB of HEX, best of {rounds}\n")
    print("| operation | python intelhex (s) | hexblocks (s) | times faster |")
    print("|---|---|---|---|")
    for what, a, b in rows:
        print(f"| {what} | {a:.4f} | {b:.4f} | {a / b:.1f} |")
    text = image.tobytes()

    def replace_with_text():
        with open(out + ".new", "wb") as f:
            f.write(text)
        os.replace(out + ".new", out)

    print()
    print(f"The floor of writing over an existing file: the same text, already formatted, written by Python "
          f"to a temporary file renamed over it: {best(replace_with_text, rounds):.4f} s")
    print()
    print("| peak memory of reading it, above the interpreter's | bytes | times the image |")
    print("|---|---|---|")
    for label, statement in [("python intelhex IntelHex(path)", "intelhex.IntelHex(PATH)"),
                             ("hexblocks.read(path)", "hexblocks.read(PATH)"),
                             ("hexblocks.intelhex.IntelHex(path)", "hexblocks.intelhex.IntelHex(PATH)")]:
        grown = peak_growth(statement, path)
        print(f"| {label} | {grown} | {grown / IMAGE_SIZE:.2f} |")


if __name__ == "__main__":
    main()
