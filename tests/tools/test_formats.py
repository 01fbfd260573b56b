#!/usr/bin/env python3
"""Every stored format, in thousands of random inputs, against readers and writers of its own (formats.py), and the page
that describes them: each example of docs/formats.md is what the writers produce.

    test_formats.py DRIVER PAGE [unittest arguments]

DRIVER is the built FormatDriver.cpp, which tells what the requests are.
"""
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

import formats

DRIVER = os.path.abspath(sys.argv[1])
PAGE = os.path.abspath(sys.argv[2])
SEED = int(os.environ.get('BEDROCK_TEST_SEED', '0')) or random.randrange(1, 1 << 32)


def text(data):
    return data.hex() or '-'


def data(word):
    return b'' if word == '-' else bytes.fromhex(word)


class FormatTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.home = tempfile.mkdtemp(prefix='bedrock-formats-', dir='/dev/shm' if os.path.isdir('/dev/shm') else None)
        cls.driver = subprocess.Popen([DRIVER], cwd=cls.home, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1 << 20)

    @classmethod
    def tearDownClass(cls):
        cls.driver.stdin.close()
        assert cls.driver.wait(timeout=60) == 0
        cls.driver.stdout.close()
        shutil.rmtree(cls.home, ignore_errors=True)

    def setUp(self):
        self.random = random.Random(SEED)

    def ask(self, *words):
        self.driver.stdin.write(' '.join(str(word) for word in words) + '\n')
        self.driver.stdin.flush()
        answer = self.driver.stdout.readline()
        self.assertTrue(answer.endswith('\n'), f'the driver died of {words!r:.300}')
        self.assertFalse(answer.startswith('failed'), f'{words!r:.300}: {answer}')
        return answer.split()

    def contents(self, size):
        """Bytes that compress more or less, or not at all."""
        kind = self.random.randrange(4)
        if kind == 0:
            return self.random.randbytes(size)
        if kind == 1:
            return bytes([self.random.randrange(256)]) * size
        words = [self.random.randbytes(self.random.randrange(1, 9)) for _ in range(1 + self.random.randrange(30))]
        return b''.join(self.random.choice(words) for _ in range(size))[:size]

    def size(self, largest):
        """Mostly small."""
        return int(largest ** self.random.random()) - 1


class Streams(FormatTest):
    def test_blocks_of_the_codec(self):
        for _ in range(1500):
            plain = self.contents(1 + self.size(3000))
            packed = data(*self.ask('pack', text(plain)))
            self.assertLessEqual(len(packed), len(plain))
            self.assertEqual(packed if len(packed) == len(plain) else formats.expand_block_codes(packed), plain)

    def test_written(self):
        for turn in range(250):
            plain = self.contents([0, 1, 3, 4, 16383, 16384, 16385, 32768, 40000][turn] if turn < 9 else self.size(20000))
            stream = data(*self.ask('stream-write', text(plain)))
            self.assertEqual(formats.expand_stream(stream), plain)

    def test_read(self):
        for turn in range(250):
            plain = self.contents([0, 1, 3, 16384, 16385, 33000][turn] if turn < 6 else self.size(6000))
            stream = formats.write_stream(plain, lambda _: self.random.choice([None, 0, 1, 3, 8]))
            self.assertEqual(data(*self.ask('stream-read', text(stream), len(plain))), plain)


