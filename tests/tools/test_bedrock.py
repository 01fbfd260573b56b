#!/usr/bin/env python3
"""Runs the built `bedrock` as a user does, and checks files with readers and writers of its own (formats.py).

    test_bedrock.py BEDROCK ASSETS [unittest arguments]
"""
import json
import os
import pty
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

import formats

BEDROCK = os.path.abspath(sys.argv[1])
ASSETS = os.path.abspath(sys.argv[2])
SEED = int(os.environ.get('BEDROCK_TEST_SEED', '0')) or random.randrange(1, 1 << 32)


class ToolTest(unittest.TestCase):
    def setUp(self):
        self.home = tempfile.mkdtemp(prefix='bedrock-tool-')
        self.previous = os.getcwd()
        os.chdir(self.home)
        self.random = random.Random(SEED)

    def tearDown(self):
        os.chdir(self.previous)
        shutil.rmtree(self.home, ignore_errors=True)

    def run_tool(self, *arguments, exit=0, says=()):
        """Runs the command, checks its exit code and that the error stream names all of `says`: standard output."""
        result = subprocess.run([BEDROCK, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
        errors = result.stderr.decode(errors='surrogateescape')
        self.assertEqual(result.returncode, exit, f'{arguments}: {result.stdout!r} {errors}')
        for text in [says] if isinstance(says, str) else says:
            self.assertIn(text, errors)
        if exit == 0 and not says:
            self.assertEqual(errors, '')
        self.assertNotIn(b'\x1b', result.stdout + result.stderr)
        return result.stdout.decode(errors='surrogateescape')

    def write(self, path, data):
        if os.path.dirname(path):
            os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'wb') as out:
            out.write(data)

    def read(self, path):
        with open(path, 'rb') as file:
            return file.read()

    def tree(self, folder):
        """{path below folder: contents}"""
        found = {}
        for parent, _, files in os.walk(folder):
            for name in files:
                path = os.path.join(parent, name)
                found[os.path.relpath(path, folder)] = self.read(path)
        return found

    def leftovers(self):
        return [name for parent, _, files in os.walk('.') for name in files
                if name.startswith('.bedrock') or '.T' in name]

    def contents(self, size):
        """Bytes that compress more or less, or not at all."""
        kind = self.random.randrange(4)
        if kind == 0:
            return self.random.randbytes(size)
        if kind == 1:
            return bytes([self.random.randrange(256)]) * size
        words = [self.random.randbytes(self.random.randrange(1, 9)) for _ in range(1 + self.random.randrange(30))]
        return b''.join(self.random.choice(words) for _ in range(size))[:size]

    def make_files(self, folder, count):
        sizes = [0, 1, 3, 4, 5, 2047, 2048, 16383, 16384, 16385, 32768, 65536, 70001]
        for i in range(count):
            size = sizes[i] if i < len(sizes) else self.random.randrange(600)
            name = f'{folder}/{"sub/" * (i % 3)}{i % 7}/file {i}.{i % 10}'
            self.write(name, self.contents(size))
        self.write(f'{folder}/magic', b'CFIL but plain all the same')
        self.write(f'{folder}/\u00e4\u00f6 name', b'not ASCII')


class Usage(ToolTest):
    def test_wrong_arguments_end_with_2_and_name_the_command(self):
        self.write('a.bin', b'a')
        for arguments, says in [
            ((), 'bedrock: '),
            (('nonsense',), 'there is no command "nonsense"'),
            (('archive',), 'bedrock: archive: a command is missing'),
            (('archive', 'nonsense', 'x'), 'bedrock: archive: there is no command "nonsense"'),
            (('archive', 'create', 'x.arc'), 'bedrock: archive create: '),
            (('archive', 'create', 'x.arc', 'a.bin', '--nonsense'), '--nonsense'),
            (('archive', 'create', 'a.bin', 'a.bin'), 'exists already'),
            (('archive', 'create', '.', 'a.bin'), 'is a folder'),
            (('image', 'convert', 'a.tga', 'a.png'), 'a.png: cannot be written'),
            (('which', 'plain.tga'), 'expected NAME:PATH'),
            (('which', 'data:x', '--mount', 'data'), 'expected NAME=PATH'),
            (('which', 'd:x', '--mount', 'd=.'), 'two letters'),
            (('which', 'data:x', '--mount', 'data='), 'is empty'),
        ]:
            with self.subTest(arguments=arguments):
                self.run_tool(*arguments, exit=2, says=says)
        self.assertEqual(self.tree('.'), {'a.bin': b'a'})

    def test_help_and_version(self):
        self.assertRegex(self.run_tool('--version'), r'^bedrock \d+\.\d+\.\d+\n$')
        for arguments in [(), ('archive',), ('archive', 'extract'), ('stream', 'info'), ('image', 'convert'), ('chunk', 'dump'), ('block',), ('which',)]:
            self.assertIn('--help', self.run_tool(*arguments, '--help'))
        info = json.loads(self.run_tool('info', '--json'))
        self.assertIn(info['processor'], ('scalar', 'sse2', 'avx2'))

    def test_what_is_not_there_ends_with_3(self):
        for arguments in [('archive', 'create', 'x.arc', 'no-folder'), ('archive', 'create', 'no/folder/x.arc', '.'),
                          ('archive', 'list', 'no.arc'), ('archive', 'test', 'no.arc'),
                          ('archive', 'add', 'no.arc', '.'), ('archive', 'repair', 'no.arc'),
                          ('stream', 'compress', 'no.bin', 'x'), ('stream', 'expand', 'no.bin', 'x'),
                          ('stream', 'info', 'no.bin'), ('image', 'info', 'no.tga'), ('image', 'convert', 'no.tga', 'x.bmp'),
                          ('which', 'data:x', '--mount', 'data=nowhere')]:
            with self.subTest(arguments=arguments):
                self.run_tool(*arguments, exit=3, says='No such file or directory')
        self.assertEqual(os.listdir('.'), [])

    def test_a_pipe_is_not_waited_for(self):
        os.mkfifo('pipe')
        self.run_tool('archive', 'list', 'pipe', exit=1, says='is not an archive')
        for command in ('info', 'expand'):
            self.run_tool('stream', command, 'pipe', *['out'][:command == 'expand'], exit=3, says='is no regular file')

    def test_folders_are_no_files(self):
        os.mkdir('folder.tga')
        planet = os.path.join(ASSETS, 'planet.tga')
        for arguments in [('image', 'info', 'folder.tga'), ('image', 'draw', planet, 'x.tga', '--shapes', 'folder.tga'),
                          ('chunk', 'dump', 'folder.tga'), ('block', 'dump', 'folder.tga'),
                          ('options', '--source', 'file:folder.tga')]:
            with self.subTest(arguments=arguments):
                self.run_tool(*arguments, exit=3, says='folder.tga: cannot open: is a folder')
        self.assertEqual(os.listdir('.'), ['folder.tga'])

    @unittest.skipIf(not shutil.which('setpriv') or os.geteuid() != 0, 'only root can give its rights up')
    def test_what_may_not_be_read_or_written_ends_with_3(self):
        planet = os.path.join(ASSETS, 'planet.tga')
        self.write('secret.tga', self.read(planet))
        self.run_tool('archive', 'create', 'a.arc', 'secret.tga')
        before = self.read('a.arc')
        os.mkdir('closed')
        os.chmod('secret.tga', 0)
        for path in (self.home, 'closed'):
            os.chmod(path, 0o755)
        program = shutil.copy(BEDROCK, 'bedrock')
        libraries = subprocess.run(['ldd', BEDROCK], stdout=subprocess.PIPE, check=True).stdout.decode()
        found = [line.split()[2] for line in libraries.splitlines() if 'libBedrock' in line]
        for library in found:
            shutil.copy(library, '.')
        for arguments, says in [(('image', 'info', 'secret.tga'), 'secret.tga: cannot open'),
                                (('chunk', 'dump', 'secret.tga'), 'secret.tga: cannot open'),
                                (('options', '--source', 'file:secret.tga'), 'secret.tga: cannot open'),
                                (('archive', 'add', 'a.arc', 'bedrock'), 'a.arc: cannot open for writing'),
                                (('stream', 'compress', 'bedrock', 'pics:b', '--mount', 'pics=a.arc'), 'a.arc: cannot mount for writing (":ro" keeps writes out)'),
                                (('archive', 'create', 'closed/b.arc', 'bedrock'), 'closed/b.arc: cannot create')]:
            with self.subTest(arguments=arguments):
                result = subprocess.run(['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups', './' + program, *arguments],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, env={'LD_LIBRARY_PATH': '.'} | os.environ)
                self.assertEqual((result.returncode, says + ': Permission denied' in result.stderr.decode()), (3, True), result.stderr)
        self.assertEqual(self.read('a.arc'), before)
        self.assertEqual(os.listdir('closed'), [])

    def test_a_full_disk_is_told(self):
        self.run_tool('archive', 'create', 'a.arc', ASSETS)
        with open('/dev/full', 'wb') as full:
            result = subprocess.run([BEDROCK, 'archive', 'list', 'a.arc'], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, 3)
        self.assertIn(b'No space left', result.stderr)


class Archives(ToolTest):
    def test_thousands_of_files_come_back_and_equal_input_gives_equal_archives(self):
        self.make_files('in', 2500)
        expected = self.tree('in')
        os.rename('in', 'moved')
        shutil.copytree('moved', 'in')  # other inodes, another order in the folder
        for flags in [(), ('--compress',)]:
            with self.subTest(flags=flags):
                self.run_tool('archive', 'create', 'a.arc', 'in', '--force', *flags)
                self.run_tool('archive', 'create', 'b.arc', 'moved/', '--force', *flags)
                data = self.read('a.arc')
                self.assertEqual(data, self.read('b.arc'))
                members = formats.read_archive(data)
                names = [os.fsencode(name) for name in expected]
                self.assertEqual([name for name, _, _ in members], sorted(names))
                for name, contents, attributes in members:
                    self.assertEqual(contents, expected[os.fsdecode(name)], name)
                    self.assertEqual(attributes, 0x80 if flags else 0)
                self.assertIn('all good', self.run_tool('archive', 'test', 'a.arc'))
                self.run_tool('archive', 'extract', 'a.arc', '-C', 'out')
                self.assertEqual(self.tree('out'), expected)
                shutil.rmtree('out')
        self.assertEqual(self.leftovers(), [])

    def test_list_tells_what_is_stored(self):
        self.write('in/a/one.bin', b'x' * 5000)
        self.write('in/two.bin', b'y')
        self.run_tool('archive', 'create', 'a.arc', 'in', '--compress')
        rows = json.loads(self.run_tool('archive', 'list', 'a.arc', '--json'))
        self.assertEqual([(row['name'], row['size'], row['compressed'], row['shadowed']) for row in rows],
                         [('a/one.bin', 5000, True, False), ('two.bin', 1, True, False)])
        data = self.read('a.arc')
        for row in rows:
            payload = data[row['offset']:row['offset'] + row['stored']]
            self.assertEqual(formats.crc(formats.expand_stream(payload)), int(row['crc'], 16))
        text = self.run_tool('archive', 'list', 'a.arc', 'a')
        self.assertIn('a/one.bin', text)
        self.assertNotIn('two.bin', text)
        self.assertIn('two.bin', self.run_tool('archive', 'list', 'a.arc', 't*.bin'))
        self.run_tool('archive', 'list', 'a.arc', 'three', exit=1, says='three: the archive has no such member')

    def test_add_appends_and_keeps_names_apart(self):
        self.write('in/a.bin', b'first')
        self.run_tool('archive', 'create', 'a.arc', 'in')
        before = self.read('a.arc')
        self.write('A.BIN', b'second')
        self.write('b.bin', b'third')
        self.run_tool('archive', 'add', 'a.arc', 'A.BIN', 'b.bin', exit=1, says=['A.BIN: the archive has this member', 'nothing was added'])
        self.assertEqual(self.read('a.arc'), before)
        self.run_tool('archive', 'add', 'a.arc', 'b.bin', '--under', 'x/y/')
        self.assertEqual(formats.read_archive(self.read('a.arc')), [(b'a.bin', b'first', 0), (b'x/y/b.bin', b'third', 0)])
        self.run_tool('archive', 'add', 'a.arc', 'A.BIN', '--shadowed', says='stays the one found')
        self.assertTrue(self.read('a.arc').startswith(before))
        self.run_tool('archive', 'extract', 'a.arc', '-C', 'out')
        self.assertEqual(self.tree('out'), {'a.bin': b'first', 'x/y/b.bin': b'third'})
        self.write('same/n', b'1')
        self.write('same/N', b'2')
        self.run_tool('archive', 'create', 'b.arc', 'same', exit=2, says='upper case')
        self.write('odd/a\\b', b'1')
        self.run_tool('archive', 'create', 'b.arc', 'odd', exit=2, says='backslash')
        self.assertFalse(os.path.exists('b.arc'))

    def test_create_and_add_store_the_same_bytes(self):
        self.make_files('in', 25)
        for flags in [(), ('--compress',)]:
            self.run_tool('archive', 'create', 'a.arc', 'in', '--force', *flags)
            self.write('b.arc', formats.archive_start())
            self.run_tool('archive', 'add', 'b.arc', 'in', *flags)
            self.assertEqual(self.read('a.arc'), self.read('b.arc'))
        self.assertEqual(self.leftovers(), [])

    def test_create_is_whole_or_not_at_all(self):
        self.write('in/a', b'a' * 100)
        os.symlink('/proc/self/mem', 'in/b')  # opens, and cannot be read: even root meets an error half way
        self.write('old.arc', formats.archive(formats.member(b'old', b'old')))
        self.run_tool('archive', 'create', 'old.arc', 'in', '--force', exit=3, says='in/b: cannot read')
        self.run_tool('archive', 'create', 'new.arc', 'in', exit=3, says='in/b: cannot read')
        os.remove('in/b')
        with open('in/b', 'wb') as out:
            out.truncate(5 << 30)
        self.run_tool('archive', 'create', 'old.arc', 'in', '--force', '--compress', exit=2, says='larger than 4 GiB')
        self.assertEqual(formats.read_archive(self.read('old.arc')), [(b'old', b'old', 0)])
        self.assertFalse(os.path.exists('new.arc'))
        self.assertEqual(self.leftovers(), [])

    def test_nothing_leaves_the_target_folder(self):
        os.makedirs('out')
        os.makedirs('elsewhere')
        os.symlink('../elsewhere', 'out/link')
        os.symlink('../victim', 'out/planted')
        self.write('victim', b'untouched')
        outside = os.path.join(self.home, 'absolute')
        hostile = [b'../up', b'a/../../up', b'..', os.fsencode(outside), b'\\root', b'a\\..\\..\\up', b'link/through', b'.', b'', b'a//b',
                   b'./dot', b'x/', b'planted']
        good = [b'good', b'deep/er/good', b'..name', b'\x1b[31mred']
        data = formats.archive(*(formats.member(name, b'evil') for name in hostile), *(formats.member(name, b'fine') for name in good))
        self.write('h.arc', data)
        self.run_tool('archive', 'extract', 'h.arc', '-C', 'out', exit=1,
                      says=['../up: refused', 'absolute: refused', 'link/through: refused', 'planted: exists already', 'a\\..\\..\\up: refused'])
        self.run_tool('archive', 'extract', 'h.arc', '-C', 'out', '--force', exit=1, says='../up: refused')
        self.assertEqual(sorted(os.listdir('.')), ['elsewhere', 'h.arc', 'out', 'victim'])
        self.assertEqual(os.listdir('elsewhere'), [])
        self.assertEqual(self.read('victim'), b'untouched')
        self.assertFalse(os.path.islink('out/planted'), '--force replaces a link, and does not write through it')
        for name in good:
            self.assertEqual(self.read(os.path.join(b'out', name)), b'fine')
        self.run_tool('archive', 'list', 'h.arc')

    def test_damage_is_found_and_named(self):
        self.make_files('in', 40)
        for flags in [(), ('--compress',)]:
            self.run_tool('archive', 'create', 'a.arc', 'in', '--force', *flags)
            rows = [row for row in json.loads(self.run_tool('archive', 'list', 'a.arc', '--json')) if row['stored'] > 6]
            whole = bytearray(self.read('a.arc'))
            for row in self.random.sample(rows, 12):
                with self.subTest(member=row['name'], flags=flags):
                    at = row['offset'] + self.random.randrange(row['stored'])
                    flipped = 1 << self.random.randrange(8)
                    whole[at] ^= flipped
                    self.write('bad.arc', whole)
                    result = subprocess.run([BEDROCK, 'archive', 'test', 'bad.arc', '--json'], capture_output=True, timeout=60)
                    whole[at] ^= flipped
                    if result.returncode == 0:  # the changed bytes may mean the very same: then nothing is lost
                        self.run_tool('archive', 'extract', 'bad.arc', row['name'], '-C', 'same')
                        self.assertEqual(self.read(f'same/{row["name"]}'), self.read(f'in/{row["name"]}'))
                        shutil.rmtree('same')
                        continue
                    self.assertEqual(result.returncode, 1)
                    self.assertEqual([bad['name'] for bad in json.loads(result.stdout)['bad']], [row['name']])
                    self.run_tool('archive', 'extract', 'bad.arc', row['name'], '-C', 'out', exit=1, says='not extracted')
                    self.assertEqual(self.tree('out'), {})

    def test_damage_in_a_shadowed_record_is_found(self):
        for compress in ([], ['--compress']):
            with self.subTest(compress=compress):
                self.write('a.txt', b'a text that is packed, a text that is packed ' * 400)
                self.run_tool('archive', 'create', 'twice.arc', 'a.txt', '--force')
                self.run_tool('archive', 'add', 'twice.arc', 'a.txt', '--shadowed', *compress, says='old version stays')
                self.run_tool('archive', 'test', 'twice.arc')
                data = bytearray(self.read('twice.arc'))
                data[-40] ^= 1
                self.write('twice.arc', bytes(data))
                self.run_tool('archive', 'test', 'twice.arc', exit=1, says='a.txt')

    def test_a_torn_tail_is_cut_and_kept(self):
        whole = formats.archive(formats.member(b'a', b'1' * 50), b'XTRA' + struct.pack('<I', 3) + b'abc', formats.member(b'b', b'2' * 50))
        last = formats.member(b'c', b'3' * 500)
        self.write('d.bin', b'd')
        zero_length = bytearray(last)
        zero_length[4:8] = bytes(4)
        for tail in [last[:3], last[:8], last[:200], last[:-1], bytes(zero_length), b'FIL \x10\0\0\0' + bytes(16)]:
            with self.subTest(tail=len(tail)):
                self.write('t.arc', whole + tail)
                self.run_tool('archive', 'test', 't.arc', exit=1, says=['torn member', 'repair'])
                self.run_tool('archive', 'add', 't.arc', 'd.bin', exit=1, says='repair')
                self.assertEqual(self.read('t.arc'), whole + tail)
                self.assertIn(f'cut {len(tail)} bytes', self.run_tool('archive', 'repair', 't.arc'))
                self.assertEqual(self.read('t.arc'), whole)
                self.assertEqual(self.read('t.arc.cut'), tail)
                os.remove('t.arc.cut')
                self.assertIn('nothing to repair', self.run_tool('archive', 'repair', 't.arc'))
                self.run_tool('archive', 'test', 't.arc')
        self.assertEqual(self.leftovers(), [])

    def test_no_archive_and_no_sense(self):
        for name, data in [('empty', b''), ('short', b'ARC'), ('text', b'hello ' * 50), ('mark', formats.archive_start().replace(b'0CRA', b'0CRB')),
                           ('number', formats.archive_start().replace(b'\x01\xf1', b'\x02\xf1'))]:
            with self.subTest(name=name):
                self.write(name, data)
                for command in [('list', name), ('test', name), ('extract', name), ('add', name, 'text'), ('repair', name)]:
                    self.run_tool('archive', *command, exit=1, says='is not an archive')
                self.assertEqual(self.read(name), data)
        no_end = bytearray(formats.member(b'n', b'data'))
        no_end[8:268] = b'n' * 260
        self.write('names', formats.archive(bytes(no_end), formats.member(b'good', b'good')))
        self.run_tool('archive', 'test', 'names', exit=1, says='without a proper name')
        self.run_tool('archive', 'extract', 'names', '-C', 'out')
        self.assertEqual(self.tree('out'), {'good': b'good'})


class Streams(ToolTest):
    def test_round_trip_against_a_second_decoder(self):
        for size in [0, 1, 3, 128, 16383, 16384, 16385, 32768, 100000]:
            for _ in range(2):
                data = self.contents(size)
                self.write('in', data)
                self.run_tool('stream', 'compress', 'in', 'packed', '--force')
                packed = self.read('packed')
                self.assertEqual(formats.expand_stream(packed), data)
                row = json.loads(self.run_tool('stream', 'info', 'packed', '--json'))[0]
                stored = sum(is_stored for is_stored, _ in formats.frames(packed))
                self.assertEqual((row['size'], row['stored'], row['stored_frames'], row['compressed_frames']),
                                 (size, len(packed), stored, len(formats.frames(packed)) - stored))
                self.run_tool('stream', 'expand', 'packed', 'out', '--force')
                self.assertEqual(self.read('out'), data)
        self.assertEqual(self.leftovers(), [])

    def test_known_bytes(self):
        self.write('in', b'ab' * 64)
        self.run_tool('stream', 'compress', 'in', 'out')
        self.assertEqual(self.read('out').hex(), '4346494c1400' 'fef905fafafbfbfcfcfdfdfefe6162800002f9f9')

    def test_bad_streams_are_refused_and_leave_nothing(self):
        good = b'CFIL' + b'\x14\0' + bytes.fromhex('fef905fafafbfbfcfcfdfdfefe6162800002f9f9')
        self.write('plain', b'hello')
        for name, data, says in [
            ('plain', b'hello', 'not a compressed stream'),
            ('short', b'CF', 'not a compressed stream'),
            ('half header', good + b'\x01', 'half a header'),
            ('cut', good[:-1], 'goes past the end'),
            ('zero', b'CFIL\0\0', 'a length of 0'),
            ('long', b'CFIL' + struct.pack('<H', 0x4001) + bytes(0x4001), 'a length of 16385'),
            ('short before last', b'CFIL\x01\x80a\x01\x80b', 'before the last'),
            ('cycle', good.replace(b'\x61\x62', b'\xfe\xfe'), 'frame 1 is damaged'),
        ]:
            with self.subTest(name=name):
                self.write('bad', data)
                self.run_tool('stream', 'expand', 'bad', 'out', exit=1, says=says)
                self.run_tool('stream', 'info', 'bad', exit=1, says=says)
                self.assertFalse(os.path.exists('out'))
        self.write('good', good)
        self.run_tool('stream', 'compress', 'good', 'twice', exit=1, says='compressed stream already')
        self.run_tool('stream', 'expand', 'good', 'plain', exit=2, says='exists already')
        self.assertEqual(self.read('plain'), b'hello')
        self.assertEqual(self.leftovers(), [])


class Images(ToolTest):
    def test_info(self):
        names = ['planet.tga', 'rings.tga', 'plasma.tga', 'tiles.bmp', 'dunes.pcx', 'clouds.jpg']
        rows = json.loads(self.run_tool('image', 'info', '--json', *(os.path.join(ASSETS, name) for name in names)))
        self.assertEqual([(row['format'], row['width'], row['height']) for row in rows],
                         [('ARGB32', 256, 256), ('XRGB32', 256, 192), ('Indexed8', 256, 256), ('XRGB32', 256, 192),
                          ('XRGB32', 320, 200), ('XRGB32', 320, 200)])
        self.write('text.tga', b'x')
        self.write('text.bmp', b'no picture' * 20)
        self.run_tool('image', 'info', 'text.bmp', os.path.join(ASSETS, names[0]), exit=1, says='text.bmp: cannot be loaded: not a BMP')

    def test_converted_pixels_by_a_second_decoder(self):
        readers = {'.tga': formats.read_tga, '.bmp': formats.read_bmp, '.pcx': formats.read_pcx}
        for name in ['planet.tga', 'rings.tga', 'spectrum.tga', 'plasma.tga', 'tiles.bmp', 'fractal.bmp', 'dunes.pcx']:
            with self.subTest(name=name):
                path = os.path.join(ASSETS, name)
                expected = readers[name[-4:]](self.read(path))
                self.run_tool('image', 'convert', path, 'out.tga', '--force')
                self.assertEqual(formats.read_tga(self.read('out.tga')), expected)
                self.run_tool('image', 'convert', path, 'out.BMP', '--force', says='transparency' if name == 'planet.tga' else ())
                opaque = [[(r, g, b, 255) for r, g, b, _ in row] for row in expected]
                self.assertEqual(formats.read_bmp(self.read('out.BMP')), opaque)
        self.assertEqual(self.leftovers(), [])

    def test_jpeg_is_near_its_source(self):
        self.run_tool('image', 'convert', os.path.join(ASSETS, 'clouds.jpg'), 'out.tga')
        rows = formats.read_tga(self.read('out.tga'))
        self.assertEqual((len(rows), len(rows[0])), (200, 320))
        average = [sum(row[x][c] for row in rows for x in range(320)) / 64000 for c in range(3)]
        self.assertTrue(average[2] > average[1] > average[0] > 60, average)  # a blue sky

    def test_refused_images_say_why(self):
        header = bytearray(18)
        header[2], header[12], header[14], header[16] = 10, 4, 4, 24
        odd = bytearray(self.read(os.path.join(ASSETS, 'tiles.bmp')))
        odd[18:22] = struct.pack('<i', 30)
        for name, data, says in [('rle.tga', bytes(header) + bytes(64), 'run-length packed TGA'), ('odd.bmp', bytes(odd), 'width 30'),
                                 ('cut.tga', self.read(os.path.join(ASSETS, 'planet.tga'))[:5000], 'end too early'),
                                 ('text.jpg', b'text', 'not a JPEG'), ('empty.pcx', b'', 'ends inside its header'),
                                 ('name.gif', b'GIF89a', 'extension')]:
            with self.subTest(name=name):
                self.write(name, data)
                self.run_tool('image', 'convert', name, 'out.bmp', exit=1, says=says)
                self.assertFalse(os.path.exists('out.bmp'))

    def test_edits_against_pixels_by_a_second_decoder(self):
        planet = os.path.join(ASSETS, 'planet.tga')
        rows = formats.read_tga(self.read(planet))
        out = lambda: formats.read_tga(self.read('out.tga'))
        self.run_tool('image', 'crop', planet, 'out.tga', '--rect', '30,40,100,7')
        self.assertEqual(out(), [row[30:130] for row in rows[40:47]])
        self.run_tool('image', 'scale', planet, 'out.tga', '--size', '128,64', '--force')
        self.assertEqual(out(), [[tuple(sum(rows[4 * y + j][2 * x + i][c] for j in range(4) for i in range(2)) // 8 for c in range(4))
                                  for x in range(128)] for y in range(64)])
        self.run_tool('image', 'adjust', planet, 'out.tga', '--saturation', '0', '--force')
        self.assertTrue(all(r == g == b for row in out() for r, g, b, _ in row))
        self.run_tool('image', 'adjust', planet, 'out.tga', '--force')
        self.assertEqual(out(), rows, 'all factors 1')

        self.write('shapes.txt', b'clip 0 0 50 50\n// a box that the clip cuts\nbox 10 20 90 5 #80C04020 filled\nbox 3 3 2 2 red filled\n')
        self.run_tool('image', 'draw', planet, 'out.tga', '--shapes', 'shapes.txt', '--force')
        expected = [list(row) for row in rows]
        for y in range(20, 25):
            expected[y][10:50] = [(0xC0, 0x40, 0x20, 0x80)] * 40
        for x, y in [(3, 3), (4, 3), (3, 4), (4, 4)]:
            expected[y][x] = (255, 0, 0, 255)
        self.assertEqual(out(), expected)
        for shapes, says in [(b'blob 1', 'entry 1 (blob): unknown shape'), (b'line 1 2 3', 'needs 4 numbers'), (b'box 1 2 3 4 #12', 'no colour'),
                             (b'circle 9 9 4 red round', 'does not understand "round"'), (b'image none.tga 1 1', 'cannot load none.tga'),
                             (b'polygon ' + planet.encode() + b'\n{\npoint 1 1 1 1\n}', 'three points')]:
            with self.subTest(says=says):
                self.write('shapes.txt', shapes + b'\n')
                self.run_tool('image', 'draw', planet, 'new.tga', '--shapes', 'shapes.txt', exit=1, says=says)
                self.assertFalse(os.path.exists('new.tga'))
        for value in ('nan', '-0.1', '2.1', '1x', ''):
            self.run_tool('image', 'adjust', planet, 'new.tga', '--brightness', value, exit=2, says='--brightness')
        self.assertFalse(os.path.exists('new.tga'))
        self.run_tool('image', 'scale', planet, 'new.tga', '--size', '100,64', exit=2, says='powers of two')
        self.run_tool('image', 'crop', planet, 'new.tga', '--rect', '200,0,100,5', exit=2, says='256 by 256')


class MountedNames(ToolTest):
    def setUp(self):
        super().setUp()
        self.write('base/x.txt', b'base')
        self.write('base/only.txt', b'only in the archive' * 100)
        self.write('over/x.txt', b'over')
        self.run_tool('archive', 'create', 'base.arc', 'base', '--compress')
        self.mounts = ('--mount', 'data=base.arc:ro', '--mount', 'data=over')

    def test_which(self):
        rows = json.loads(self.run_tool('which', 'data:X.TXT', '--mount', 'data=over', '--mount', 'data=base.arc', '--json'))
        self.assertEqual(rows, [{'location': 'base.arc', 'kind': 'archive', 'serves': True},
                                {'location': 'over/', 'kind': 'folder', 'serves': False}])
        text = self.run_tool('which', 'data:/x.txt', *self.mounts)
        self.assertEqual([line.split()[0::2] for line in text.splitlines()], [['serves', 'over/'], ['shadowed', 'base.arc']])
        self.run_tool('which', 'data:nothing', *self.mounts, exit=1, says='data:nothing: none of 2 locations has it')
        self.run_tool('which', 'other:x', *self.mounts, exit=2)

    def test_find_lists_the_merged_view(self):
        for name, size in [('over/Pics/b.TGA', 20), ('over/Pics/c.bmp', 30), ('over/Pics/.hidden.tga', 1), ('packed/pics/B.tga', 400),
                           ('packed/pics/a.tga', 500), ('packed/pics/deep/d.tga', 5), ('packed/top.tga', 6)]:
            self.write(name, b'x' * size)
        self.run_tool('archive', 'create', 'packed.arc', 'packed', '--compress')
        os.utime('over/Pics/c.bmp', (0, 86400 * 365))
        mounts = ('--mount', 'data=packed.arc:ro', '--mount', 'data=over')
        # the archive is visited first, and its spelling is the one that shows; each name comes once
        text = self.run_tool('find', 'data:pics/*.tga;*.bmp', *mounts, '--names')
        self.assertEqual(text.splitlines(), ['data:pics/B.tga', 'data:pics/a.tga', 'data:pics/.hidden.tga', 'data:pics/c.bmp'])
        rows = json.loads(self.run_tool('find', 'data:\\PICS\\*', *mounts, '--json'))
        self.assertEqual([(row['name'], row['folder'], row['size'], row['attributes']) for row in rows],
                         [('data:\\PICS\\B.tga', False, 400, 0x80), ('data:\\PICS\\a.tga', False, 500, 0x80),
                          ('data:\\PICS\\deep', True, 0, 0x91), ('data:\\PICS\\.hidden.tga', False, 1, 0x02),
                          ('data:\\PICS\\c.bmp', False, 30, 0)])
        self.assertEqual(rows[-1]['written'], 86400 * 365)
        lines = self.run_tool('find', 'over/pics/*', '--names').splitlines()
        self.assertEqual(lines, ['over/pics/.hidden.tga', 'over/pics/b.TGA', 'over/pics/c.bmp'])
        self.assertEqual(self.run_tool('find', 'OVER/pics/C.*'), '         30  1971-01-01 00:00  ----  OVER/pics/c.bmp\n')
        self.assertEqual(self.run_tool('find', 'data:p*', *mounts), ' ' * 31 + 'dr-c  data:pics/\n')
        self.run_tool('find', 'data:none/*', *mounts, exit=1, says='data:none/*: nothing there matches')
        self.run_tool('find', 'nosuch:*', *mounts, exit=1, says='nothing on disk matches')
        self.run_tool('find', 'data:*/a.tga', *mounts, exit=2, says='only the last level')
        self.run_tool('find', 'data:' + 'x' * 300, *mounts, exit=2, says='is too long')

    def test_names_go_through_the_overlay(self):
        for name, expected in [('data:x.txt', b'over'), ('data:only.txt', b'only in the archive' * 100)]:
            self.run_tool('stream', 'compress', name, 'out', '--force', *self.mounts)
            self.assertEqual(formats.expand_stream(self.read('out')), expected)
        self.run_tool('archive', 'create', 'c.arc', 'data:only.txt', 'data:x.txt', *self.mounts)
        self.assertEqual([contents for _, contents, _ in formats.read_archive(self.read('c.arc'))], [b'only in the archive' * 100, b'over'])
        # an input is read from a mount that the user did not allow to be written, and an output is refused there
        self.run_tool('stream', 'compress', 'over/x.txt', 'data:new', '--mount', 'data=over:ro', exit=2, says='read-only')
        self.run_tool('stream', 'compress', 'over/x.txt', 'data:deep/new', *self.mounts, exit=3)
        self.run_tool('stream', 'compress', 'base/x.txt', 'data:new', *self.mounts)
        self.run_tool('stream', 'compress', 'base/x.txt', 'data:NEW', *self.mounts, exit=2, says='exists')
        self.run_tool('stream', 'compress', 'base/x.txt', 'data:NEW', '--force', *self.mounts)
        self.assertEqual(formats.expand_stream(self.read('over/new')), b'base')
        self.assertEqual(sorted(os.listdir('over')), ['new', 'x.txt'])
        self.run_tool('archive', 'create', 'd.arc', 'data:X.TXT', *self.mounts)

    def test_an_image_goes_into_a_mounted_archive(self):
        tga = os.path.join(ASSETS, 'planet.tga')
        before = self.read('base.arc')
        self.run_tool('image', 'convert', tga, 'pics:sub/p.tga', '--mount', 'pics=base.arc')
        members = {name: contents for name, contents, _ in formats.read_archive(self.read('base.arc'))}
        self.assertEqual(formats.read_tga(members[b'sub/p.tga']), formats.read_tga(self.read(tga)))
        self.assertTrue(self.read('base.arc').startswith(before))
        self.run_tool('image', 'convert', tga, 'pics:sub/P.tga', '--mount', 'pics=base.arc', exit=2, says='already')
        self.run_tool('image', 'info', 'pics:sub/p.tga', '--mount', 'pics=base.arc')

    def test_paths_with_colons_mean_themselves(self):
        os.makedirs('odd:dir')
        shutil.copy(os.path.join(ASSETS, 'tiles.bmp'), 'odd:dir/ti:les.bmp')
        shutil.copy('odd:dir/ti:les.bmp', 'les.bmp')
        os.truncate('les.bmp', 10)
        self.run_tool('image', 'convert', 'odd:dir/ti:les.bmp', 'odd:dir/o:ut.tga')
        self.assertEqual(formats.read_tga(self.read('odd:dir/o:ut.tga')), formats.read_bmp(self.read('odd:dir/ti:les.bmp')))
        self.run_tool('stream', 'compress', 'odd:dir/ti:les.bmp', 'pa:cked')
        self.run_tool('stream', 'expand', 'pa:cked', 'pla:in')
        self.assertEqual(self.read('pla:in'), self.read('odd:dir/ti:les.bmp'))


class Options(ToolTest):
    """`bedrock options` against what the sources say."""

    def setUp(self):
        super().setUp()
        for name in ('Options', 'ViewerOptions'):
            os.environ.pop(name, None)

    def history(self, *arguments, exit=0, says=()):
        shown = json.loads(self.run_tool('options', '--json', *arguments, exit=exit, says=says))
        return {row['key']: [(step['source'], step['name'], step['value'], step['appended']) for step in row['from']]
                for row in shown}

    def test_an_application_starts(self):
        os.environ['Options'] = '-a=1 -b=1 -c=1 -d=1'
        os.environ['ViewerOptions'] = '-b=2 -c=2 -d=2 +log=x'
        self.write('bin/ViewerOptions.txt', b'-c=3 -d=3\n+log=y')
        self.write('ViewerOptions.txt', b'-d=4')
        try:
            rows = self.history('--prefix', 'Viewer', '--program', 'bin/viewer', '--', '-e', '+Log=z', '-a=new')
        finally:
            del os.environ['Options'], os.environ['ViewerOptions']
        self.assertEqual(list(rows), ['a', 'b', 'c', 'd', 'log', 'bin/viewer', 'e'])
        self.assertEqual(rows['a'], [('arguments', '', 'new', False), ('variable', 'Options', '1', False)])
        self.assertEqual(rows['d'], [('file', 'ViewerOptions.txt', '4', False),
                                     ('file', 'bin/ViewerOptions.txt', '3', False),
                                     ('variable', 'ViewerOptions', '2', False), ('variable', 'Options', '1', False)])
        self.assertEqual(rows['log'], [('arguments', '', 'x,y,z', True),
                                       ('file', 'bin/ViewerOptions.txt', 'x,y', True),
                                       ('variable', 'ViewerOptions', 'x', False)])
        self.assertEqual(rows['e'], [('arguments', '', '', False)])

    def test_sources_in_the_order_given(self):
        self.write('one.txt', b'-Title=Hello World\n-Fast+')
        self.write('two.bin', b'-Fast-\n-name=\xff\x1b[2J')
        sources = ('--source', 'file:one.txt', '--source', 'text:-fast=1', '--source', 'file:two.bin')
        rows = self.history(*sources)
        self.assertEqual(rows['title'], [('file', 'one.txt', 'Hello World', False)])
        self.assertEqual([step[2] for step in rows['fast']], ['-', '1', '+'])
        self.assertEqual(rows['name'][0][2], '\udcff\x1b[2J')
        self.assertEqual(self.run_tool('options', *sources, '--key', 'FAST', '--key', 'name'),
                         'FAST = -\n    from file two.bin\n    in place of 1 from text\n'
                         '    in place of + from file one.txt\nname = \udcff\\x1B[2J\n    from file two.bin\n')
        self.run_tool('stream', 'compress', 'one.txt', 'one.cf')
        self.assertEqual(self.history('--source', 'file:one.cf')['title'][0][2], 'Hello World')
        self.run_tool('archive', 'create', 'set.arc', 'one.txt')
        self.assertIn('title', self.history('--mount', 'set=set.arc:ro', '--source', 'file:set:one.txt'))

    def test_what_is_not_there_is_told(self):
        rows = self.history('--source', 'file:absent', '--source', 'env:ABSENT_HERE', '--source', 'text:-a=1', exit=1,
                            says=('absent: no such file', 'ABSENT_HERE: no such variable'))
        self.assertEqual(list(rows), ['a'])
        self.run_tool('options', '--source', 'text:-a', '--key', 'b', exit=1, says='b: no source has it')
        self.run_tool('options', '--source', 'text', exit=0)
        for arguments in (('--source', 'other:x'), ('--source', 'text:-a', '--', '-b')):
            self.run_tool('options', *arguments, exit=2, says='options')


class Dumps(ToolTest):
    def test_chunks(self):
        tree = [(1, [(0x4853454D, b'abc'), (3, [(4, b'')])]), (5, bytes(16)), (6, b'no blocks')]
        self.write('a.krom', formats.chunk_file(7, tree))
        rows = json.loads(self.run_tool('chunk', 'dump', 'a.krom', '--json'))
        self.assertEqual([(row['offset'], row['size'], row['id'], row['depth']) for row in rows],
                         [(0, 80, 7, 0), (12, 27, 1, 1), (20, 3, 0x4853454D, 2), (31, 8, 3, 2), (39, 0, 4, 3), (47, 16, 5, 1), (71, 9, 6, 1)])
        self.assertEqual(len(json.loads(self.run_tool('chunk', 'dump', 'a.krom', '--json', '--flat'))), 4)
        text = self.run_tool('chunk', 'dump', 'a.krom').splitlines()
        self.assertEqual(text[3].split(), ['20', '3', '0x4853454D', '"MESH"'])
        self.run_tool('archive', 'create', 'a.arc', 'a.krom', '--compress')
        self.assertEqual(self.run_tool('chunk', 'dump', 'm:a.krom', '--mount', 'mm=a.arc', exit=3, says='cannot open'), '')
        self.assertEqual(self.run_tool('chunk', 'dump', 'mm:a.krom', '--mount', 'mm=a.arc').splitlines(), text)

    def test_random_chunk_trees(self):
        def tree(depth):
            return [(self.random.randrange(1, 1 << 32), tree(depth + 1) if depth < 8 and self.random.randrange(2) else b'leaf' * self.random.randrange(9))
                    for _ in range(self.random.randrange(1, 5))]

        def flat(parts, at, depth):
            for ident, body in parts:
                size = len(formats.chunk_body(body))
                yield at, size, ident, depth
                if not isinstance(body, bytes):
                    yield from flat(body, at + 8, depth + 1)
                at += 8 + size
        for _ in range(20):
            parts = tree(1)
            self.write('a.krom', formats.chunk_file(9, parts))
            rows = json.loads(self.run_tool('chunk', 'dump', 'a.krom', '--json'))
            self.assertEqual([(row['offset'], row['size'], row['id'], row['depth']) for row in rows[1:]], list(flat(parts, 12, 1)))

    def test_torn_chunk_files(self):
        whole = formats.chunk_file(7, [(1, b'abc'), (2, b'0123456789')])
        for data, says in [(b'', 'no whole header'), (whole[:11], 'no whole header'), (b'KRON' + whole[4:], 'does not begin with "KROM"'),
                           (whole[:-1], 'the block at offset 23 has a size of 10 bytes, and 9 are left'),
                           (whole[:25], '2 bytes at offset 23 are no whole block'),
                           (whole + b'xyz', '3 bytes at offset 41 are no whole block'),
                           (whole[:4] + bytes(4) + whole[8:], 'did not come to the end'),
                           (whole[:4] + struct.pack('<I', 15) + whole[8:], '18 bytes behind the end'),
                           (whole[:4] + struct.pack('<I', 99) + whole[8:], 'by its header it has 107 bytes, and there are 41'),
                           (b'CFIL' + struct.pack('<H', 0x8000 | len(whole)) + whole, 'bedrock stream expand')]:
            with self.subTest(says=says):
                self.write('bad.krom', data)
                self.run_tool('chunk', 'dump', 'bad.krom', exit=1, says=says)
        self.run_tool('chunk', 'dump', 'none', exit=3, says='No such file')

    def test_blocks(self):
        self.write('a.txt', b'// c\npanel {\n size 640 480 // x\n title "two words" ""\n child\n {\n  x 1.5\n }\n}\nlast {x\n}\n')
        self.assertEqual(self.run_tool('block', 'dump', 'a.txt'),
                         'panel\n{\n    size 640 480\n    title "two words" ""\n    child\n    {\n        x 1.5\n    }\n}\nlast {x\n{\n}\n')
        rows = json.loads(self.run_tool('block', 'dump', 'a.txt', '--json'))
        self.assertEqual([(row['depth'], row['key'], row['values'], row['block']) for row in rows][3:],
                         [(1, 'child', [], True), (2, 'x', ['1.5'], False), (0, 'last', ['{x'], True)])
        self.run_tool('block', 'dump', 'none', exit=3, says='No such file')

    def test_any_depth(self):
        self.write('deep.txt', b'a\n{\n' * 100000)
        self.assertEqual(self.run_tool('block', 'dump', 'deep.txt').count("a\n"), 100000)
        body = b''.join(struct.pack('<II', 1, 8 * i) for i in range(100000, -1, -1))
        self.write('deep.krom', formats.chunk_file(7, body))
        self.assertEqual(self.run_tool('chunk', 'dump', 'deep.krom').count('0x00000001'), 100001)


class Guide(ToolTest):
    def test_the_examples_of_the_guide_to_names(self):
        """Every "$ " line of docs/files.md is run, in order; what it prints is what the guide shows."""
        guide = os.path.join(os.path.dirname(os.path.abspath(__file__)), '../../docs/files.md')
        shell = dict(os.environ, PATH=os.path.dirname(BEDROCK) + os.pathsep + os.environ['PATH'])
        ran = 0
        with open(guide, encoding='utf-8') as file:
            blocks = file.read().split('```')[1::2]
        for block in blocks:
            for step in block.split('\n$ ')[1:]:
                command, _, expected = step.partition('\n')
                result = subprocess.run(command, shell=True, env=shell, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                self.assertEqual(result.stdout, expected + ('\n' if expected and not expected.endswith('\n') else ''), command)
                self.assertEqual(result.returncode, 0, command)
                ran += 1
        self.assertGreater(ran, 8)


class Terminal(ToolTest):
    def test_a_bar_on_a_terminal_only_and_gone_in_the_end(self):
        self.write('in/a', self.random.randbytes(1 << 20) * 24)
        ours, theirs = pty.openpty()
        process = subprocess.Popen([BEDROCK, 'archive', 'create', 'a.arc', 'in', '--compress'], stdout=subprocess.DEVNULL, stderr=theirs)
        os.close(theirs)
        shown = b''
        while True:
            try:
                part = os.read(ours, 4096)
            except OSError:
                part = b''
            if not part:
                break
            shown += part
        self.assertEqual(process.wait(), 0)
        os.close(ours)
        if shown:  # a machine that packs 24 MiB in a blink shows none
            self.assertIn(b'#', shown)
            self.assertTrue(shown.endswith(b'\r\x1b[K'), shown[-40:])

    def test_an_interrupt_leaves_no_half_archive(self):
        import signal
        import time
        self.write('in/a', self.random.randbytes(1 << 20) * 200)
        process = subprocess.Popen([BEDROCK, 'archive', 'create', 'a.arc', 'in', '--compress'], stderr=subprocess.PIPE)
        while not self.leftovers() and process.poll() is None:
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        errors = process.communicate()[1]
        self.assertEqual((process.returncode, os.path.exists('a.arc'), self.leftovers()), (3, False, []), errors)
        self.assertIn(b'interrupted', errors)


if __name__ == '__main__':
    print(f'BEDROCK_TEST_SEED={SEED}', flush=True)
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
