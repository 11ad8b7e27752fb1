"""Reads a picture of the gain plot back, knowing nothing of the program that drew it."""

import subprocess

import numpy

GUTTER = 10  # points between the frame and the outermost ticks


class Picture:
    """Pixels of a picture file, or of a window on a screenshot (its upper left corner)."""

    def __init__(self, source, scale=1, size=(792, 612)):
        self.scale = scale  # pixels a point
        self.width, self.height = (n * scale for n in size)
        raw = subprocess.run(["convert", source, "-depth", "8", "-crop",
                              f"{self.width}x{self.height}+0+0", "+repage", "rgb:-"],
                             check=True, capture_output=True).stdout
        assert len(raw) == 3 * self.width * self.height, f"{source}: not a page of {size} points"
        pixels = numpy.frombuffer(raw, dtype=numpy.uint8).reshape(self.height, self.width, 3)
        self.pixels = pixels.transpose(1, 0, 2)  # by x, y
        self.black = self.pixels.max(axis=2) < 60
        self.red = ((self.pixels[..., 0] > 180) & (self.pixels[..., 1] < 60)
                    & (self.pixels[..., 2] < 70))

    def frame(self):
        """Left, right, top and bottom pixel of the frame: the outermost long black lines."""
        tall = numpy.flatnonzero(self.black.sum(axis=1) > self.height / 2)
        wide = numpy.flatnonzero(self.black.sum(axis=0) > self.width / 2)
        assert tall.size and wide.size, "no frame"
        return tall[0], tall[-1], wide[0], wide[-1]


def check(picture, first, last, marks):
    """The picture shows exactly these marks, (BPM, gain), on axes first..last and 0.8..1.2."""
    left, right, top, bottom = picture.frame()
    gutter = GUTTER * picture.scale
    slack = 2 * picture.scale
    assert (picture.pixels[1, 1] == 255).all(), "the paper is not white"

    def x_of(bpm):
        return left + gutter + (bpm - first) / (last - first) * (right - left - 2 * gutter)

    def y_of(gain):
        return bottom - gutter - (gain - 0.8) / 0.4 * (bottom - top - 2 * gutter)

    # Ticks grow from the frame inwards.
    inwards = range(0, 5 * picture.scale)
    near = range(-slack, slack + 1)
    for bpm in (first, last):
        x = round(x_of(bpm))
        assert any(all(picture.black[x + dx, bottom - d] for d in inwards) for dx in near), (
            f"no tick at BPM {bpm}")
    for gain in (0.8, 0.9, 1.0, 1.1, 1.2):
        y = round(y_of(gain))
        assert any(all(picture.black[left + d, y + dy] for d in inwards) for dy in near), (
            f"no tick at gain {gain}")

    # Every mark is there, and nothing red is anywhere else.
    unexplained = picture.red.copy()
    arm = range(-2 * picture.scale, 2 * picture.scale + 1)
    reach = 7 * picture.scale
    for bpm, gain in marks:
        x, y = round(x_of(bpm)), round(y_of(gain))
        assert any(all(picture.red[x + dx + d, y + dy] and picture.red[x + dx, y + dy + d]
                       for d in arm) for dx in near for dy in near), (
            f"no mark at BPM {bpm}, gain {gain}")
        unexplained[x - reach:x + reach + 1, y - reach:y + reach + 1] = False
    stray = numpy.argwhere(unexplained)
    assert not stray.size, f"red beside the marks: {stray[:5].tolist()}"