class Archives(FormatTest):
    def members(self):
        names = self.random.sample(['a', 'B.bin', 'sub/c', 'sub/deep/d.tga', 'e' * 200, 'f-_.x'], self.random.randrange(5))
        return [(name, self.contents(self.size(5000)), self.random.randrange(2)) for name in names]

    def test_written(self):
        for _ in range(250):
            members = self.members()
            words = [word for name, contents, packed in members for word in (name, text(contents), packed)]
            found = formats.read_archive(data(*self.ask('archive-write', *words)) or formats.archive_start())
            self.assertEqual(found, [(name.encode(), contents, 0x80 * packed) for name, contents, packed in members])

    def test_read(self):
        for _ in range(250):
            members, chunks = self.members(), []
            for name, contents, packed in members:
                stored = formats.write_stream(contents, lambda _: self.random.choice([None, 2])) if packed else contents
                chunks.append(formats.member(name.encode(), stored, len(contents), 0x80 * packed, formats.crc(contents)))
                if self.random.randrange(6) == 0:
                    chunks.append(b'NOTE' + struct.pack('<I', 5) + b'other')
            lost = False  # the last member, with the end of the file
            if chunks and self.random.randrange(3) == 0:
                lost = chunks[-1].startswith(b'FIL ')
                chunks[-1] = chunks[-1][:self.random.randrange(len(chunks[-1]))]
            answer = self.ask('archive-read', text(formats.archive(*chunks)), 'nowhere', *(name.upper() for name, _, _ in members))
            expected = ['?'] + [text(contents) for _, contents, _ in members]
            self.assertEqual(answer, expected[:-1] + ['?'] if lost else expected)


class Chunks(FormatTest):
    TEXTS = [None, b'', b'a', b'abc', b'abcd', b'with\0zero', b'x' * 300]

    def tree(self, depth=0):
        """(steps of the driver, parts for formats.chunk_body)"""
        steps, parts = [], []
        for _ in range(self.random.randrange(5 - depth)):
            ident, kind = self.random.randrange(1 << 32), self.random.randrange(6)
            if kind < 3 and depth < 4:
                inner, body = self.tree(depth + 1)
                steps += [f'b{ident}', *inner, 'e']
                parts.append((ident, body))
            elif kind == 3:
                body = self.contents(20000 if self.random.randrange(40) == 0 else self.size(60))
                steps.append(f'w{ident}:{text(body)}')
                parts.append((ident, body))
            elif kind == 4:
                body = self.contents(1 + self.size(60))
                steps += [f'b{ident}', f'd{text(body)}', 'e']
                parts.append((ident, body))
            else:
                strings = [self.random.choice(self.TEXTS) for _ in range(3)]
                steps += [f'b{ident}', *(self.random.choice('pq') + ('null' if s is None else text(s)) for s in strings), 'e']
                parts.append((ident, b''.join(map(formats.padded, strings))))
        return steps, parts

    def test_written(self):
        for _ in range(2000):
            steps, parts = self.tree()
            kind = self.random.randrange(1 << 32)
            self.assertEqual(data(*self.ask('krom-write', f'h{kind}', *steps)), formats.chunk_file(kind, parts))

    def test_read(self):
        for _ in range(2000):
            kind, wanted = self.random.randrange(3), self.random.randrange(3)
            steps, expected, body = [f'h{wanted}'], [], b''
            for _ in range(self.random.randrange(8)):
                ident, contents, form = self.random.randrange(3), self.contents(1 + self.size(40)), self.random.randrange(4)
                string = self.random.choice(self.TEXTS)
                if form == 0:
                    steps += ['i', self.random.choice('pq'), 't']
                    contents = formats.padded(string)
                    expected += [ident, len(contents), 'null' if string is None else text(string), 12 + len(body) + 8 + len(contents)]
                elif form == 1:
                    steps += ['i', f'd{len(contents)}']
                    expected += [ident, len(contents), text(contents)]
                else:
                    asked, room = self.random.choice([ident, ident, 3]), self.random.randrange(45)
                    steps += [f'b{asked}:{room}', 't']
                    code = 0 if asked == ident else 3
                    expected += [code, len(contents), '-' if code else text(contents[:room])]
                    behind = 12 + len(body) + 8 + len(contents)
                    inside = behind - len(contents)
                    expected.append(inside if code or room == 0 else behind)
                    if code or room == 0:
                        steps.append(f's{behind}')
                body += formats.chunk_block(ident, contents)
            answer = self.ask('krom-read', text(formats.chunk_file(kind, body)), *steps)
            self.assertEqual(answer, [str(word) for word in [0 if kind == wanted else 3, len(body), *expected]])


