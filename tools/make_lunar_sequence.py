#!/usr/bin/python3
"""Cuts a registration test sequence from the lunar surface mosaic of
Debian's stellarium-data package: a reference picture and N sources showing
the same region turned by up to --max-angle degrees about its centre and
moved by up to --max-shift whole pixels, as 24-bit BMP files, with truth.txt.

    sudo apt-get install stellarium-data python3-pil
    tools/make_lunar_sequence.py --out moon
    build/kelvarion_bench --sequence moon
"""
import argparse
import os
import random
import sys

TEXTURE = "/usr/share/stellarium/textures/moon_4k.jpg"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", default="moon", help="output directory (moon)")
    parser.add_argument("--count", type=int, default=5, help="number of sources (5)")
    parser.add_argument("--width", type=int, default=1280, help="picture width (1280)")
    parser.add_argument("--height", type=int, default=960, help="picture height (960)")
    parser.add_argument("--seed", type=int, default=1, help="poses seed (1)")
    parser.add_argument("--max-angle", type=float, default=3.0, help="largest angle, degrees (3)")
    parser.add_argument("--max-shift", type=int, default=30, help="largest shift, pixels (30)")
    parser.add_argument("--texture", default=TEXTURE, help="lunar mosaic (%s)" % TEXTURE)
    args = parser.parse_args()
    try:
        from PIL import Image
    except ImportError:
        sys.exit("make_lunar_sequence: Python's PIL is missing (Debian: apt-get install python3-pil)")
    if not os.path.isfile(args.texture):
        sys.exit("make_lunar_sequence: no lunar mosaic at %s (Debian: apt-get install stellarium-data)"
                 % args.texture)

    mosaic = Image.open(args.texture).convert("RGB")
    # A region large enough for every turn and shift to stay inside the
    # mosaic, so no source has an empty border.
    margin = int((args.width + args.height) * 0.06) + args.max_shift + 4
    region_w, region_h = args.width + 2 * margin, args.height + 2 * margin
    if region_w > mosaic.width or region_h > mosaic.height:
        sys.exit("make_lunar_sequence: %d x %d is too large for the mosaic" % (args.width, args.height))
    left = (mosaic.width - region_w) // 3  # textured highlands away from the poles
    top = (mosaic.height - region_h) // 2
    region = mosaic.crop((left, top, left + region_w, top + region_h))

    os.makedirs(args.out, exist_ok=True)
    region.crop((margin, margin, margin + args.width, margin + args.height)).save(
        os.path.join(args.out, "reference.bmp"))
    rng = random.Random(args.seed)
    lines = ["# index angle_degrees dx dy: the region turned about its centre, then moved"]
    for i in range(1, args.count + 1):
        angle = round(rng.uniform(-args.max_angle, args.max_angle), 1) or 0.0  # no "-0.0"
        dx = rng.randint(-args.max_shift, args.max_shift)
        dy = rng.randint(-args.max_shift, args.max_shift)
        turned = region.rotate(angle, resample=Image.BICUBIC)
        box = (margin + dx, margin + dy, margin + dx + args.width, margin + dy + args.height)
        turned.crop(box).save(os.path.join(args.out, "src%d.bmp" % i))
        lines.append("%d %.1f %d %d" % (i, angle, dx, dy))
    with open(os.path.join(args.out, "truth.txt"), "w") as truth:
        truth.write("\n".join(lines) + "\n")
    print("%d sources in %s" % (args.count, args.out))


if __name__ == "__main__":
    main()
