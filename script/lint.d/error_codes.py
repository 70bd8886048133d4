"""Fails on an error code in the sources that docs/errors.md does not tell of."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
CODE = re.compile(r"\bk\w+ = -(\d+)[,;]")
RANGE = re.compile(r"-(\d+) to -(\d+)")


def told() -> set[int]:
    text = (ROOT / "docs/errors.md").read_text()
    codes = {int(code) for code in re.findall(r"-(\d+)", text)}
    for first, last in RANGE.findall(text):
        codes.update(range(int(first), int(last) + 1))
    return codes


def main() -> int:
    known = told()
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "tarn/*.h", "tarn/*.cpp", "addons/*.h",
                            "addons/*.cpp", "platform/spar/*.cpp"],
                           cwd=ROOT, capture_output=True, text=True, check=True).stdout.split()
    missing = []
    for path in files:
        if path.endswith(("_test.cpp", "_bench.cpp")) or not (ROOT / path).exists():
            continue
        for number, line in enumerate((ROOT / path).read_text(errors="replace").splitlines(), 1):
            for code in CODE.findall(line):
                # Errors of the library stand from 1000 on; smaller numbers serve other ends too.
                if int(code) >= 1000 and int(code) not in known:
                    missing.append(f"{path}:{number}: error -{code} does not stand in docs/errors.md")
    print("\n".join(missing), end="\n" if missing else "", file=sys.stderr)
    return 1 if missing else 0


sys.exit(main())