class Blocks(FormatTest):
    PIECES = [b'a', b'key', b'"two words"', b'"', b'""', b'{', b'}', b'{', b'}', b'//', b'// x', b'/', b'12', b'1.5', b'x{', b'}y', b'\t', b' ', b'\r',
              b'\n', b'\n', b'\n', b'\n', b'\r\n', b'\r\n', b'\0', b'\v', b'\xe4\xff', b'v' * 500, b'a\n{\n', b'b {\n', b'}\n', b'  }\n']

    def test_read(self):
        for _ in range(4000):
            source = b' '[:self.random.randrange(2)].join(self.random.choice(self.PIECES) for _ in range(self.random.randrange(40)))
            expected = []
            for depth, key, values, has_block in formats.read_blocks(source):
                expected += [str(depth), text(key), str(len(values)), *map(text, values), str(int(has_block))]
            self.assertEqual(self.ask('blocks', text(source)), expected, source)

    def test_deep_and_wide(self):
        source = b''.join(b'%d { // opens\n x "1 2" 3\n' % i for i in range(3000)) + b'}\n' * 2000 + b'last 1\n' * 2000
        words = self.ask('blocks', text(source))
        expected = []
        for depth, key, values, has_block in formats.read_blocks(source):
            expected += [str(depth), text(key), str(len(values)), *map(text, values), str(int(has_block))]
        self.assertEqual(words, expected)
        self.assertEqual(words[-5:], ['1000', text(b'last'), '1', text(b'1'), '0'])


class Values(FormatTest):
    def test_texts_and_simple_chunks(self):
        for _ in range(1000):
            texts = [self.contents(self.size(300)) for _ in range(self.random.randrange(5))]
            self.assertEqual(data(*self.ask('text-write', *('t' + text(s) for s in texts))) if texts else b'',
                             b''.join(struct.pack('<I', len(s)) + s for s in texts))
            chunks = [(self.random.randbytes(4), s) for s in texts]
            self.assertEqual(data(*self.ask('text-write', *('c' + text(i + s) for i, s in chunks))) if texts else b'',
                             b''.join(i + struct.pack('<I', len(s)) + s for i, s in chunks))

    def test_buffers(self):
        for _ in range(1000):
            steps, expected = [], b''
            for _ in range(self.random.randrange(1, 9)):
                kind, value = self.random.choice('124fbt'), self.random.randrange(1 << 32)
                if kind == 't':
                    string = self.contents(self.size(50))
                    steps.append('t' + text(string))
                    expected += struct.pack('<I', len(string)) + string
                elif kind == 'b':
                    steps.append(f'b{value & 1}')
                    expected += struct.pack('<I', value & 1)
                else:
                    value = 0x3FC00000 + value % 1000 if kind == 'f' else value
                    width = 4 if kind == 'f' else int(kind)
                    steps.append(f'{kind}{value}')
                    expected += value.to_bytes(4, 'little')[:width]
            self.assertEqual(data(*self.ask('buffer', *steps)), expected)


