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


# An image as the library loads it: (format, width, height, pixel bytes, palette bytes), or None for what it refuses.
# Pixels are blue, green, red, alpha; rows from the top.

INDEXED8, ARGB32, XRGB32 = 0, 2, 3


def _mapped(rows, colours, keep):
    """`colours`: 256 times (blue, green, red, reserved)."""
    if keep:
        return INDEXED8, len(rows[0]), len(rows), b''.join(rows), b''.join(bytes(c) for c in colours)
    words = [bytes(c[:3]) + b'\xff' for c in colours]
    return XRGB32, len(rows[0]), len(rows), b''.join(words[i] for row in rows for i in row), b''


def load_tga(data, keep):
    if len(data) < 18:
        return None
    (ident, map_type, kind, _, _, map_bits, _, _, width, height, depth, descriptor) = struct.unpack_from('<BBBHHBHHHHBB', data)
    body = data[18 + ident:]
    if descriptor & 0xD0 or (kind, map_type, depth) not in [(1, 1, 8), (2, 0, 16), (2, 0, 24), (2, 0, 32)] or \
            (kind == 1 and map_bits != 24) or width * height == 0:
        return None
    colours, body = (body[:768], body[768:]) if kind == 1 else (b'', body)
    stride = width * depth // 8
    if len(body) < stride * height or len(colours) not in (0, 768):
        return None
    rows = [body[y * stride:(y + 1) * stride] for y in range(height)]
    if not descriptor & 0x20:
        rows.reverse()
    if kind == 1:
        alpha = 0 if keep else 255
        return _mapped(rows, [(colours[3 * i + 2], colours[3 * i + 1], colours[3 * i], alpha) for i in range(256)], keep)
    flat = b''.join(rows)
    if depth == 32:
        return ARGB32, width, height, flat, b''
    if depth == 24:
        pixels = b''.join(flat[i:i + 3] + b'\xff' for i in range(0, len(flat), 3))
    else:
        pixels = b''.join(bytes(((word & 31) << 3, (word >> 5 & 31) << 3, (word >> 10 & 31) << 3, 255))
                          for word, in struct.iter_unpack('<H', flat))
    return XRGB32, width, height, pixels, b''


def load_bmp(data, keep):
    if len(data) < 54:
        return None
    magic, _, _, _, _, header, width, height, planes, depth, packed = struct.unpack_from('<2sIHHIIiiHHI', data)
    colours_used, = struct.unpack_from('<I', data, 46)
    if magic != b'BM' or header != 40 or planes != 1 or packed or depth not in (8, 24) or width < 1 or width % 4 or height == 0:
        return None
    used = (colours_used if 1 <= colours_used <= 256 else 256) if depth == 8 else 0
    body, stride = data[54 + 4 * used:], width * depth // 8
    if len(data) < 54 + 4 * used + stride * abs(height):
        return None
    rows = [body[y * stride:(y + 1) * stride] for y in range(abs(height))]
    if depth == 8:
        colours = [tuple(data[54 + 4 * i:58 + 4 * i]) for i in range(used)] + [(0, 0, 0, 0)] * (256 - used)
        return _mapped(rows if keep or height < 0 else rows[::-1], colours, keep)  # kept indexed: in the order of the file
    flat = b''.join(rows if height < 0 else rows[::-1])
    return XRGB32, width, abs(height), b''.join(flat[i:i + 3] + b'\xff' for i in range(0, len(flat), 3)), b''


def load_pcx(data, keep):
    if len(data) < 128 + 769 or data[1:4] != b'\x05\x01\x08' or data[-769] != 12:
        return None
    left, top, right, bottom = struct.unpack_from('<hhhh', data, 4)
    width, height = right - left + 1, bottom - top + 1
    if width < 1 or height < 1:
        return None
    indices, at, end = bytearray(), 128, len(data) - 769
    while len(indices) < width * height:
        if at == end:
            return None
        run, at = (data[at] & 63, at + 1) if data[at] >= 0xC0 else (1, at)
        if at == end:
            return None
        indices += bytes([data[at]]) * run
        at += 1
    rows = [bytes(indices[y * width:(y + 1) * width]) for y in range(height)]
    colours = data[-768:]
    return _mapped(rows, [(colours[3 * i + 2], colours[3 * i + 1], colours[3 * i], 0) for i in range(256)], keep)


def save_tga(width, height, pixels):
    return struct.pack('<BBB5xHHHHBB', 0, 0, 2, 0, 0, width, height, 32, 0x20) + pixels


def save_bmp(width, height, pixels):
    stride = width * 4
    rows = [pixels[y * stride:(y + 1) * stride] for y in range(height)]
    body = b''.join(b''.join(row[i:i + 3] for i in range(0, stride, 4)) + bytes(-3 * width % 4) for row in rows)
    return b'BM' + struct.pack('<IIIIiiHHIIiiII', 54 + len(body), 0, 54, 40, width, -height, 1, 24, 0, len(body), 0, 0, 0, 0) + body


# Compressed streams, written: frames of a plain packer that merges any pairs there are

