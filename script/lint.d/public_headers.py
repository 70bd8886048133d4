"""Which headers are installed: the rule of cmake/TarnInstall.cmake, for the checks beside this file."""
import functools
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXPORTS = re.compile(r"(SPAR|ORB|TARN)_API")
QUOTED = re.compile(r'^#include "([^"]+)"', re.MULTILINE)
LIST = re.compile(r"^set\(public_headers\n(.*?)\)", re.MULTILINE | re.DOTALL)


def path_of(name: str) -> pathlib.Path:
    return ROOT / name if name.startswith("tarn/") else ROOT / "platform" / name


@functools.cache
def public_headers() -> frozenset[str]:
    """Names as they are included: "spar/zRecord.h", "tarn/movies/tnMovie.h"."""
    listed = LIST.search((ROOT / "cmake/TarnInstall.cmake").read_text())
    waiting = listed.group(1).split()
    platform, top = ROOT / "platform", ROOT
    for folder, base in ((platform / "spar", platform), (platform / "orb", platform),
                         (platform / "orb/container", platform), (top / "tarn", top),
                         *((room, top) for room in (top / "tarn").iterdir() if room.is_dir())):
        for header in folder.glob("*.h"):
            if EXPORTS.search(header.read_text(errors="replace")):
                waiting.append(header.relative_to(base).as_posix())
    public = set()
    while waiting:
        name = waiting.pop()
        if name not in public:
            public.add(name)
            waiting += QUOTED.findall(path_of(name).read_text(errors="replace"))
    return frozenset(public)
