#!/usr/bin/env python3
"""tarn record beside the ffmpeg program: the same raw 1080p60 frames, the same encoder settings.

Motion JPEG comes from another encoder than ffmpeg's, at a like quality: compare the files' sizes too.

Runs alternate, so that whatever else the machine does falls on both alike; medians are compared.
Usage: record_beside_ffmpeg.py [ROUNDS] [FRAMES]
"""
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
TARN = ROOT / "build/release/bin/tarn"
CLIP = ROOT / "build/clips/photo_1080p60.mkv"

X264 = ["-c:v", "libx264", "-profile:v", "high", "-preset", "veryfast", "-threads", "4", "-b:v", "10000k",
        "-maxrate", "10000k", "-bufsize", "10000k", "-bf", "0", "-g", "30"]
MJPEG = ["-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p"]
MPEG2 = ["-c:v", "mpeg2video", "-b:v", "15000k", "-maxrate", "15000k", "-bufsize", "9781248", "-g", "240",
         "-bf", "2", "-threads", "2"]
KINDS = {
    "x264 veryfast": (["--video", "x264", "--bitrate", "10000"], X264),
    "Motion JPEG": (["--video", "MJPEG", "--quality", "mjpeg_high"], MJPEG),
    "MPEG-2": (["--video", "Mpeg2", "--bitrate", "15000"], MPEG2),
}


def run(words: list[str]) -> tuple[float, float, float]:
    """Seconds, CPU seconds and peak megabytes of one process."""
    start = time.monotonic()
    process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
    error = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{words[0]} failed: {error.decode()[-400:]}")
    return time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def main() -> None:
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    frames = int(sys.argv[2]) if len(sys.argv) > 2 else 180
    with tempfile.TemporaryDirectory() as folder:
        raw = f"{folder}/raw.y4m"
        subprocess.run(["ffmpeg", "-v", "error", "-i", str(CLIP), "-frames:v", str(frames), "-pix_fmt", "yuv420p", raw],
                       check=True)
        print(f"{frames} frames of 1080p60, {rounds} alternating runs; medians")
        print(f"{'':16}{'tarn fps':>10}{'ffmpeg fps':>12}{'ratio':>8}{'CPU ms/frame':>16}{'peak MB':>14}{'file MB':>14}")
        for name, (ours, theirs) in KINDS.items():
            mine, other = [], []
            for _ in range(rounds):
                mine.append(run([str(TARN), "record", raw, f"{folder}/a.mov", "--audio", "none", *ours]))
                other.append(run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-i", raw, *theirs, "-an", f"{folder}/b.mov"]))
            a, b = ([statistics.median(row[i] for row in rows) for i in range(3)] for rows in (mine, other))
            sizes = [os.path.getsize(f"{folder}/{n}.mov") / 1e6 for n in "ab"]
            print(f"{name:16}{frames / a[0]:10.1f}{frames / b[0]:12.1f}{b[0] / a[0]:8.2f}"
                  f"{a[1] * 1000 / frames:8.1f} / {b[1] * 1000 / frames:<5.1f}{a[2]:7.0f} / {b[2]:<5.0f}"
                  f"{sizes[0]:7.1f} / {sizes[1]:<5.1f}")


main()
