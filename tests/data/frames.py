#!/usr/bin/python3
"""Masters of the test frames, as 8-bit PNG (converted to raw frames by make-test-frames.sh).

  frames.py photo SRC SCALE X Y W H OUT.png   resize SRC by SCALE (Lanczos), crop W x H at X,Y
  frames.py screen OUT.png                    render the 1920x1080 screen-like frame (RGBA)
  frames.py crop IN.png X Y W H OUT.png       crop W x H at X,Y, keeping the mode (RGBA stays RGBA)
  frames.py rgb565 IN.png OUT.rgb565          RGB565 little-endian, each channel rounded to nearest
                                              (no dither; alpha, if any, is dropped)

The photos and the screen are the ones of the project's 1920x1080 real-content frames: a crop
here is the same pixels as that frame's crop.

The screen is drawn at 2x with straight colours plus an alpha map, premultiplied,
then box-filtered to 1x, so flat areas stay exactly flat and edges are antialiased.
Its RGBA is premultiplied: R,G,B <= A, and fully transparent pixels are 0,0,0,0.
"""
import sys
import numpy as np
from PIL import Image, ImageDraw, ImageFilter, ImageFont

Image.MAX_IMAGE_PIXELS = None
FONTS = "/usr/share/fonts/truetype/dejavu/"
SKDATA = "/usr/lib/python3/dist-packages/skimage/data/"
S = 2                      # supersampling factor
W, H = 1920, 1080


def photo(src, scale, x, y, w, h, out):
    im = Image.open(src).convert("RGB")
    size = (round(im.width * float(scale)), round(im.height * float(scale)))
    im = im.resize(size, Image.LANCZOS)
    x, y, w, h = int(x), int(y), int(w), int(h)
    assert x + w <= im.width and y + h <= im.height, (size, x, y, w, h)
    im.crop((x, y, x + w, y + h)).save(out)


def crop(src, x, y, w, h, out):
    im = Image.open(src)
    x, y, w, h = int(x), int(y), int(w), int(h)
    assert x + w <= im.width and y + h <= im.height, (im.size, x, y, w, h)
    im.crop((x, y, x + w, y + h)).save(out)


