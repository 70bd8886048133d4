# Sourced by every script: where the tree stands, and how its compiler cache is set.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
jobs=${JOBS:-$(nproc)}

say() { printf '\n== %s\n' "$*"; }
die() { printf '%s\n' "$*" >&2; exit 1; }
