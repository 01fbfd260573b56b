"""A display of a test's own: Xvfb with or without a window manager, with the user's hands and eyes."""
import ctypes
import os
import re
import shutil
import subprocess
import tempfile
import time

NEEDED = ('Xvfb', 'openbox', 'xdotool', 'xprop', 'xwininfo', 'wmctrl', 'import')


def missing():
    """Programs that are not on this machine."""
    return [name for name in NEEDED if not shutil.which(name)]


def wait_until(holds, what, seconds=20):
    """Polls until `holds()` gives something true, which is the result."""
    end = time.monotonic() + seconds
    while True:
        result = holds()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f'did not happen: {what}')
        time.sleep(0.02)


class Screen:
    """One Xvfb; `environment` is for programs that are to use it."""

    def __init__(self, managed, width=1280, height=1024):
        self.width, self.height, self.managed = width, height, managed
        reading, writing = os.pipe()
        self.server = subprocess.Popen(['Xvfb', '-displayfd', str(writing), '-screen', '0', f'{width}x{height}x24',
                                        '-nolisten', 'tcp', '-noreset'], pass_fds=[writing], stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as told:
            self.name = ':' + told.readline().strip()
        self.environment = {**os.environ, 'DISPLAY': self.name, 'LC_ALL': 'C.UTF-8'}
        self.environment.pop('BEDROCK_REPORT', None)
        self.manager = None
        if managed:
            # A window that is shown while the manager still starts can be lost: it tells when it has.
            with tempfile.TemporaryDirectory() as folder:
                started = os.path.join(folder, 'started')
                self.manager = subprocess.Popen(['openbox', '--startup', 'touch ' + started], env=self.environment,
                                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                wait_until(lambda: os.path.exists(started), 'openbox starts')

    def close(self):
        for process in (self.manager, self.server):
            if process:
                process.terminate()
                process.wait()

    def run(self, *command):
        return subprocess.run(command, env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True, timeout=60).stdout

    def find(self, title):
        """Windows of that title that can be seen."""
        return self.run('xdotool', 'search', '--onlyvisible', '--name', f'^{title}$').split()

    def geometry(self, window):
        """x, y, width and height of the client area."""
        told = self.run('xwininfo', '-id', window)
        return tuple(int(re.search(name + r':\s*(-?\d+)', told).group(1)) for name in
                     ('Absolute upper-left X', 'Absolute upper-left Y', 'Width', 'Height'))

    def focus(self):
        return self.run('xdotool', 'getwindowfocus').strip()

    def click(self, window, x, y, button=1):
        self.run('xdotool', 'mousemove', '--window', window, str(int(x)), str(int(y)), 'click', str(button))

    def key(self, *keys):
        self.run('xdotool', 'key', *keys)

    def resize(self, window, width, height):
        self.run('xdotool', 'windowsize', window, str(width), str(height))

    def pixels(self, window):
        """The client area as rows of 3 bytes a pixel."""
        _, _, width, height = self.geometry(window)
        data = subprocess.run(['import', '-silent', '-window', window, '-depth', '8', 'rgb:-'], env=self.environment,
                              stdout=subprocess.PIPE, timeout=60, check=True).stdout
        return [data[y * width * 3:(y + 1) * width * 3] for y in range(height)]

    def settled(self, window):
        """The pixels once they are the same twice."""
        before = None
        while (now := self.pixels(window)) != before:
            before = now
        return now

    def paste(self):
        """The text on the clipboard, None if nobody offers one."""
        x = ctypes.CDLL('libX11.so.6')
        x.XOpenDisplay.restype = ctypes.c_void_p
        x.XInternAtom.restype = x.XCreateSimpleWindow.restype = x.XDefaultRootWindow.restype = ctypes.c_ulong
        display = ctypes.c_void_p(x.XOpenDisplay(self.name.encode()))
        atom = {name: ctypes.c_ulong(x.XInternAtom(display, name.encode(), 0))
                for name in ('CLIPBOARD', 'UTF8_STRING', 'PASTED')}
        window = ctypes.c_ulong(x.XCreateSimpleWindow(display, ctypes.c_ulong(x.XDefaultRootWindow(display)),
                                                      0, 0, 1, 1, 0, ctypes.c_ulong(0), ctypes.c_ulong(0)))
        x.XConvertSelection(display, atom['CLIPBOARD'], atom['UTF8_STRING'], atom['PASTED'], window, ctypes.c_ulong(0))
        event = (ctypes.c_long * 24)()
        selection_notify = 31
        wait_until(lambda: x.XCheckTypedEvent(display, selection_notify, event), 'an answer to the paste')
        kind, count, rest = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.c_ulong()
        bits, data = ctypes.c_int(), ctypes.c_char_p()
        x.XGetWindowProperty(display, window, atom['PASTED'], ctypes.c_long(0), ctypes.c_long(1 << 20), 0,
                             ctypes.c_ulong(0), ctypes.byref(kind), ctypes.byref(bits), ctypes.byref(count),
                             ctypes.byref(rest), ctypes.byref(data))
        text = data.value.decode() if count.value else None
        x.XCloseDisplay(display)
        return text
