#!/usr/bin/env python3
"""Makes the images of this folder, each in another format that Bedrock reads. Needs Python alone.

    ./generate.py [FOLDER]

Equal runs give equal files. The two JPEG images were made once from images of the same functions:
    ./generate.py --jpeg-sources /tmp/x && convert /tmp/x/clouds.tga -quality 90 clouds.jpg   (likewise lagoon.jpeg)
"""
import math
import os
import random
import struct
import sys


def clamp(value):
    return 0 if value < 0 else 255 if value > 255 else int(value + 0.5)


def mix(a, b, t):
    return tuple(x + (y - x) * t for x, y in zip(a, b))


def ramp(stops, t):
    """Colour at `t` (0 to 1) of a gradient with equally spaced stops."""
    t = min(max(t, 0.0), 1.0) * (len(stops) - 1)
    i = min(int(t), len(stops) - 2)
    return mix(stops[i], stops[i + 1], t - i)


class Noise:
    """Smooth value noise with a period, so that it wraps around a sphere."""

    def __init__(self, seed, period=32):
        rand = random.Random(seed)
        self.period = period
        self.grid = [[rand.random() for _ in range(period)] for _ in range(period)]

    def at(self, x, y):
        x0, y0 = math.floor(x), math.floor(y)
        fx, fy = x - x0, y - y0
        fx, fy = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
        p = self.period
        top, bottom = self.grid[y0 % p], self.grid[(y0 + 1) % p]
        a = top[x0 % p] + (top[(x0 + 1) % p] - top[x0 % p]) * fx
        b = bottom[x0 % p] + (bottom[(x0 + 1) % p] - bottom[x0 % p]) * fx
        return a + (b - a) * fy

    def octaves(self, x, y, n=4):
        total, weight, sum_of_weights = 0.0, 1.0, 0.0
        for _ in range(n):
            total += weight * self.at(x, y)
            sum_of_weights += weight
            x, y, weight = 2 * x, 2 * y, weight / 2
        return total / sum_of_weights


# Each image: a function of column and row that gives (red, green, blue, alpha), 0 to 255.

def planet(width, height):
    """A textured, lit sphere with soft edges over nothing."""
    noise = Noise(7)
    light = (-0.5, -0.55, 0.67)
    sea, land = [(8, 24, 74), (16, 74, 140), (60, 150, 190)], [(196, 180, 120), (62, 120, 52), (34, 74, 40), (240, 244, 248)]

    def pixel(column, row):
        x, y = (2 * column + 1) / width - 1, (2 * row + 1) / height - 1
        r = math.hypot(x, y) / 0.94
        edge = (1 - r) * 0.94 * width / 2
        if edge <= -0.5:
            return 0, 0, 0, 0
        x, y = x / 0.94, y / 0.94
        z = math.sqrt(max(0.0, 1 - x * x - y * y))
        u, v = math.atan2(x, z) / math.pi * 16, math.asin(max(-1, min(1, y))) / math.pi * 16
        h = noise.octaves(u + 9, v + 20, 5)
        colour = ramp(sea, h / 0.52) if h < 0.52 else ramp(land, (h - 0.52) / 0.3)
        shade = max(0.0, x * light[0] + y * light[1] + z * light[2])
        glint = shade ** 40 * (90 if h < 0.52 else 10)
        colour = [c * (0.06 + 0.94 * shade) + glint for c in colour]
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), clamp(255 * min(1, edge + 0.5))
    return pixel


def rings(width, height):
    """Interference of two sources of waves."""
    def pixel(column, row):
        a = math.hypot(column - 0.3 * width, row - 0.4 * height)
        b = math.hypot(column - 0.72 * width, row - 0.62 * height)
        t = 0.5 + 0.25 * (math.sin(a / 5.5) + math.sin(b / 5.5))
        colour = ramp([(12, 6, 40), (70, 20, 110), (210, 60, 110), (255, 170, 90), (255, 246, 210)], t)
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), 255
    return pixel