def pack_block_codes(data, merges):
    """A block for up to 65,535 codes: `merges` times the commonest pair becomes a code that the data lacks."""
    data, left, right = list(data), list(range(256)), [0] * 256
    free = [code for code in range(256) if code not in set(data)]
    for _ in range(min(merges, len(free))):
        pairs = {}
        for pair in zip(data, data[1:]):
            pairs[pair] = pairs.get(pair, 0) + 1
        if not pairs:
            break
        pair = max(pairs, key=pairs.get)
        code = free.pop()
        left[code], right[code] = pair
        packed, i = [], 0
        while i < len(data):
            hit = tuple(data[i:i + 2]) == pair
            packed.append(code if hit else data[i])
            i += 2 if hit else 1
        data = packed
    out, c = bytearray(), 0
    while c < 256:
        if left[c] == c:
            run = 1
            while c + run < 256 and left[c + run] == c + run and run < 127:
                run += 1
            out.append(127 + run)
            c += run
            continue
        run = 1
        while c + run < 256 and left[c + run] != c + run and run < 128:
            run += 1
        out.append(run - 1)
        for _ in range(run):
            out += bytes((left[c], right[c]))
            c += 1
    return bytes(out) + struct.pack('>H', len(data)) + bytes(data)


def write_stream(data, merges):
    """`merges(frame number)` tells how hard a frame is packed; None stores it."""
    out = b'CFIL'
    for i in range(0, len(data), 16384):
        part, hard = data[i:i + 16384], merges(i)
        packed = part if hard is None else pack_block_codes(part, hard)
        stored = hard is None or len(packed) > 16384
        out += struct.pack('<H', 0x8000 | len(part) if stored else len(packed)) + (part if stored else packed)
    return out


# Chunk files: a block is (id, body), a body bytes or a list of blocks and bytes

def chunk_body(parts):
    return parts if isinstance(parts, bytes) else b''.join(part if isinstance(part, bytes) else chunk_block(*part) for part in parts)


def chunk_block(ident, body):
    body = chunk_body(body)
    return struct.pack('<II', ident, len(body)) + body


def chunk_file(kind, body):
    body = chunk_body(body)
    return b'KROM' + struct.pack('<II', len(body) + 4, kind) + body


def padded(text):
    """`text` is bytes or None."""
    if not text:
        return struct.pack('<I', 0 if text is None else 0xFFFFFFFF)
    return struct.pack('<I', len(text) + 1) + text + bytes(-len(text) % 4)


# Text blocks

SPACE = b' \t\n\v\f\r'


class BlockFile:
    """The lines of a text, and a place among them."""

    def __init__(self, data):
        parts = data.split(b'\n')
        whole = [part + b'\n' for part in parts[:-1]] + ([parts[-1]] if parts[-1] else [])
        self.lines = [line[:510] for line in whole]
        self.next, self.line, self.at = 0, b'', None

    def read(self):
        self.at = None
        if self.next == len(self.lines):
            return False
        self.line, self.at = self.lines[self.next].split(b'\0')[0], 0
        self.next += 1
        return True

    def to_token(self):
        while self.line[self.at:self.at + 1] in (b' ', b'\t'):
            self.at += 1
        rest = self.line[self.at:self.at + 2]
        return not (rest[:1] == b'\n' or rest in (b'\r\n', b'//'))

    def word(self):
        start = self.at
        while start < len(self.line) and self.line[start] in SPACE:
            start += 1
        end = start
        while end < len(self.line) and self.line[end] not in SPACE:
            end += 1
        if end == start:
            return None
        self.at = end
        return self.line[start:end]

    def value(self):
        if self.at is None or not self.to_token() or self.at == len(self.line):
            return None
        if self.line[self.at] != ord('"'):
            return self.word()
        end = self.line.find(b'"', self.at + 1)
        if end < 0:
            return None
        text, self.at = self.line[self.at + 1:end], end + 1
        return text


def read_blocks(data):
    """[(depth, key, values, has block)], every block entered."""
    file, found = BlockFile(data), []
    levels = [{'ended': False, 'pending': False}]

    def skip(depth):
        while depth and file.read():
            depth += 1 if b'{' in file.line else -1 if b'}' in file.line else 0
        file.at = None

    while True:
        level, entry = levels[-1], None
        while not level['ended']:
            if not file.read():
                break
            token = file.word() if file.to_token() else None
            if token is None:
                continue
            if token[:1] == b'{':
                skip(1)
                level['pending'] = False
                continue
            if b'}' in file.line:
                level['ended'] = True
            else:
                level['pending'] = b'{' in file.line
                entry = token
            break
        if entry is None:
            if len(levels) == 1:
                return found
            levels.pop()
            if not level['ended']:
                skip(2 if level['pending'] else 1)
            levels[-1]['pending'] = False
            file.at = None
            continue
        values = []
        while (value := file.value()) is not None:
            values.append(value)
        opens = level['pending']
        if not opens:
            mark = file.next
            while file.read():
                if file.to_token() and file.at < len(file.line):
                    opens = file.line[file.at] == ord('{')
                    break
                mark = file.next
            if not opens:
                file.next, file.at = mark, None
        found.append((len(levels) - 1, entry, values, opens))
        if opens:
            levels.append({'ended': False, 'pending': False})