def rgb565(src, out):
    rgb = np.asarray(Image.open(src).convert("RGBA"), dtype=np.uint32)[..., :3]
    r, g, b = ((rgb[..., i] * m + 127) // 255 for i, m in enumerate((31, 63, 31)))
    ((r << 11) | (g << 5) | b).astype("<u2").tofile(out)


class Canvas:
    """Straight-colour RGB image plus alpha map, both at S x resolution; coordinates in 1x units."""

    def __init__(self, bg):
        self.rgb = Image.new("RGB", (W * S, H * S), bg)
        self.alpha = Image.new("L", (W * S, H * S), 255)
        self.d = ImageDraw.Draw(self.rgb)
        self.a = ImageDraw.Draw(self.alpha)

    def box(self, x0, y0, x1, y1, fill, r=0, alpha=None):
        xy = [x0 * S, y0 * S, x1 * S - 1, y1 * S - 1]
        self.d.rounded_rectangle(xy, r * S, fill=fill)
        if alpha is not None:
            self.a.rounded_rectangle(xy, r * S, fill=alpha)

    def circle(self, cx, cy, r, fill, alpha=None):
        xy = [(cx - r) * S, (cy - r) * S, (cx + r) * S - 1, (cy + r) * S - 1]
        self.d.ellipse(xy, fill=fill)
        if alpha is not None:
            self.a.ellipse(xy, fill=alpha)

    def text(self, x, y, s, size, fill, bold=False, anchor="la", alpha=None):
        font = ImageFont.truetype(FONTS + ("DejaVuSans-Bold.ttf" if bold else "DejaVuSans.ttf"), size * S)
        self.d.text((x * S, y * S), s, font=font, fill=fill, anchor=anchor)
        if alpha is not None:
            self.a.text((x * S, y * S), s, font=font, fill=alpha, anchor=anchor)
        return self.d.textlength(s, font=font) / S

    def shadow(self, x0, y0, x1, y1, r, blur, strength):
        """Soft drop shadow darkening the (opaque) colour underneath."""
        m = Image.new("L", self.rgb.size, 0)
        ImageDraw.Draw(m).rounded_rectangle([x0 * S, y0 * S, x1 * S, y1 * S], r * S, fill=strength)
        m = m.filter(ImageFilter.GaussianBlur(blur * S))
        self.rgb = Image.composite(Image.new("RGB", m.size, (0, 0, 0)), self.rgb, m)
        self.d = ImageDraw.Draw(self.rgb)

    def picture(self, path, x0, y0, w, h, r=0):
        """Downscaled (never upscaled) centre crop of a photo, top corners rounded."""
        im = Image.open(path).convert("RGB")
        k = max(w / im.width, h / im.height)
        assert k <= 1.0, "would upscale " + path
        im = im.resize((round(im.width * k), round(im.height * k)), Image.LANCZOS)
        left, top = (im.width - w) // 2, (im.height - h) // 2
        im = im.crop((left, top, left + w, top + h)).resize((w * S, h * S), Image.NEAREST)
        mask = Image.new("L", im.size, 0)
        ImageDraw.Draw(mask).rounded_rectangle([0, 0, w * S - 1, h * S - 1], r * S, fill=255)
        ImageDraw.Draw(mask).rectangle([0, h * S // 2, w * S - 1, h * S - 1], fill=255)
        self.rgb.paste(im, (x0 * S, y0 * S), mask)

    def gradient_alpha(self, x0, y0, x1, y1, a_top, a_bottom):
        g = np.linspace(a_top, a_bottom, (y1 - y0) * S)[:, None].repeat((x1 - x0) * S, 1)
        self.alpha.paste(Image.fromarray(g.round().astype(np.uint8)), (x0 * S, y0 * S))

    def save(self, out):
        rgb = np.asarray(self.rgb, dtype=np.float64)
        a = np.asarray(self.alpha, dtype=np.float64)[..., None]
        rgba = np.concatenate([rgb * a / 255.0, a], axis=2)          # premultiply
        rgba = rgba.reshape(H, S, W, S, 4).mean(axis=(1, 3))          # box filter S x S
        Image.fromarray(np.clip(rgba.round(), 0, 255).astype(np.uint8), "RGBA").save(out)


def status_bar(c, fg, bg):
    c.box(0, 0, W, 40, bg)
    c.text(24, 20, "12:45", 20, fg, bold=True, anchor="lm")
    c.text(100, 20, "Wed 14 May", 18, fg, anchor="lm")
    for i in range(4):                                   # signal bars
        c.box(1716 + i * 9, 28 - i * 5, 1722 + i * 9, 30, fg)
    c.d.pieslice([1766 * S, 6 * S, 1798 * S, 38 * S], 225, 315, fill=fg)   # signal wedge
    c.box(1812, 11, 1852, 29, fg, r=4)                   # battery
    c.box(1815, 14, 1849, 26, bg, r=2)
    c.box(1817, 16, 1844, 24, fg, r=1)
    c.box(1853, 16, 1856, 24, fg)
    c.text(1896, 20, "87%", 16, fg, anchor="rm")


def screen(out):
    c = Canvas((243, 244, 246))
    status_bar(c, (255, 255, 255), (31, 41, 55))

    # navigation rail
    c.box(0, 40, 88, H, (255, 255, 255))
    c.box(87, 40, 88, H, (229, 231, 235))
    rail = [((37, 99, 235), "H"), ((16, 185, 129), "P"), ((245, 158, 11), "M"),
            ((239, 68, 68), "V"), ((139, 92, 246), "S"), ((107, 114, 128), "?")]
    for i, (col, g) in enumerate(rail):
        y = 96 + i * 84
        if i == 1:
            c.box(12, y - 30, 76, y + 30, (219, 234, 254), r=16)
        c.circle(44, y, 20, col)
        c.text(44, y, g, 20, (255, 255, 255), bold=True, anchor="mm")

    # header with search field and avatar
    c.text(112, 88, "Gallery", 34, (17, 24, 39), bold=True, anchor="lm")
    c.box(420, 62, 1180, 114, (255, 255, 255), r=26)
    c.circle(452, 88, 9, (156, 163, 175))
    c.circle(452, 88, 6, (255, 255, 255))
    c.text(476, 88, "Search photos, places, people", 20, (107, 114, 128), anchor="lm")
    c.circle(1380, 88, 24, (236, 72, 153))
    c.text(1380, 88, "JD", 18, (255, 255, 255), bold=True, anchor="mm")

    # cards with downscaled sample photos
    cards = [("astronaut.png", "Portrait", "Studio shot, flash", "512 x 512 · 1 day ago"),
             ("coffee.png", "Espresso", "Cafe table, window light", "600 x 400 · 2 days ago"),
             ("chelsea.png", "Cat", "Close-up, f/2.8", "451 x 300 · last week"),
             ("rocket.jpg", "Launch pad", "Night, long exposure", "640 x 427 · March")]
    for i, (img, title, l1, l2) in enumerate(cards):
        x = 112 + i * 320
        c.shadow(x, 144, x + 300, 520, 16, 6, 60)
        c.box(x, 140, x + 300, 516, (255, 255, 255), r=16)
        c.picture(SKDATA + img, x, 140, 300, 200, r=16)
        c.text(x + 20, 372, title, 22, (17, 24, 39), bold=True, anchor="lm")
        c.text(x + 20, 404, l1, 16, (75, 85, 99), anchor="lm")
        c.text(x + 20, 430, l2, 14, (107, 114, 128), anchor="lm")
        c.box(x + 20, 460, x + 120, 496, (37, 99, 235), r=18)
        c.text(x + 70, 478, "Share", 16, (255, 255, 255), bold=True, anchor="mm")
        c.box(x + 132, 460, x + 220, 496, (243, 244, 246), r=18)
        c.text(x + 176, 478, "Edit", 16, (31, 41, 55), anchor="mm")

    # message list: dense antialiased text, avatars, dividers
    c.box(112, 548, 1392, 1000, (255, 255, 255), r=16)
    msgs = [("Trip album", "Photos from the trip are up, check the album called Coast", "09:41"),
            ("Build bot", "Nightly #4821 passed: 1,204 tests, 0 failures, 3 skipped", "09:12"),
            ("Team lunch", "Table for eight at 12:30, near the window?", "08:57"),
            ("Family", "Call me when you land, see you soon x", "Yesterday"),
            ("Calendar", "Design review moved to Thursday 15:00 (room 4B)", "Yesterday"),
            ("Accounts", "Invoice INV-2024-0087 attached, total EUR 1,348.20", "Mon"),
            ("Parcel", "Your order #A77-193 is out for delivery, arriving 14-16h", "Mon"),
            ("Station pickup", "ok :) see you at the station, platform 9", "Sun")]
    colours = [(59, 130, 246), (16, 185, 129), (245, 158, 11), (236, 72, 153),
               (139, 92, 246), (20, 184, 166), (249, 115, 22), (100, 116, 139)]
    for i, (who, what, when) in enumerate(msgs):
        y = 584 + i * 54
        c.circle(152, y, 20, colours[i])
        c.text(152, y, who[0], 18, (255, 255, 255), bold=True, anchor="mm")
        c.text(188, y - 10, who, 18, (17, 24, 39), bold=True, anchor="lm")
        c.text(188, y + 12, what, 16, (75, 85, 99), anchor="lm")
        c.text(1368, y - 10, when, 14, (107, 114, 128), anchor="rm")
        if i == 1:
            c.circle(1358, y + 12, 10, (37, 99, 235))
            c.text(1358, y + 12, "3", 12, (255, 255, 255), bold=True, anchor="mm")
        if i < len(msgs) - 1:
            c.box(188, y + 27, 1368, y + 28, (229, 231, 235))

    # right panel: video cut-out (alpha 0) with a gradient scrim and opaque controls
    c.box(1420, 140, 1896, 1000, (255, 255, 255), r=16)
    c.text(1440, 172, "Now playing", 22, (17, 24, 39), bold=True, anchor="lm")
    c.box(1440, 200, 1876, 446, (0, 0, 0), r=14, alpha=0)
    c.gradient_alpha(1440, 340, 1876, 446, 0, 200)
    hole = Image.new("L", c.alpha.size, 0)                  # keep the hole's rounded corners opaque
    ImageDraw.Draw(hole).rectangle([1440 * S, 200 * S, 1876 * S - 1, 446 * S - 1], fill=255)
    ImageDraw.Draw(hole).rounded_rectangle([1440 * S, 200 * S, 1876 * S - 1, 446 * S - 1], 14 * S, fill=0)
    c.alpha.paste(255, mask=hole)
    c.text(1460, 404, "Launch pad, 02:13 / 05:40", 18, (255, 255, 255), alpha=255, anchor="lm")
    c.box(1460, 426, 1856, 430, (255, 255, 255), alpha=120)
    c.box(1460, 426, 1620, 430, (239, 68, 68), alpha=255)
    c.circle(1620, 428, 7, (239, 68, 68), alpha=255)

    settings = [("Network", "HomeNet-5G", True), ("Headphones", "2 devices", True),
                ("Do not disturb", "Until 07:00", False), ("Battery saver", "At 15%", False),
                ("Auto-rotate", "Off", False), ("Location", "High accuracy", True)]
    for i, (name, sub, on) in enumerate(settings):
        y = 500 + i * 80
        c.text(1440, y - 12, name, 20, (17, 24, 39), anchor="lm")
        c.text(1440, y + 14, sub, 15, (107, 114, 128), anchor="lm")
        c.box(1806, y - 14, 1862, y + 14, (37, 99, 235) if on else (209, 213, 219), r=14)
        c.circle(1848 if on else 1820, y, 11, (255, 255, 255))
        if i < len(settings) - 1:
            c.box(1440, y + 39, 1876, y + 40, (229, 231, 235))

    # translucent bottom navigation bar with opaque icons and a gesture pill
    c.box(88, 1012, W, H, (255, 255, 255), alpha=217)
    for i, label in enumerate(["Home", "Albums", "Search", "Shared", "Library"]):
        x = 300 + i * 330
        c.circle(x, 1034, 12, (37, 99, 235) if i == 1 else (75, 85, 99), alpha=255)
        c.text(x, 1060, label, 14, (31, 41, 55), alpha=255, anchor="mm")
    c.box(900, 1072, 1020, 1077, (17, 24, 39), r=3, alpha=255)
    c.save(out)


if __name__ == "__main__":
    cmd, args = sys.argv[1], sys.argv[2:]
    {"photo": photo, "screen": screen, "crop": crop, "rgb565": rgb565}[cmd](*args)
