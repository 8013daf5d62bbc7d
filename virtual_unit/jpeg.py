"""Real pictures for snapshots: baseline JPEG in grey, of any size, made without an image library."""

import functools
import struct

_BLOCK = 8

#: Largest width and height that the format can tell.
LARGEST_SIDE = 65535

_START, _END = b"\xff\xd8", b"\xff\xd9"
_SIZES = 12  # of a difference between the mean levels of neighbouring blocks, in bits: 0 to 11
_END_OF_BLOCK = "0"


def _segment(marker, payload):
    return struct.pack(">BBH", 0xFF, marker, len(payload) + 2) + payload


def _difference(level, before):
    """The bits of one block, which is flat: how its level differs from that of the block before, and nothing else."""
    difference = level - before
    size = abs(difference).bit_length()
    low = difference if difference > 0 else difference + (1 << size) - 1
    return f"{size:04b}" + (f"{low:0{size}b}" if size else "") + _END_OF_BLOCK


def _scan(columns, rows):
    """The coded blocks of a gradient from the top left corner to the bottom right one."""
    bits, before = [], 0
    for row in range(rows):
        for column in range(columns):
            level = 255 * (row + column) // max(rows + columns - 2, 1) - 128
            bits.append(_difference(level, before))
            before = level
    text = "".join(bits)
    text += "1" * (-len(text) % 8)
    data = int(text, 2).to_bytes(len(text) // 8, "big")
    return data.replace(b"\xff", b"\xff\x00")


@functools.lru_cache(maxsize=8)
def picture(width, height):
    """The bytes of a picture of that many pixels, each of 1 to LARGEST_SIDE."""
    columns, rows = -(-width // _BLOCK), -(-height // _BLOCK)
    levels_of_one = bytes([0]) + bytes([_BLOCK]) * 64
    frame = struct.pack(">BHHB", 8, height, width, 1) + b"\x01\x11\x00"
    codes_of_four_bits = bytes([0x00, 0, 0, 0, _SIZES] + [0] * 12) + bytes(range(_SIZES))
    code_of_end = bytes([0x10, 1] + [0] * 15) + b"\x00"
    return b"".join([
        _START, _segment(0xE0, b"JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00"), _segment(0xDB, levels_of_one),
        _segment(0xC0, frame), _segment(0xC4, codes_of_four_bits), _segment(0xC4, code_of_end),
        _segment(0xDA, b"\x01\x01\x00\x00\x3f\x00"), _scan(columns, rows), _END])
