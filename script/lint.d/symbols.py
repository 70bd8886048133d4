"""Fails on a symbol or a library that one of our shared libraries should not show, and on work at load time.

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
# The sources that have initialisers, in the order in which these run.
INITIALISERS = {"libtarn": ["tnTarn.cpp", "tnFilterManager.cpp"]}
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


def name_of(library: str) -> str:
    return re.sub(r"\.so.*", "", library.rsplit("/", 1)[-1])


def initialisers(library: str) -> list[str]:
    """The sources of the functions that the loader calls, in its order: what the relocations fill the array
    of these functions with."""
    names = {}
    for line in output("nm", "--defined-only", library):
        address, _, name = line.split(maxsplit=2)
        names[int(address, 16)] = names.get(int(address, 16), []) + [name]
    start = size = 0
    for line in output("readelf", "-SW", library):
        match = re.search(r"\.init_array\s+INIT_ARRAY\s+([0-9a-f]+)\s+[0-9a-f]+\s+([0-9a-f]+)", line)
        if match:
            start, size = (int(number, 16) for number in match.groups())
    called = []
    for line in output("readelf", "-rW", library):
        match = re.match(r"([0-9a-f]+)\s+[0-9a-f]+\s+R_\w+_RELATIVE\s+([0-9a-f]+)", line)
        if match and start <= int(match.group(1), 16) < start + size:
            called.append((int(match.group(1), 16), names.get(int(match.group(2), 16), ["?"])))
    if len(called) * 8 != size:
        return [f"{size // 8 - len(called)} functions that no relocation names"]
    found = [sorted(name)[0] for _, name in sorted(called)]
    return [name.removeprefix("_GLOBAL__sub_I_") for name in found if name != "frame_dummy"]


def initialiser_complaints(library: str) -> list[str]:
    wanted = INITIALISERS.get(name_of(library))
    if wanted is None:
        return []
    found = initialisers(library)
    return [] if found == wanted else [f"{library}: loading it runs {found}, which is not {wanted}"]


def needed_complaints(library: str) -> list[str]:
    name = name_of(library)
    found = []
    for line in output("readelf", "-d", library):
        match = re.search(r"\(NEEDED\).*\[(?:lib)?([^]]+?)\.so", line)
        if match and match.group(1) not in NEEDED[name] | SYSTEM:
            found.append(f"{library}: links {match.group(1)}, which it should not know")
    return found


def main() -> int:
    found = [line for library in sys.argv[1:]
             for line in symbol_complaints(library) + needed_complaints(library) + initialiser_complaints(library)]
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


sys.exit(main())