def spectrum(width, height):
    """Hue along the columns, brightness along the rows."""
    def pixel(column, row):
        hue, value = 6 * column / width, row / (height - 1)
        colour = [255 * min(1, max(0, abs((hue - k) % 6 - 3) - 1)) for k in (0, 2, 4)]
        colour = mix((255, 255, 255), colour, min(1, 2 * value)) if value < 0.5 else mix(colour, (0, 0, 0), 2 * value - 1)
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), 255
    return pixel


def plasma(width, height):
    """The sum of four sines, as an index."""
    def index(column, row):
        x, y = column / width * 8, row / height * 8
        s = math.sin(x) + math.sin(y + 1) + math.sin((x + y) * 0.7) + math.sin(math.hypot(x - 4, y - 3) * 1.5)
        return clamp((s + 4) / 8 * 255)
    palette = [tuple(clamp(127.5 + 127.5 * math.sin(math.pi * i / 64 + shift)) for shift in (0, 2.1, 4.2)) for i in range(256)]
    return index, palette


def tiles(width, height):
    """Bevelled stone tiles."""
    noise = Noise(21)
    cell = 32

    def pixel(column, row):
        shift = cell // 2 if row // cell % 2 else 0
        x, y = (column + shift) % cell, row % cell
        inset = min(x, y, cell - 1 - x, cell - 1 - y)
        tint = Noise.at(noise, (column + shift) // cell * 3.7 + 0.5, row // cell * 5.3 + 0.5)
        grain = noise.octaves(column / 9, row / 9, 4)
        colour = mix(mix((150, 118, 92), (112, 120, 128), tint), (60, 52, 48), 0.7 * grain)
        light = 1.0 if inset > 2 else 1.3 if min(x, y) <= 2 and min(x, y) == inset else 0.7
        colour = (34, 31, 30) if inset == 0 else [c * light for c in colour]
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), 255
    return pixel


def fractal(width, height):
    """A corner of the Mandelbrot set, as an index."""
    def index(column, row):
        cx, cy = -0.7435 + (column / width - 0.5) * 0.012, 0.1314 + (row / height - 0.5) * 0.012
        x = y = 0.0
        for i in range(255):
            xx, yy = x * x, y * y
            if xx + yy > 16:
                return i + 1
            x, y = xx - yy + cx, 2 * x * y + cy
        return 0
    stops = [(0, 7, 100), (32, 107, 203), (237, 255, 255), (255, 170, 0), (80, 20, 10), (0, 7, 100)]
    palette = [(0, 0, 0)] + [tuple(clamp(c) for c in ramp(stops, (i * 2.2 / 255) % 1.0)) for i in range(1, 256)]
    return index, palette


def dunes(width, height):
    """Ridges under an evening sky, as an index: 0 to 127 sky, 128 to 255 sand."""
    noise = Noise(5)

    def index(column, row):
        value = 127 * row / (0.62 * height)
        for ridge in range(5):
            line = height * (0.42 + 0.12 * ridge) - 26 * noise.at(column / (70 - 8 * ridge) + 11 * ridge, 3.5 * ridge)
            if row >= line:
                value = 250 - 24 * ridge - min(20, (row - line) * 0.45)
        return clamp(value)
    sky = [(28, 22, 66), (92, 44, 110), (214, 92, 92), (255, 184, 106)]
    sand = [(44, 20, 34), (110, 54, 44), (186, 104, 62), (240, 186, 120)]
    palette = [tuple(clamp(c) for c in ramp(sky, i / 127)) for i in range(128)]
    palette += [tuple(clamp(c) for c in ramp(sand, i / 127)) for i in range(128)]
    return index, palette


def clouds(width, height):
    noise = Noise(99)

    def pixel(column, row):
        t = noise.octaves(column / 56, row / 40, 6)
        sky = ramp([(38, 92, 170), (120, 176, 226)], row / height)
        colour = mix(sky, (252, 250, 246), min(1, max(0, (t - 0.42) * 3.4)))
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), 255
    return pixel


def lagoon(width, height):
    noise = Noise(1234)

    def pixel(column, row):
        x, y = column / 38, row / 38
        x, y = x + 1.6 * noise.octaves(x + 5, y, 3), y + 1.6 * noise.octaves(x, y + 5, 3)
        t = noise.octaves(x, y, 5)
        colour = ramp([(4, 36, 60), (8, 92, 110), (30, 160, 150), (150, 220, 180), (240, 226, 176)], (t - 0.2) * 1.7)
        return clamp(colour[0]), clamp(colour[1]), clamp(colour[2]), 255
    return pixel


