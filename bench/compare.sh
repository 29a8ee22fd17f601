#!/bin/bash
# Sets the command and the library beside Debian's ffmpeg and GStreamer, on the same inputs and in turn, and writes
# what was seen into bench/RESULTS.md and bench/plots/:
#
#   bench/compare.sh [--quick] [--only NAME...]
#
# A whole run takes some 20 minutes and wants a machine that does nothing else, with 16 GB of memory. The figures of a
# run with --quick or --only are not for publishing: they go to build/bench/results/.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=../scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"
cd "$root"

open_log "$root/build/log" compare
step_total=3
packages_step build-linux bench
ffmpeg_step linux
step "build the library, zeva and the benchmarks" build_preset bench
PYTHONPATH=bench exec python3 -B -m comparisons "$@"
