"""Fails on a symbol or a library that one of our shared libraries should not show.

Strong symbols are ours by name. Weak ones may also be std's: templates and type information that the
compiler emits wherever they are used have the visibility of namespace std, which is open, and every
program holds its own copies of them.
Usage: symbols.py LIBRARY...
"""
import re
import subprocess
import sys

OURS = re.compile(r"^((non-)?virtual thunk to )?(Quillon::Orb::|(tn|z|x|jig)[A-Z]\w*(::|\()|tn_\w+|TCache<|OrbVideoBuffer::)")
# The bridge between records and the media library, and two helpers, are plain functions.
FUNCTIONS = re.compile(r"^(RasterTypeToOrbVideoFormat|OrbVideoFormatToRasterType|MediaRecordToVideoProperties|"
                       r"VideoPropertiesToMediaRecord|CreateCPUVideoSample|ORB_SetAudioSampleData|"
                       r"OrbAudioPropertiesFromMediaRecord|GetDefaultCodecQuality)\(")
LINKER = {"__bss_start", "_edata", "_end"}
WEAK = re.compile(r"^[VWuvw]$")
FOREIGN = re.compile(r"\b(av|sws|swr|soxr|tj|x264|XML|fmt)_|\bfmt::|\bAV[A-Z]\w+")
# libav and its fellows stand behind liborb alone, Expat behind libspar, X behind libtarn's display.
NEEDED = {
    "libspar": {"fmt", "expat"},
    "liborb": {"spar", "avcodec", "avformat", "avutil", "swresample", "soxr", "turbojpeg", "fmt"},
    "libtarn": {"spar", "orb", "fmt", "xcb", "xcb-present", "xcb-randr", "drm"},
}
SYSTEM = {"stdc++", "m", "gcc_s", "c", "ld-linux-x86-64", "ld-linux-aarch64"}


def output(*command: str) -> list[str]:
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()


def symbol_complaints(library: str) -> list[str]:
    found = []
    for line in output("nm", "-DC", "--defined-only", library):
        kind, name = line.split(maxsplit=2)[1:]
        if kind == "A" or name in LINKER:
            continue
        foreign = FOREIGN.search(name.split("(")[0])
        if foreign or not (WEAK.match(kind) or OURS.match(name) or FUNCTIONS.match(name)):
            found.append(f"{library}: shows {name}, which is not its own to show")
    return found


def needed_complaints(library: str) -> list[str]:
    name = re.sub(r"\.so.*", "", library.rsplit("/", 1)[-1])
    found = []
    for line in output("readelf", "-d", library):
        match = re.search(r"\(NEEDED\).*\[(?:lib)?([^]]+?)\.so", line)
        if match and match.group(1) not in NEEDED[name] | SYSTEM:
            found.append(f"{library}: links {match.group(1)}, which it should not know")
    return found


def main() -> int:
    found = [line for library in sys.argv[1:]
             for line in symbol_complaints(library) + needed_complaints(library)]
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


sys.exit(main())
