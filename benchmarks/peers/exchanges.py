"""What a host does with the chip, for the Python peers: each gives the functions that move the bytes.

Answers each line "version TIMES" or "authentication TIMES" of standard input, after this many exchanges, with
the nanoseconds that they took.
"""
import sys
import time

PAGE = 128
CHALLENGE = list(range(32))


def authenticate(read, write):
    remaining = int.from_bytes(bytes(read(0x30, 2)), "big")
    certificate = b""
    page = 0x31
    while remaining > 0:
        certificate += bytes(read(page, min(remaining, PAGE)))
        remaining -= PAGE
        page += 1
    write(0x21, CHALLENGE)
    if bytes(read(0x20, 2)) != b"\0\x20":
        raise RuntimeError("the chip does not know the challenge")
    write(0x10, [1])
    if read(0x10, 1)[0] >> 4 & 7 != 1:
        raise RuntimeError("the chip did not sign")
    length = int.from_bytes(bytes(read(0x11, 2)), "big")
    return certificate, bytes(read(0x12, length))


def serve(read, write):
    exchanges = {"version": lambda: read(0x00, 1), "authentication": lambda: authenticate(read, write)}
    for line in sys.stdin:
        name, times = line.split()
        exchange = exchanges[name]
        start = time.monotonic_ns()
        for _ in range(int(times)):
            exchange()
        print(time.monotonic_ns() - start, flush=True)
