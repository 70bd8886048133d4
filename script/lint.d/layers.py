"""Fails on an include that the house does not allow: who may know whom, in one table.

layers_test.py beside this file holds an example of each thing that it finds.
"""
import os
import re
import subprocess
import sys

from public_headers import ROOT, public_headers

SPAR, ORB, EXPORT = "platform/spar", "platform/orb", "tarn"  # tarn itself holds export.h alone
INSTALLED = "installed"  # whatever the installed package offers, and nothing else of the libraries

# What a folder may include beside itself, folder by folder. A folder that is not listed has the
# rules of the one that it stands in.
ALLOWED = {
    "platform/spar": [],
    "platform/orb": [SPAR],
    "platform/orb/ffmpeg": [ORB, SPAR],
    "platform/orb/container": [ORB, SPAR],
    "platform/mach": [SPAR],
    "platform/display": [SPAR],
    "tarn": [],
    "tarn/foundation": [EXPORT, SPAR, ORB],
    "tarn/clocks": [EXPORT, "tarn/foundation", SPAR, "platform/mach", "platform/display"],
    "tarn/replay": [EXPORT, "tarn/foundation", SPAR],
    "tarn/iso": [EXPORT, "tarn/foundation", SPAR],
    "tarn/sync": [EXPORT, "tarn/foundation", SPAR],
    "tarn/audio": [EXPORT, "tarn/foundation", SPAR, ORB],
    "tarn/filters": [EXPORT, "tarn/foundation", "tarn/audio", SPAR, ORB],
    "tarn/movies": [EXPORT, "tarn/foundation", SPAR],
    "tarn/writers": [EXPORT, "tarn/foundation", "tarn/audio", SPAR, ORB],
    "addons": [INSTALLED],
    "addons/support": [INSTALLED],
    "addons/moviefile": ["addons/support", INSTALLED],
    "addons/mux": ["addons/support", INSTALLED],
    "addons/replay": ["addons/support", "addons/mux", INSTALLED],  # segments are muxed movies
    "tools": [INSTALLED],
    "tools/tarn": ["tools/tarn/*", INSTALLED],
    "examples": [INSTALLED],
}
# Rooms that meet only here: these headers, and nothing else there.
MEETING = {
    ("platform/orb", "platform/orb/container"): {"MovieFile.h"},
    ("platform/orb/ffmpeg", "platform/orb/container"): {"MovieFile.h"},
    ("tarn/movies", "tarn/filters"): {"tnFilter.h", "tnVideoCompressor.h", "tnAudioCompressor.h",
                                      "tnFilterManager.h", "tnEncodedBuffer.h"},
    ("tarn/filters", "tarn/movies"): {"tnStreamBuffer.h", "tnStreamBufferGroup.h"},
    # Encoders and file writers read a record in one way: the conversions, and nothing else there.
    ("tarn/filters", "tarn/writers"): {"orbConversions.h"},
    # The earlier file writer is handed encoders' buffers; it knows their interfaces alone.
    ("tarn/writers", "tarn/filters"): {"tnVideoCompressor.h", "tnAudioCompressor.h"},
}
# The module's boot starts each service, and so it alone in foundation knows them.
BOOT = "tarn/foundation/tnTarn.cpp"
BOOT_ROOMS = {"tarn/filters", "tarn/replay", "tarn/movies"}
# A helper of the foundation that asks the encoders themselves, and so uses the writers' conversions.
PROBE = {("tarn/foundation/tnEncoderProbe.cpp", "tarn/writers/orbConversions.h")}

# Foreign libraries, each behind its own folders.
TESTS = ("tests/", "bench/", "fuzz/")
FOREIGN = [
    (re.compile(r"^(libav\w+|libswscale|libswresample)/"), ("platform/orb/ffmpeg/", "tools/", *TESTS)),
    (re.compile(r"^(x264|soxr|turbojpeg|libyuv|jpeglib|zimg)\b"), ("platform/orb/ffmpeg/", *TESTS)),
    (re.compile(r"^expat\.h"), ("platform/spar/", *TESTS)),
    (re.compile(r"^(xcb/|X11/|xf86drm|libdrm/)"), ("platform/display/", *TESTS)),
    (re.compile(r"^CLI/"), ("tools/", *TESTS)),
]
# Outside of platform/ a header that ends in .h is the operating system's (or C's, where C++ has its
# own), unless it is one of these.
NOT_OF_THE_SYSTEM = re.compile(r"^(libav\w+|libsw\w+|fmt|CLI|xcb|X11)/|^(gtest|gmock|benchmark)/|"
                               r"^(x264|soxr|turbojpeg|libyuv|jpeglib|zimg|expat|xf86drm)\b")