class Images(FormatTest):
    def check(self, extension, source, keep):
        expected = {'tga': formats.load_tga, 'bmp': formats.load_bmp, 'pcx': formats.load_pcx}[extension](source, keep)
        answer = self.ask('image-read', extension, text(source), int(keep))
        if expected is None:
            self.assertEqual(answer, ['refused'])
        else:
            kind, width, height, pixels, palette = expected
            self.assertEqual(answer, [str(kind), str(width), str(height), text(pixels), text(palette)])
        return expected is not None

    def some(self, make, extension):
        """Most of what `make` makes is loaded; now and then a byte of the header is another, or the end is cut."""
        loaded = 0
        for _ in range(700):
            source = bytearray(make(self.random.randrange(1, 24), self.random.randrange(1, 14)))
            fate = self.random.randrange(8)
            if fate == 0:
                source[self.random.randrange(min(len(source), 54))] = self.random.choice([0, 1, 2, 0x10, 0xFF])
            elif fate == 1:
                del source[self.random.randrange(len(source)):]
            loaded += self.check(extension, bytes(source), self.random.randrange(2) == 1)
        self.assertGreater(loaded, 350)

    def test_tga(self):
        def make(width, height):
            depth = self.random.choice([8, 16, 24, 32])
            ident = self.random.randbytes(self.random.choice([0, 0, 5]))
            return struct.pack('<BBBHHBHHHHBB', len(ident), depth == 8, 1 if depth == 8 else 2, 0, 256, 24 * (depth == 8), 3, 4, width, height,
                               depth, self.random.choice([0, 0x20, 8])) + ident + \
                self.random.randbytes(768 * (depth == 8) + width * height * depth // 8 + self.random.choice([0, 0, 9]))
        self.some(make, 'tga')

    def test_bmp(self):
        def make(width, height):
            width = width if self.random.randrange(12) == 0 else width // 4 * 4 + 4
            depth, used = self.random.choice([8, 24]), self.random.choice([0, 1, 2, 100, 256, 257])
            colours = (used if 1 <= used <= 256 else 256) if depth == 8 else 0
            return b'BM' + struct.pack('<IIIIiiHHIIiiII', 0, 0, 54 + 4 * colours, 40, width, self.random.choice([-height, height]), 1, depth, 0, 0,
                                       0, 0, used, 0) + self.random.randbytes(4 * colours + (width * depth // 8 + 3) // 4 * 4 * height)
        self.some(make, 'bmp')

    def test_pcx(self):
        def make(width, height):
            coded, count = bytearray(), 0
            while count < width * height:
                run = self.random.choice([1, 1, 2, 5, 63, 0])
                index = self.random.randrange(256)
                coded += bytes([index]) if run == 1 and index < 0xC0 else bytes([0xC0 + run, index])
                count += run
            left, top = self.random.randrange(-5, 90), self.random.randrange(90)
            return struct.pack('<BBBBhhhh', 10, 5, 1, 8, left, top, left + width - 1, top + height - 1) + bytes(116) + coded + b'\x0c' + \
                self.random.randbytes(768)
        self.some(make, 'pcx')

    def test_written(self):
        for _ in range(300):
            width, height = self.random.randrange(1, 40), self.random.randrange(1, 20)
            pixels = self.random.randbytes(4 * width * height)
            self.assertEqual(data(*self.ask('image-write', 'tga', width, height, text(pixels))), formats.save_tga(width, height, pixels))
            self.assertEqual(data(*self.ask('image-write', 'bmp', width, height, text(pixels))), formats.save_bmp(width, height, pixels))


class Page(FormatTest):
    """Each listing of the page that has a request in front of it, in a comment `<!-- made by: ... -->`."""

    def test_examples(self):
        with open(PAGE) as page:
            examples = re.findall(r'<!-- made by: (.*?) -->\n```\n(.*?)```', page.read(), re.S)
        self.assertGreater(len(examples), 8)
        verbs = set()
        for request, listing in examples:
            with self.subTest(request=request):
                shown = b''
                for line in listing.splitlines():
                    offset, rest = re.fullmatch(r'([0-9A-F]{4})  (.*)', line).groups()
                    self.assertEqual(int(offset, 16), len(shown), line)
                    digits, times = re.match(r'([0-9A-F]{2}(?: [0-9A-F]{2})*)(?: \* (\d+))?(?:  |$)', rest).groups()
                    shown += bytes.fromhex(digits) * int(times or 1)
                self.assertEqual(data(*self.ask(*request.split())), shown)
                verbs.add(request.split()[0])
        self.assertEqual(verbs, {'krom-write', 'text-write', 'buffer', 'pack', 'stream-write', 'archive-write', 'image-write'})


if __name__ == '__main__':
    print(f'BEDROCK_TEST_SEED={SEED}', flush=True)
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
