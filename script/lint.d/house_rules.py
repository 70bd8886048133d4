"""Small rules of the house that no other tool holds: guards, lengths, words."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LONGEST = 700
UNFINISHED = re.compile(r"\b(TO" r"DO|FIX" r"ME|XX" r"X)\b")


def complaints(path: str, text: str) -> list[str]:
    found = []
    lines = text.splitlines()
    if path.endswith(".h") and "#pragma once" not in text:
        found.append(f"{path}: a header starts with #pragma once")
    preface = "\n".join(lines[:12])
    if len(lines) > LONGEST and "one file because" not in preface:
        found.append(f"{path}: {len(lines)} lines; split it, or say in its preface why it is one file because ...")
    for number, line in enumerate(lines, 1):
        if UNFINISHED.search(line):
            found.append(f"{path}:{number}: unfinished work is an issue, not a comment")
    return found


def main() -> int:
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "*.h", "*.cpp"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split()
    found = []
    for path in files:
        if (ROOT / path).exists():
            found += complaints(path, (ROOT / path).read_text(errors="replace"))
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


sys.exit(main())
