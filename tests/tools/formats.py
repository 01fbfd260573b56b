"""The stored formats, written and read a second time, from their description alone: what the command's files are
checked against. Nothing of the library is used."""
import struct

ENTRY = struct.Struct('<260sIIIIIHHI')  # name, stored size, crc, three times, attributes, reserved, size
COMPRESSED = 0x80


def _crc_table():
    table = []
    for i in range(256):
        word = i << 24
        for _ in range(8):
            word = (word << 1 ^ 0x04C11DB7 if word & 0x80000000 else word << 1) & 0xFFFFFFFF
        table.append(word)
    return table


CRC_TABLE = _crc_table()


def crc(data):
    register = 0xFFFFFFFF
    for byte in data:
        register = (register << 8 & 0xFFFFFFFF) ^ CRC_TABLE[register >> 24 ^ byte]
    return register ^ 0xFFFFFFFF


# Archives

def archive_start():
    return b'ARCHINFO' + struct.pack('<I4sI24x', 32, b'0CRA', 0xF101)


def member(name, data, size=None, attributes=0, check=None):
    """One "FIL " chunk; `name` is bytes."""
    entry = ENTRY.pack(name, len(data), crc(data) if check is None else check, 0, 0, 0, attributes, 0,
                       len(data) if size is None else size)
    return b'FIL ' + struct.pack('<I', len(entry) + len(data)) + entry + data


def archive(*members):
    return archive_start() + b''.join(members)


def read_archive(data):
    """[(name, logical bytes, attributes)], everything checked that can be."""
    assert data[:44] == archive_start(), data[:44]
    members, at = [], 44
    while at < len(data):
        ident, length = struct.unpack_from('<4sI', data, at)
        assert ident == b'FIL ' and at + 8 + length <= len(data)
        name, stored, check, t1, t2, t3, attributes, reserved, size = ENTRY.unpack_from(data, at + 8)
        payload = data[at + 8 + 288:at + 8 + length]
        assert stored == len(payload) and (t1, t2, t3, reserved) == (0, 0, 0, 0)
        end = name.index(0)
        assert not any(name[end:]), 'bytes behind the name'
        logical = expand_stream(payload) if attributes & COMPRESSED else payload
        assert len(logical) == size and crc(logical) == check, name
        members.append((name[:end], logical, attributes))
        at += 8 + length
    return members


# Compressed streams

def expand_block_codes(data):
    out, at = bytearray(), 0
    while at < len(data):
        left, right, c = list(range(256)), [0] * 256, 0
        while c < 256:
            run = data[at]
            at += 1
            if run > 127:
                c += run - 127
                continue
            for _ in range(run + 1):
                left[c] = data[at]
                at += 1
                if left[c] != c:
                    right[c] = data[at]
                    at += 1
                c += 1
        assert c == 256
        size = data[at] << 8 | data[at + 1]
        at += 2
        stack = list(data[at:at + size])[::-1]
        at += size
        while stack:
            code = stack.pop()
            if left[code] == code:
                out.append(code)
            else:
                stack += (right[code], left[code])
    return bytes(out)


def frames(data):
    """[(is stored, payload)] of a compressed stream."""
    assert data[:4] == b'CFIL'
    found, at = [], 4
    while at < len(data):
        header, = struct.unpack_from('<H', data, at)
        length = header & 0x7FFF
        assert at + 2 + length <= len(data)
        found.append((bool(header & 0x8000), data[at + 2:at + 2 + length]))
        at += 2 + length
    return found


def expand_stream(data):
    parts = [payload if stored else expand_block_codes(payload) for stored, payload in frames(data)]
    assert all(len(part) == 16384 for part in parts[:-1])
    return b''.join(parts)


# Images: rows from the top, each pixel (red, green, blue, alpha)

def read_tga(data):
    (ident, map_type, kind, _, _, map_bits, _, _, width, height, depth, descriptor) = struct.unpack_from('<BBBHHBHHHHBB', data)
    at = 18 + ident
    colours = []
    if kind == 1:
        assert map_type == 1 and map_bits == 24
        colours = [(*data[at + 3 * i:at + 3 * i + 3], 255) for i in range(256)]
        at += 768
    rows = []
    for _ in range(height):
        row = []
        for _ in range(width):
            if depth == 8:
                row.append(colours[data[at]])
            elif depth == 16:
                word = data[at] | data[at + 1] << 8
                row.append(((word >> 10 & 31) << 3, (word >> 5 & 31) << 3, (word & 31) << 3, 255))
            else:
                row.append((data[at + 2], data[at + 1], data[at], data[at + 3] if depth == 32 else 255))
            at += depth // 8
        rows.append(row)
    assert at == len(data)
    return rows if descriptor & 0x20 else rows[::-1]


def read_bmp(data):
    magic, size, _, _, header, width, height, planes, depth, packed = struct.unpack_from('<HIIIIiiHHI', data)
    assert magic == 0x4D42 and size == len(data) and (header, planes, packed) == (40, 1, 0)
    at = struct.unpack_from('<I', data, 10)[0]
    palette = [(data[54 + 4 * i + 2], data[54 + 4 * i + 1], data[54 + 4 * i], 255) for i in range(256)] if depth == 8 else []
    rows, stride = [], (width * depth // 8 + 3) & ~3
    for y in range(abs(height)):
        start = at + y * stride
        if depth == 8:
            rows.append([palette[index] for index in data[start:start + width]])
        else:
            rows.append([(data[start + 3 * x + 2], data[start + 3 * x + 1], data[start + 3 * x], 255) for x in range(width)])
    return rows if height < 0 else rows[::-1]


def read_pcx(data):
    left, top, right, bottom = struct.unpack_from('<HHHH', data, 4)
    width, height = right - left + 1, bottom - top + 1
    assert data[-769] == 12
    palette = [(*data[len(data) - 768 + 3 * i:len(data) - 768 + 3 * i + 3], 255) for i in range(256)]
    indices, at = [], 128
    while len(indices) < width * height:
        run = 1
        if data[at] >= 0xC0:
            run, at = data[at] - 0xC0, at + 1
        indices += [data[at]] * run
        at += 1
    return [[palette[i] for i in indices[y * width:y * width + width]] for y in range(height)]
