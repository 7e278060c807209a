"""pictures_test.py DOCS CAMERA_FRAME HEAT_MAP ANIMATED_GIF: the pictures in DOCS are, pixel by
pixel, what these example programs make today. The frames of the GIF stand there four in a row,
five pixels apart."""
import subprocess
import sys
import tempfile

from PIL import Image, ImageChops

docs, camera_frame, heat_map, animated_gif = sys.argv[1:]


def check(name, shown, made):
    if shown.size != made.size or ImageChops.difference(shown, made).getbbox():
        sys.exit(f"{name}: docs/ shows another picture")


def rgb(path):
    return Image.open(path).convert("RGB")


with tempfile.TemporaryDirectory() as folder:
    for name, program in (("camera_frame", camera_frame), ("heat_map", heat_map)):
        subprocess.run([program, f"{folder}/{name}.bmp"], check=True)
        check(name, rgb(f"{docs}/{name}.png"), rgb(f"{folder}/{name}.bmp"))
    subprocess.run([animated_gif, "-", folder], check=True)
    sheet = rgb(f"{docs}/animated_gif.png")
    for i in range(8):
        frame = rgb(f"{folder}/frame_{i}.bmp")
        left, top = i % 4 * (frame.width + 5), i // 4 * (frame.height + 5)
        shown = sheet.crop((left, top, left + frame.width, top + frame.height))
        check(f"animated_gif, frame {i}", shown, frame)
