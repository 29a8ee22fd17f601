#!/bin/bash
# Builds and runs all tests, on Linux and, cross-built, on Windows under Wine. Needs a Debian machine and root or sudo
# for packages that are missing; everything else goes into the cache and build/.
#
# The last line is "N passed, N failed, N skipped", over both systems; a build that fails counts as one failed test.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$root"
# Whatever ends the script, the summary is its last line; something that ended it early counts as a failure.
finish() {
  local status=$?
  end_children
  if ((status != 0 && failed == 0)); then note failed; fi
  echo "$passed passed, $failed failed, $skipped skipped"
}
trap finish EXIT

open_log "$root/build/log" test
step_total=8
packages_step build-linux windows test
ffmpeg_step linux
ffmpeg_step windows
step "Wine" prepare_wine
build_and_test linux
start_wine_session
build_and_test windows
((failed == 0)) || exit 1