SYSTEM_EXCEPTIONS = {
    # Whether stderr is a terminal, and how wide, is the program's own question; the libraries draw
    # nothing.
    ("tools/tarn/ProgressLine.cpp", "sys/ioctl.h"),
    ("tools/tarn/ProgressLine.cpp", "unistd.h"),
    ("tools/tarn/live/LiveView.cpp", "unistd.h"),
    # A folder is watched until something changes in it: nobody else has to.
    ("tools/tarn/replay/ReplayWatch.cpp", "poll.h"),
    ("tools/tarn/replay/ReplayWatch.cpp", "sys/inotify.h"),
    ("tools/tarn/replay/ReplayWatch.cpp", "unistd.h"),
    # Segments are held open while they are cut, so that a purge cannot take them away; a long cut
    # holds more of them than a program may have by default.
    ("tools/tarn/replay/SegmentFile.cpp", "fcntl.h"),
    ("tools/tarn/replay/SegmentFile.cpp", "sys/resource.h"),
    ("tools/tarn/replay/SegmentFile.cpp", "unistd.h"),
    # What a movie takes of the disk so far: its blocks, which C++ does not tell.
    ("tools/tarn/bytesOnDisk.cpp", "sys/stat.h"),
    # Commands come in a line at a time while the show runs: stdin is polled, never blocked on.
    ("tools/tarn/live/CommandInput.cpp", "poll.h"),
    ("tools/tarn/live/CommandInput.cpp", "unistd.h"),
}
INCLUDE = re.compile(r'^\s*#\s*include(?:_next)?\s*(["<])([^">]+)[">]')
# Beside the sources stand their tests, and the headers that only tests and benchmarks use.
TEST_FILE = re.compile(r"_(test|bench|fuzz)\.cpp$|(^|/)test[A-Z]\w*\.h$|/test_\w+/|"
                       r"/(\w+Test(Kit|Support)?|PixelTestPicture|BenchMaterial|PixelRivals|PixelZimg|PixelReference)\.h$")


def is_test(path: str) -> bool:
    return path.startswith(TESTS) or TEST_FILE.search(path) is not None


def resolve(path: str, include: str) -> str | None:
    """The file of the tree that a quoted include means, or None for none of ours."""
    beside = os.path.normpath(os.path.join(os.path.dirname(path), include))
    for candidate in (f"platform/{include}", include, beside):
        if (ROOT / candidate).is_file():
            return candidate
    return None


def rules_of(folder: str) -> list[str]:
    while folder not in ALLOWED:
        folder = os.path.dirname(folder)
        if not folder:
            return []
    return ALLOWED[folder]


def is_allowed(path: str, target: str) -> bool:
    folder, room = os.path.dirname(path), os.path.dirname(target)
    if folder == room or (path, target) in PROBE or (path == BOOT and room in BOOT_ROOMS):
        return True
    if (folder, room) in MEETING:
        return os.path.basename(target) in MEETING[folder, room]
    for rule in rules_of(folder):
        if rule == INSTALLED and target.removeprefix("platform/") in public_headers():
            return True
        if room == rule or (rule.endswith("/*") and (room + "/").startswith(rule[:-1])):
            return True
    return False


def complaint_of_quoted(path: str, include: str) -> str | None:
    if ".." in include.split("/") and path.startswith(("platform/", "tarn/")):
        return f"{include} goes round by its parent; include it by its full name"
    target = resolve(path, include)
    if target is None:
        return f"{include} is no header of the tree; foreign ones stand in angle brackets"
    if is_test(path):
        return None
    if is_test(target):
        return f"production code includes a test header {include}"
    if not is_allowed(path, target):
        return f"{include} is not a header that this folder may know"
    return None


def complaint_of_angled(path: str, include: str) -> str | None:
    if is_test(path):
        return None
    for pattern, homes in FOREIGN:
        if pattern.match(include) and not path.startswith(homes):
            return f"{include} belongs in {homes[0]} alone"
    system = include.endswith(".h") and not NOT_OF_THE_SYSTEM.match(include)
    if system and not path.startswith("platform/") and (path, include) not in SYSTEM_EXCEPTIONS:
        return f"{include} is an operating-system header; what needs it belongs in platform/"
    return None


def complaints(path: str, text: str) -> list[str]:
    found = []
    for number, line in enumerate(text.splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        check = complaint_of_quoted if match.group(1) == '"' else complaint_of_angled
        if complaint := check(path, match.group(2)):
            found.append(f"{path}:{number}: {complaint}")
    return found


def main() -> int:
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.h", "*.cpp"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split()
    found = [line for path in files if (ROOT / path).exists()
             for line in complaints(path, (ROOT / path).read_text(errors="replace"))]
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
