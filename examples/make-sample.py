#!/usr/bin/env python3
"""Writes examples/sample.hex: a small STM32-style flash image.

  0x08000000  bootloader, 4 KiB
  0x08004000  application, 12 KiB (a gap of 12 KiB after the bootloader)
  0x0801FC00  configuration page, 64 bytes (second linear base, 0x0801)

The contents are deterministic pseudo-random "code" behind a Cortex-M vector
table, written as 16-byte data records the way objcopy writes them.
"""
import random
import struct
import sys


def vector_table(stack_top, reset, count=16):
    words = [stack_top] + [reset | 1] + [(reset + 0x40 + 4 * i) | 1 for i in range(count - 2)]
    return struct.pack("<%dI" % count, *words)


def code(rng, size):
    return bytes(rng.randrange(256) for _ in range(size))


def record(rtype, address, data):
    body = bytes([len(data), address >> 8 & 0xFF, address & 0xFF, rtype]) + data
    checksum = -sum(body) & 0xFF
    return ":" + (body + bytes([checksum])).hex().upper()


def emit(segments):
    lines = []
    base = None
    for address, data in segments:
        for offset in range(0, len(data), 16):
            full = address + offset
            if full >> 16 != base:
                base = full >> 16
                lines.append(record(0x04, 0, struct.pack(">H", base)))
            lines.append(record(0x00, full & 0xFFFF, data[offset:offset + 16]))
    lines.append(":00000001FF")
    return "\n".join(lines) + "\n"


def main():
    rng = random.Random(0x1F00D)
    boot = vector_table(0x20005000, 0x08000100) + code(rng, 0x1000 - 64)
    app = vector_table(0x20005000, 0x08004200) + code(rng, 0x3000 - 64)
    config = b"CFG1" + struct.pack("<III", 0x00010203, 115200, 0x08004000) + bytes(48)
    text = emit([(0x08000000, boot), (0x08004000, app), (0x0801FC00, config)])
    out = sys.argv[1] if len(sys.argv) > 1 else "examples/sample.hex"
    with open(out, "w", newline="\n") as f:
        f.write(text)


if __name__ == "__main__":
    main()
