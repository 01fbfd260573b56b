#!/usr/bin/env python3
"""Drives the built `bedrock-report` as a user does, on displays of its own, by clicks and keys.

    test_report.py BEDROCK-REPORT FAILURES [unittest arguments]

FAILURES is the built example of that name, "" if there is none.
"""
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import screen

REPORT = os.path.abspath(sys.argv[1])
FAILURES = os.path.abspath(sys.argv[2]) if sys.argv[2] else ''
TEXT = 'Class: File\n\nReason: Read() File is not open\n\nNo call stack available\n'
LONG = ''.join(f'Line {i}\n' for i in range(200)) + 'wide ' * 300 + '\n'
BACKGROUND = bytes([240, 240, 240])
WHITE = bytes([255, 255, 255])


def units_of(width, height):
    """The pixels of 4 dialog units across and 8 down that make a window of 342 by 257 units this large."""
    across = [n for n in range(3, 20) if (342 * n + 2) // 4 == width]
    down = [n for n in range(6, 40) if (257 * n + 4) // 8 == height]
    assert across and down, f'a window of {width} x {height} is no 342 by 257 dialog units'
    return across[0], down[0]


class Dialog:
    """One run of the dialog."""

    def __init__(self, on, text=TEXT, arguments=(), title='Fatal Error'):
        self.screen = on
        others = on.find(title)
        reading, writing = os.pipe()
        self.reading = reading
        self.process = subprocess.Popen([REPORT, '--answer-fd', str(writing), *arguments], env=on.environment,
                                        stdin=subprocess.PIPE, stderr=subprocess.PIPE, pass_fds=[writing])
        os.close(writing)
        self.process.stdin.write(text.encode() if isinstance(text, str) else text)
        self.process.stdin.close()
        try:
            self.window = screen.wait_until(lambda: set(on.find(title)) - set(others), f'a window "{title}"').pop()
            screen.wait_until(lambda: on.focus() == self.window, 'the dialog has the focus')
        except AssertionError:
            self.end()
            raise
        _, _, width, height = on.geometry(self.window)
        self.least = width, height
        if title == 'Fatal Error':
            self.across, self.down = units_of(width, height)

    def pixels(self, x, y, width, height):
        """A place in dialog units, in pixels."""
        return ((x * self.across + 2) // 4, (y * self.down + 4) // 8,
                (width * self.across + 2) // 4, (height * self.down + 4) // 8)

    def click(self, place, moved=0, button=1):
        x, y, width, height = place
        self.screen.click(self.window, x + moved + width / 2, y + height / 2, button)

    def is_open(self):
        return self.process.poll() is None

    def answer(self):
        """What came through the descriptor, and the exit code."""
        code = self.process.wait(timeout=30)
        byte = os.read(self.reading, 9).decode()
        self.errors = self.process.stderr.read().decode()
        return byte, code

    def end(self):
        """When the test is done, whatever became of it."""
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()
        os.close(self.reading)


class OnScreen(unittest.TestCase):
    MANAGED = True

    @classmethod
    def setUpClass(cls):
        cls.screen = screen.Screen(cls.MANAGED)

    @classmethod
    def tearDownClass(cls):
        cls.screen.close()

    def open(self, *arguments, **named):
        dialog = Dialog(self.screen, *arguments, **named)
        self.addCleanup(dialog.end)
        return dialog

    def list_of(self, dialog):
        """The white inside of the list as it is seen: first column, first row, behind the last."""
        rows = self.screen.pixels(dialog.window)
        hits = [(row.find(WHITE * 20) // 3, row.rfind(WHITE) // 3, y) for y, row in enumerate(rows)
                if row.find(WHITE * 20) >= 0]
        return min(h[0] for h in hits), hits[0][2], max(h[1] for h in hits) + 1, hits[-1][2] + 1


class Answers(OnScreen):
    """What each act of the user answers. The same without a window manager below."""

    def test_buttons(self):
        for units, expected in (((284, 6, 51, 13), ('0', 0)), ((284, 20, 51, 13), ('1', 1))):
            dialog = self.open()
            # A click beside the controls, on the texts and in the list answers nothing.
            for place in ((7, 6, 270, 29), (7, 39, 70, 8), (7, 51, 328, 199), (284, 34, 51, 4)):
                dialog.click(dialog.pixels(*place))
            self.assertTrue(dialog.is_open())
            dialog.click(dialog.pixels(*units))
            self.assertEqual(dialog.answer(), expected)
            self.assertEqual(dialog.errors, '')

    def test_keys(self):
        rows = (
            (['Return'], '0'), (['KP_Enter'], '0'), (['space'], '0'), (['Escape'], '1'),
            (['Tab', 'Return'], '1'), (['Tab', 'space'], '1'), (['Tab', 'Tab', 'Return'], '0'),
            (['shift+Tab', 'Return'], '1'), (['Tab', 'Escape'], '1'),
            (['Down', 'Next', 'End', 'Up', 'Left', 'Right', 'a', 'c', 'Return'], '0'),
        )
        for keys, expected in rows:
            with self.subTest(keys=keys):
                dialog = self.open(LONG)
                self.screen.key(*keys)
                self.assertEqual(dialog.answer(), (expected, int(expected)))

    def test_a_key_that_was_held_down_before_answers_nothing(self):
        for key, again in (('Return', '0'), ('Escape', '1'), ('space', '0')):
            with self.subTest(key=key):
                self.screen.run('xdotool', 'keydown', key)
                try:
                    dialog = self.open()
                    time.sleep(1)  # the display repeats the key
                    self.assertTrue(dialog.is_open())
                finally:
                    self.screen.run('xdotool', 'keyup', key)
                self.screen.key(key)
                self.assertEqual(dialog.answer(), (again, int(again)))

    def test_buttons_move_and_the_list_grows(self):
        dialog = self.open()
        width, height = dialog.least
        left, top, list_width, list_height = dialog.pixels(7, 51, 328, 199)
        for dx, dy in ((0, 0), (200, 100), (80, 160), (300, 0)):
            self.screen.resize(dialog.window, width + dx, height + dy)
            screen.wait_until(lambda: self.screen.geometry(dialog.window)[2:] == (width + dx, height + dy), 'resizing')
            frame = 3  # of the list, at most

            def fits():
                seen = self.list_of(dialog)
                wanted = (left, top, left + list_width + dx, top + list_height + dy)
                return all(0 <= a - b <= frame for a, b in zip(seen[:2], wanted[:2])) and \
                    all(0 <= b - a <= frame for a, b in zip(seen[2:], wanted[2:]))
            screen.wait_until(fits, f'the list fills its place at +{dx} +{dy}: {self.list_of(dialog)}')
        dialog.click(dialog.pixels(284, 20, 51, 13))  # where the button was
        self.assertTrue(dialog.is_open())
        dialog.click(dialog.pixels(284, 20, 51, 13), moved=300)
        self.assertEqual(dialog.answer(), ('1', 1))

    def test_stands_in_the_middle(self):
        dialog = self.open()
        x, y, width, height = self.screen.geometry(dialog.window)
        self.assertAlmostEqual(x + width / 2, self.screen.width / 2, delta=3)
        self.assertAlmostEqual(y + height / 2, self.screen.height / 2, delta=15)  # a caption may stand above it

    def test_comes_to_the_foreground(self):
        other = self.open('Before', arguments=('--message', 'Other'), title='Other')
        dialog = self.open()
        self.assertEqual(self.screen.focus(), dialog.window)
        rows = self.screen.pixels(dialog.window)
        self.assertGreater(sum(row.count(WHITE * 100) for row in rows), 1000, 'nothing stands before the list')
        self.screen.key('Return')
        self.assertEqual(dialog.answer(), ('0', 0))

    def test_scrolls(self):
        dialog = self.open(LONG)
        start = self.screen.settled(dialog.window)
        seen = [start]

        def shows_another_part(what, act):
            act()
            screen.wait_until(lambda: self.screen.pixels(dialog.window) not in seen, f'{what} shows another part')
            seen.append(self.screen.settled(dialog.window))

        def shows_the_start(what, act):
            act()
            screen.wait_until(lambda: self.screen.pixels(dialog.window) == start, f'{what} shows the start')
        place = dialog.pixels(7, 51, 300, 180)
        for key in ('Down', 'Next', 'End', 'Right'):
            shows_another_part(key, lambda: self.screen.key(key))
        shows_the_start('Home', lambda: self.screen.key('Home'))
        shows_another_part('the wheel', lambda: dialog.click(place, button=5))
        shows_the_start('the wheel', lambda: dialog.click(place, button=4))

    def test_copied_report_outlives_the_dialog(self):
        dialog = self.open(LONG)
        self.screen.key('ctrl+c')
        screen.wait_until(lambda: self.screen.paste() == LONG, 'the report is on the clipboard')
        self.screen.key('Escape')
        self.assertEqual(dialog.answer(), ('1', 1))
        self.assertEqual(self.screen.paste(), LONG)
        second = self.open()
        self.screen.key('ctrl+Insert', 'Return')
        self.assertEqual(second.answer(), ('0', 0))
        self.assertEqual(self.screen.paste(), TEXT.replace('\n\n', '\n'))


class AnswersUnmanaged(Answers):
    """Without a window manager, which lets a window be of any size."""
    MANAGED = False

    def test_survives_sizes_below_the_smallest(self):
        dialog = self.open(LONG)
        for size in ((300, 60), (40, 300), (1, 1), dialog.least):
            self.screen.resize(dialog.window, *size)
            screen.wait_until(lambda: self.screen.geometry(dialog.window)[2:] == size, f'{size}')
        start = self.screen.settled(dialog.window)
        self.screen.key('Return')
        self.assertEqual(dialog.answer(), ('0', 0))
        again = self.open(LONG)
        self.assertTrue(self.screen.settled(again.window) == start, 'it looks as if nothing had been')


class Managed(OnScreen):
    """What takes a window manager."""

    def test_close_box(self):
        dialog = self.open()
        self.screen.run('wmctrl', '-i', '-c', dialog.window)
        self.assertEqual(dialog.answer(), ('1', 1))

    def test_never_smaller_than_at_first(self):
        dialog = self.open()
        width, height = dialog.least
        hints = self.screen.run('xprop', '-id', dialog.window, 'WM_NORMAL_HINTS')
        self.assertIn(f'minimum size: {width} by {height}', hints)
        self.assertNotIn('maximum size', hints)
        for size, wanted in (((100, 100), (width, height)), ((width + 50, 10), (width + 50, height)),
                             ((10, height + 50), (width, height + 50))):
            self.screen.resize(dialog.window, *size)
            screen.wait_until(lambda: self.screen.geometry(dialog.window)[2:] == wanted, f'{size} becomes {wanted}')

    def drag(self, window, place, by):
        run = self.screen.run
        run('xdotool', 'mousemove', '--window', window, *map(str, place), 'mousedown', '1')
        time.sleep(0.2)  # the manager takes the pointer
        for _ in range(10):
            run('xdotool', 'mousemove_relative', '--', str(by[0] // 10), str(by[1] // 10))
        run('xdotool', 'mouseup', '1')

    def test_grip_sizes_the_window(self):
        dialog = self.open()
        width, height = dialog.least
        self.drag(dialog.window, (width - 5, height - 5), (90, 60))
        screen.wait_until(lambda: self.screen.geometry(dialog.window)[2:] == (width + 90, height + 60), 'it grows')
        self.drag(dialog.window, (width + 85, height + 55), (-400, -300))
        screen.wait_until(lambda: self.screen.geometry(dialog.window)[2:] == (width, height), 'down to the least size')

    def test_grip_is_drawn_unless_maximised(self):
        dialog = self.open()

        def has_grip():
            rows = self.screen.pixels(dialog.window)
            corner = b''.join(row[-10 * 3:] for row in rows[-10:])
            return corner != BACKGROUND * 100
        screen.wait_until(has_grip, 'a grip')
        for act, expected in (('add', False), ('remove', True)):
            self.screen.run('wmctrl', '-i', '-r', dialog.window, '-b', f'{act},maximized_vert,maximized_horz')
            screen.wait_until(lambda: (self.screen.geometry(dialog.window)[2:] == dialog.least) == expected, act)
            screen.wait_until(lambda: has_grip() == expected, f'the grip after {act}')
        dialog.click(dialog.pixels(284, 6, 51, 13))
        self.assertEqual(dialog.answer(), ('0', 0))

    def test_messages(self):
        rows = (
            ('--error', ['Return'], '0'), ('--error', ['Escape'], '0'), ('--message', ['space'], '0'),
            ('--confirm', ['Return'], '0'), ('--confirm', ['Tab', 'Return'], '1'), ('--confirm', ['Escape'], '1'),
        )
        for kind, keys, expected in rows:
            with self.subTest(kind=kind, keys=keys):
                dialog = self.open('Is 100% @ 3 & more?\n' * 3, arguments=(kind, 'A title'), title='A title')
                screen.wait_until(lambda: 'ABOVE' in self.screen.run('xprop', '-id', dialog.window, '_NET_WM_STATE'),
                                  'it stays on top')
                self.screen.key(*keys)
                self.assertEqual(dialog.answer(), (expected, int(expected)))


class Hostile(OnScreen):
    """Whatever comes in, the dialog answers or says why not, and an answer is the user's."""

    def test_any_text(self):
        for text in (b'', b'\n\n', bytes(range(256)) * 40, b'\xF0\x9F\x98' * 500, b'@c@C1\t&x\x1b[31m\n',
                     b'w' * 100000, 'Zeile \u00e4\u00f6 \u65e5\u672c \u202e\n'.encode() * 50, b'a\n' * 200000):
            with self.subTest(text=text[:20]):
                dialog = self.open(text)
                self.screen.key('End', 'Right', 'Next', 'Home', 'Return')
                self.assertEqual(dialog.answer(), ('0', 0))

    def test_no_report_says_so(self):
        seen = []
        for text in ('Problem creating exception report', '', 'Another text'):
            dialog = self.open(text)
            seen.append(self.screen.settled(dialog.window))
            self.screen.key('Return')
            dialog.answer()
        self.assertTrue(seen[0] == seen[1])
        self.assertFalse(seen[0] == seen[2])

    def test_errors(self):
        folder = tempfile.mkdtemp()
        huge = os.path.join(folder, 'huge')
        with open(huge, 'wb') as file:
            file.truncate(5 << 20)
        no_display = {**self.screen.environment, 'DISPLAY': ''}
        here = self.screen.environment
        rows = (
            (['no-such-file'], here, 'no-such-file: cannot open: No such file'),
            ([folder], here, 'cannot read: Is a directory'),
            ([huge], here, 'longer than 4 MiB'),
            (['--answer-fd', '77', huge], here, '--answer-fd 77: Bad file descriptor'),
            (['--answer-fd', 'x'], here, 'answer-fd'),
            (['--nonsense'], here, '--nonsense'),
            (['--error', 'a', '--confirm', 'b'], here, 'Requires at most 1'),
            ([os.devnull], no_display, "Can't open display"),
        )
        for arguments, environment, says in rows:
            with self.subTest(arguments=arguments):
                result = subprocess.run([REPORT, *arguments], env=environment, stdin=subprocess.DEVNULL,
                                        capture_output=True, text=True, timeout=60)
                self.assertEqual((result.returncode, result.stdout), (2, ''))
                self.assertIn(says, result.stderr)
        for option, says in (('--help', 'Exit codes:'), ('--version', 'bedrock-report 1.')):
            result = subprocess.run([REPORT, option], env=no_display, capture_output=True, text=True, timeout=60)
            self.assertEqual((result.returncode, result.stderr), (0, ''))
            self.assertIn(says, result.stdout)
        os.remove(huge)
        os.rmdir(folder)

    def test_lost_display_is_no_answer(self):
        lost = screen.Screen(False)
        dialog = Dialog(lost)
        self.addCleanup(dialog.end)
        lost.close()
        self.assertEqual(dialog.answer(), ('', 2))
        self.assertIn('the display is gone', dialog.errors)


@unittest.skipUnless(FAILURES, 'the examples are not built')
class Road(OnScreen):
    """From a failure in a program to its end, by the dialog that the library finds and starts."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def end_of(self, kind, key):
        """The report that the dialog shows, and the program's output and exit code behind the answer by `key`."""
        program = subprocess.Popen([FAILURES, kind], env=self.screen.environment, cwd=self.folder,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.addCleanup(program.kill)
        window = screen.wait_until(lambda: self.screen.find('Fatal Error'), 'the dialog')[0]
        screen.wait_until(lambda: self.screen.focus() == window, 'the dialog has the focus')
        self.screen.key('ctrl+c')
        report = screen.wait_until(lambda: self.screen.paste(), 'the report is on the clipboard')
        self.assertIsNone(program.poll())
        self.screen.key(key)
        output, _ = program.communicate(timeout=30)
        screen.wait_until(lambda: not self.screen.find('Fatal Error'), 'the dialog is gone')
        return report.splitlines(), output, program.returncode

    def test_exception(self):
        for key in ('Return', 'Escape'):
            report, output, code = self.end_of('file', key)
            self.assertEqual(report[0], 'File: File')
            self.assertRegex(report[1], r'^Line: \d+$')
            self.assertEqual(report[2:], ['Class: File', 'Reason: Read() File is not open', 'No call stack available'])
            self.assertEqual((output, code), ('emergency: the game is saved\nMain gave 0\n', 0))

    def test_assertion(self):
        report, output, code = self.end_of('assertion', 'Return')
        self.assertRegex('\n'.join(report), r'^File: .*failures\.cpp\nLine: \d+\nClass: Assertion\n'
                                            r'Reason: lives >= 0\nthe player has -1 lives$')
        self.assertEqual((output, code), ('it went on\nMain gave 7\n', 0))
        _, output, code = self.end_of('assertion', 'Escape')
        self.assertEqual((output, code), ('emergency: the game is saved\nMain gave 0\n', 0))

    def test_fault(self):
        report, output, code = self.end_of('fault', 'Escape')
        self.assertEqual(report[:4], ['Class: Hardware', 'Reason: Access Violation', ' ', report[3]])
        self.assertRegex(report[3], r'^Exception @ [0-9A-F]{8,16} in .*failures$')
        self.assertIn('Call Stack:', report)
        self.assertEqual((output, code), ('emergency: the game is saved\nMain gave 0\n', 0))
        _, output, code = self.end_of('fault', 'Return')
        self.assertTrue(output.startswith('emergency: the game is saved\n'), output)
        self.assertNotIn('Main gave', output)
        if 'AddressSanitizer' not in output:  # whose handler has the fault before the system
            self.assertEqual(code, -signal.SIGSEGV)


if __name__ == '__main__':
    if screen.missing():
        print('SKIPPED: these programs are missing:', *screen.missing())
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
