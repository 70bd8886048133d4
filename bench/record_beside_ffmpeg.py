#!/usr/bin/env python3
"""tarn record beside the ffmpeg program: the same raw 1080p60 frames, the same encoder settings.

Frames are planar 4:2:0, which encoders take as it is, and what hosts have: packed 4:2:2 from capture
cards and BGRA from rendering, which both programs convert, to the same matrix and range.

Motion JPEG comes from another encoder than ffmpeg's, at a like quality: compare the files' sizes too.
Where the encoder is the same, a bare loop over it shows what it takes with little around it: the
loop reads planar frames and encodes on one thread, and writes nothing.

The programs run in turns, each turn in an order drawn anew, so that whatever else the machine does
falls on all alike. "x ffmpeg" is the median of the turns' own ratios.

Instead of time, "instructions" counts what each program executes outside the kernel, with valgrind:
within a hundredth the same from run to run, whatever else the machine does (an encoder of several
threads decides by what is ready). Of each program it tells what the library that encodes takes, what
loading the program takes, which a longer clip makes small, and what is left: no program that calls the
same encoder can spare more than that rest.
Usage: record_beside_ffmpeg.py [ROUNDS] [FRAMES]
       record_beside_ffmpeg.py instructions [FRAMES]
"""
import collections
import os
import pathlib
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
TARN = ROOT / "build/release/bin/tarn"
BARE = ROOT / "build/release/bin/bare_encoder"
CLIP = ROOT / "build/clips/photo_1080p60.mkv"
FFMPEG = ["ffmpeg", "-v", "error", "-nostdin", "-y", "-i"]

X264 = {"profile": "high", "preset": "veryfast", "threads": "4", "b": "10000k", "maxrate": "10000k",
        "bufsize": "10000k", "bf": "0", "g": "30"}
MPEG2 = {"b": "15000k", "maxrate": "15000k", "bufsize": "9781248", "g": "240", "bf": "2", "threads": "2"}
MJPEG = {"q": "2"}
KINDS = {
    "x264 veryfast": (["--video", "x264", "--bitrate", "10000"], "libx264", X264),
    "Motion JPEG": (["--video", "MJPEG", "--quality", "mjpeg_high"], "mjpeg", MJPEG),
    "MPEG-2": (["--video", "Mpeg2", "--bitrate", "15000"], "mpeg2video", MPEG2),
}

FULL_709 = "scale=out_color_matrix=bt709:out_range=full"
# Of each kind of frame: its file, how the clip is brought to it, and ffmpeg's words for the way into
# the encoders of 4:2:0 and of Motion JPEG.
FRAMES = {
    "I420": ("raw.y4m", ["-pix_fmt", "yuv420p"], ["-pix_fmt", "yuv420p"], ["-pix_fmt", "yuvj420p"]),
    "2vuy": ("2vuy.nut", ["-c:v", "rawvideo", "-pix_fmt", "uyvy422"], ["-pix_fmt", "yuv420p"],
             ["-pix_fmt", "yuvj422p"]),
    "BGRA": ("bgra.nut", ["-vf", "scale=in_color_matrix=bt709", "-c:v", "rawvideo", "-pix_fmt", "bgra"],
             ["-vf", f"{FULL_709},format=yuvj420p"], ["-vf", f"{FULL_709},format=yuvj422p"]),
}


def programs(raw: str, folder: str, kind: str, frames: str) -> dict[str, list[str]]:
    """The command of each contender."""
    tarn, encoder, options = KINDS[kind]
    _, _, into_420, into_jpeg = FRAMES[frames]
    video_options = [word for name, value in options.items()
                     for word in (f"-{name}" if name == "threads" else f"-{name}:v", value)]
    conversion = into_jpeg if encoder == "mjpeg" else into_420
    commands = {
        "tarn": [str(TARN), "record", raw, f"{folder}/tarn.mov", "--audio", "none", *tarn],
        "ffmpeg": [*FFMPEG, raw, *conversion, "-c:v", encoder, *video_options, "-an", f"{folder}/ffmpeg.mov"],
    }
    if encoder != "mjpeg" and frames == "I420":
        commands["bare loop"] = [str(BARE), raw, encoder, *(f"{name}={value}" for name, value in options.items())]
    return commands


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


def compare(raw: str, folder: str, kind: str, frames: str, rounds: int, count: int) -> None:
    """Prints a line for each contender."""
    commands = programs(raw, folder, kind, frames)
    turns = [{name: run(commands[name]) for name in random.sample(list(commands), len(commands))}
             for _ in range(rounds)]
    for name in commands:
        seconds, cpu, peak = (statistics.median(turn[name][i] for turn in turns) for i in range(3))
        ratio = statistics.median(turn["ffmpeg"][0] / turn[name][0] for turn in turns)
        file = pathlib.Path(folder, f"{name}.mov")
        size = f"{file.stat().st_size / 1e6:9.1f}" if file.exists() else ""
        print(f"{frames:6}{kind:15}{name:11}{count / seconds:8.1f}{ratio:10.2f}{cpu * 1000 / count:14.1f}{peak:9.0f}"
              f"{size}", flush=True)


def instructions(words: list[str], folder: str) -> collections.Counter[str]:
    """How many each library executes, in millions."""
    counts = f"{folder}/callgrind.out"
    run(["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={counts}", *words])
    listing = subprocess.run(["callgrind_annotate", "--threshold=100", counts], check=True,
                             capture_output=True, text=True).stdout
    found = collections.Counter()
    for line in listing.splitlines():
        if match := re.match(r" *([\d,]+) \(.*\[(.*)\]$", line):
            found[pathlib.Path(match[2]).name.split(".")[0]] += int(
                match[1].replace(",", "")) / 1e6
    return found


def count_instructions(raw: str, folder: str, kind: str, frames: str, _: int, __: int) -> None:
    """Prints a line for each contender, where the encoder is the same."""
    if kind == "Motion JPEG":
        return
    encoder = "libx264" if kind == "x264 veryfast" else "libavcodec"
    counts = {name: instructions(words, folder)
              for name, words in programs(raw, folder, kind, frames).items()}
    for name, found in counts.items():
        loading = found["ld-linux-x86-64"]
        rest = found.total() - found[encoder] - loading
        ratio = counts["ffmpeg"].total() / found.total()
        print(f"{frames:6}{kind:15}{name:11}{found.total():8.0f}{ratio:10.3f}{found[encoder]:14.0f}"
              f"{loading:9.0f}{rest:9.0f}", flush=True)


def main() -> None:
    counts = sys.argv[1:2] == ["instructions"]
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 and not counts else 5
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 40 if counts else 180
    if counts:
        if not shutil.which("valgrind"):
            sys.exit("valgrind is missing: apt-get install valgrind")
        print(f"{count} frames of 1080p60; millions of instructions")
        print(f"{'':32}{'all':>8}{'x ffmpeg':>10}{'the encoder':>14}{'loading':>9}{'rest':>9}")
    else:
        print(f"{count} frames of 1080p60, {rounds} turns; medians")
        print(f"{'':32}{'fps':>8}{'x ffmpeg':>10}{'CPU ms/frame':>14}{'peak MB':>9}{'file MB':>9}")
    for frames, (file, into_raw, _, _) in FRAMES.items():
        with tempfile.TemporaryDirectory() as folder:
            raw = f"{folder}/{file}"
            subprocess.run([*FFMPEG, str(CLIP), "-frames:v", str(count), *into_raw, raw], check=True)
            for kind in KINDS:
                (count_instructions if counts else compare)(raw, folder, kind, frames, rounds, count)


main()
