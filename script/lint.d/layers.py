"""Fails on an include that the house does not allow: who may know whom, in one table."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# What a folder may include beside itself. A name ending in "/" stands for everything below it.
ALLOWED = {
    "platform/spar": [],
    "platform/orb": ["platform/spar"],
    "platform/orb/ffmpeg": ["platform/orb", "platform/orb/container", "platform/spar"],
    "platform/orb/container": ["platform/orb", "platform/spar"],
    "platform/mach": ["platform/spar"],
    "platform/display": ["platform/spar"],
    "tarn": [],
    "tarn/foundation": ["tarn", "platform/"],
    "tarn/clocks": ["tarn", "tarn/foundation", "platform/"],
    "tarn/replay": ["tarn", "tarn/foundation", "platform/"],
    "tarn/iso": ["tarn", "tarn/foundation", "platform/"],
    "tarn/sync": ["tarn", "tarn/foundation", "platform/"],
    "tarn/audio": ["tarn", "tarn/foundation", "platform/"],
    "tarn/filters": ["tarn", "tarn/foundation", "tarn/audio", "tarn/movies", "platform/"],
    "tarn/movies": ["tarn", "tarn/foundation", "tarn/filters", "platform/"],
    "tarn/writers": ["tarn", "tarn/foundation", "tarn/audio", "platform/"],
    "addons": ["addons/", "tarn/", "platform/spar", "platform/orb"],
    "tools": ["tools/", "tarn/", "platform/spar", "platform/orb"],
    "examples": ["examples/", "tarn/", "platform/spar", "platform/orb"],
}
# Rooms that meet only here.
MEETING = {
    ("platform/orb", "platform/orb/container"): {"MovieFile.h"},
    ("tarn/movies", "tarn/filters"): {"tnFilter.h", "tnVideoCompressor.h", "tnAudioCompressor.h",
                                      "tnFilterManager.h", "tnEncodedBuffer.h"},
    ("tarn/filters", "tarn/movies"): {"tnStreamBuffer.h", "tnStreamBufferGroup.h"},
    # Encoders and file writers read a record in one way: the conversions, and nothing else there.
    ("tarn/filters", "tarn/writers"): {"orbConversions.h"},
    # The earlier file writer is handed encoders' buffers; it knows their interfaces alone.
    ("tarn/writers", "tarn/filters"): {"tnVideoCompressor.h", "tnAudioCompressor.h"},
}
# The module's boot starts each service, and so it alone in foundation knows them.
BOOT = {"tarn/foundation/tnTarn.cpp", "tarn/foundation/tnTarn_test.cpp"}
# Helpers of the foundation that ask the encoders themselves and so use the writers' conversions.
PROBES = {"tarn/foundation/tnEncoderProbe.cpp"}
FFMPEG_ONLY = re.compile(r"^(libav\w+|libswscale|libswresample|x264|soxr|turbojpeg|libyuv|jpeglib)\b")
FFMPEG_HOMES = ("platform/orb/ffmpeg/", "tools/", "tests/", "bench/", "addons/")
SYSTEM_ONLY = re.compile(
    r"^(sys/|unistd\.h|fcntl\.h|pthread\.h|dlfcn\.h|sched\.h|poll\.h|dirent\.h|linux/|X11/|xcb/|mach/mach)")
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def folder_of(include: str) -> str | None:
    """The folder in the tree that an include path names, or None for a foreign header."""
    head = include.split("/")[0]
    if head in ("spar", "orb", "mach", "display"):
        path = "platform/" + include
    elif head in ("tarn", "addons", "tools", "examples", "tests"):
        path = include
    else:
        return None
    return str(pathlib.PurePosixPath(path).parent)


def rules_of(folder: str) -> list[str] | None:
    while folder and folder != ".":
        if folder in ALLOWED:
            return ALLOWED[folder]
        folder = str(pathlib.PurePosixPath(folder).parent)
    return None


def allowed(path: str, target: str, name: str) -> bool:
    folder = str(pathlib.PurePosixPath(path).parent)
    if target == folder or path in BOOT or path in PROBES:
        return True
    meeting = MEETING.get((folder, target))
    if meeting is not None:
        return name in meeting
    rules = rules_of(folder)
    if rules is None:
        return True
    own = next((top for top in ALLOWED if folder == top), None)
    for rule in rules:
        if target == rule or (rule.endswith("/") and (target + "/").startswith(rule)):
            return True
    return own is None and target.startswith(folder.split("/")[0] + "/")


def complaints(path: str) -> list[str]:
    is_test = path.endswith(("_test.cpp", "_bench.cpp")) or path.startswith(("tests/", "bench/", "fuzz/"))
    found = []
    for number, line in enumerate((ROOT / path).read_text(errors="replace").splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        include = match.group(2)
        where = f"{path}:{number}"
        target = folder_of(include)
        if target is not None:
            if target.startswith("tests") and not is_test:
                found.append(f"{where}: production code includes a test header {include}")
            elif not is_test and not allowed(path, target, include.split("/")[-1]):
                found.append(f"{where}: {include} is not a room that this folder may know")
            continue
        if FFMPEG_ONLY.match(include) and not path.startswith(FFMPEG_HOMES) and not is_test:
            found.append(f"{where}: {include} belongs in platform/orb/ffmpeg alone")
        if (SYSTEM_ONLY.match(include) and path.startswith("tarn/") and not is_test):
            found.append(f"{where}: {include} is an operating-system header; it belongs in platform/")
    return found


def main() -> int:
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.h", "*.cpp"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split()
    found = [line for path in files if (ROOT / path).exists() for line in complaints(path)]
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


sys.exit(main())
