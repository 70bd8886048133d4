"""Fails on an installed header that does not compile by itself, or that wants more than C++20 and fmt.

Each header is the only one of its translation unit. Usage: headers.py [JOBS]
"""
import concurrent.futures
import os
import subprocess
import sys

from public_headers import ROOT, public_headers

COMMAND = [os.environ.get("CXX", "g++"), "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
           "-Wno-multichar", f"-I{ROOT}/platform", f"-I{ROOT}", "-x", "c++", "/dev/null", "-include"]


def complaint(name: str) -> str:
    run = subprocess.run([*COMMAND, name], capture_output=True, text=True, check=False)
    return "" if run.returncode == 0 else f"{name} does not compile by itself:\n{run.stderr}"


def main() -> int:
    jobs = int(sys.argv[1]) if len(sys.argv) > 1 else os.cpu_count()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        found = [text for text in pool.map(complaint, sorted(public_headers())) if text]
    print("\n".join(found), end="\n" if found else "", file=sys.stderr)
    return 1 if found else 0


sys.exit(main())