def raster(width, height, function):
    return [[function(column, row) for column in range(width)] for row in range(height)]


def tga(image_type, width, height, depth, descriptor, colour_map=b'', ident=b''):
    return struct.pack('<BBBHHBHHHHBB', len(ident), 1 if colour_map else 0, image_type, 0, 256 if colour_map else 0,
                       24 if colour_map else 0, 0, 0, width, height, depth, descriptor) + ident + colour_map


def tga32(width, height, function):
    rows = raster(width, height, function)
    return tga(2, width, height, 32, 0x28) + b''.join(bytes((b, g, r, a)) for row in rows for r, g, b, a in row)


def tga24(width, height, function):
    rows = raster(width, height, function)[::-1]  # the bottom row first
    return tga(2, width, height, 24, 0, ident=b'made by generate.py') + b''.join(
        bytes((b, g, r)) for row in rows for r, g, b, _ in row)


def tga16(width, height, function):
    rows = raster(width, height, function)
    return tga(2, width, height, 16, 0x20) + b''.join(
        struct.pack('<H', r >> 3 << 10 | g >> 3 << 5 | b >> 3) for row in rows for r, g, b, _ in row)


def tga8(width, height, function, palette):
    rows = raster(width, height, function)
    return tga(1, width, height, 8, 0x20, b''.join(bytes(c) for c in palette)) + b''.join(bytes(row) for row in rows)


def bmp(width, height, depth, palette, pixels):
    offset = 54 + len(palette)
    return struct.pack('<HIIIIiiHHIIIIII', 0x4D42, offset + len(pixels), 0, offset, 40, width, height, 1, depth, 0,
                       len(pixels), 2835, 2835, 256 if palette else 0, 0) + palette + pixels


def bmp24(width, height, function):
    rows = raster(width, height, function)[::-1]
    return bmp(width, height, 24, b'', b''.join(bytes((b, g, r)) for row in rows for r, g, b, _ in row))


def bmp8(width, height, function, palette):
    rows = raster(width, height, function)[::-1]
    return bmp(width, height, 8, b''.join(bytes((b, g, r, 0)) for r, g, b in palette), b''.join(map(bytes, rows)))


def pcx(width, height, function, palette):
    data = bytearray()
    for row in raster(width, height, function):
        at = 0
        while at < width:
            run = 1
            while at + run < width and run < 63 and row[at + run] == row[at]:
                run += 1
            if run > 1 or row[at] >= 0xC0:
                data.append(0xC0 | run)
            data.append(row[at])
            at += run
    header = struct.pack('<BBBBHHHHHH48xBBHH58x', 10, 5, 1, 8, 0, 0, width - 1, height - 1, 72, 72, 0, 1, width, 1)
    return header + bytes(data) + b'\x0C' + b''.join(bytes(c) for c in palette)


def main():
    arguments = sys.argv[1:]
    sources = '--jpeg-sources' in arguments
    arguments = [a for a in arguments if not a.startswith('-')]
    folder = arguments[0] if arguments else os.path.dirname(os.path.abspath(__file__))
    w, h = 256, 256
    if sources:
        images = {'clouds.tga': tga24(320, 200, clouds(320, 200)), 'lagoon.tga': tga24(320, 200, lagoon(320, 200))}
    else:
        images = {
            'planet.tga': tga32(w, h, planet(w, h)),
            'rings.tga': tga24(w, 192, rings(w, 192)),
            'spectrum.tga': tga16(w, 128, spectrum(w, 128)),
            'plasma.tga': tga8(w, h, *plasma(w, h)),
            'tiles.bmp': bmp24(w, 192, tiles(w, 192)),
            'fractal.bmp': bmp8(w, h, *fractal(w, h)),
            'dunes.pcx': pcx(320, 200, *dunes(320, 200)),
        }
    os.makedirs(folder, exist_ok=True)
    for name, data in images.items():
        with open(os.path.join(folder, name), 'wb') as out:
            out.write(data)
        print(f'{name}: {len(data)} bytes')


if __name__ == '__main__':
    main()
