# What the scripts share: messages, steps with progress, and where things lie. Sourced, after `set -euo pipefail`.
# shellcheck shell=bash
# shellcheck disable=SC2034  # the sourcing scripts read these

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${ZEVA_DEPS_CACHE:-${HOME:?neither HOME nor ZEVA_DEPS_CACHE is set}/.cache/zeva}
jobs=${ZEVA_JOBS:-$(nproc)}
# Programs' answers are read here: English, with a point in numbers. UTF-8, or Wine could not open every file name.
export LC_ALL=C.UTF-8

# Ends the script with one sentence.
fail() {
  echo "${0##*/}: $*" >&2
  exit 1
}

# The log that steps write to; a script opens its own: open_log FOLDER NAME.
log=/dev/null

open_log() {
  mkdir -p "$1" 2> /dev/null || fail "the folder $1 cannot be made."
  log=$1/$2.log
  : > "$log" || fail "the log $log cannot be written."
}

# What a running step is at, for the progress line: the last line of its output. A script may define its own.
progress_note() {
  tail -n 1 "$log" | tr -d '\r' | cut -c1-70
}

# On a terminal one line is rewritten each second; elsewhere (a CI log) a line comes every 30 s.
last_report=
report_progress() {
  local label=$1 elapsed=$2
  [[ $last_report != "$label $elapsed" ]] || return 0
  last_report="$label $elapsed"
  if [[ -t 1 ]]; then
    printf '\r\033[K%s ... %d s  %s' "$label" "$elapsed" "$(progress_note)"
  elif ((elapsed > 0 && elapsed % 30 == 0)); then
    echo "$label ... $elapsed s  $(progress_note)"
  fi
}

step_number=0
step_total=0 # the script sets it

# Runs a command as a numbered step: a line with its time, its output in the log, and the log's end if it fails.
# The command's status is left in step_status. It is not the function's, so that no caller asks for it in a condition:
# there -e would stop acting inside the command, and a failure in the middle of it would be passed over.
step_status=0
try_step() {
  local started=$SECONDS label
  step_status=0
  step_number=$((step_number + 1))
  label="[$step_number/$step_total] $1"
  shift
  echo "=== $label" >> "$log"
  set -m # a process group of its own, so that all of it can be ended
  ("$@") >> "$log" 2>&1 < /dev/null &
  child=$!
  set +m
  while kill -0 "$child" 2> /dev/null; do
    sleep 0.2
    report_progress "$label" "$((SECONDS - started))"
  done
  wait "$child" || step_status=$?
  child=
  [[ ! -t 1 ]] || printf '\r\033[K'
  if ((step_status == 0)); then
    echo "$label ... done ($((SECONDS - started)) s)"
  else
    echo "$label ... failed ($((SECONDS - started)) s)"
    { echo "--- the end of $log:"; tail -n 25 "$log"; echo "---"; } >&2
  fi
}

# The same, for a step that the script cannot do without.
step() {
  try_step "$@"
  ((step_status == 0)) || fail "the step '$1' failed; the whole log is $log."
}

# Ends a running step and a Wine session with all that they started, when the script itself ends.
end_children() {
  local group
  for group in $child $wine_session; do
    kill -- "-$group" 2> /dev/null || true
  done
  child=
  wine_session=
}
child=
wine_session=
trap end_children EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Runs scripts/packages.sh as a step. In the foreground, as sudo may have to ask for a password.
packages_step() {
  local started=$SECONDS
  step_number=$((step_number + 1))
  "$root/scripts/packages.sh" "$@" || exit 1 # it has said why
  echo "[$step_number/$step_total] packages ... done ($((SECONDS - started)) s)"
}

# Runs deps/build.sh as a step; its own step lines are seen only when there is something to build.
ffmpeg_step() {
  local system=$1 started=$SECONDS label
  step_number=$((step_number + 1))
  label="[$step_number/$step_total] FFmpeg 4.3.7 for ${system^}"
  [[ -e $("$root/deps/build.sh" --prefix "$system")/.complete ]] || echo "$label: building once, some minutes"
  "$root/deps/build.sh" "$system" < /dev/null || exit 1 # it has said why
  echo "$label ... done ($((SECONDS - started)) s)"
}

# --- building and testing the presets --------------------------------------------------------------------------------

# What was compiled before, in this checkout or another one, is taken from the cache.
use_ccache() {
  command -v ccache > /dev/null || return 0
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  export CCACHE_DIR=$cache/ccache CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1 CCACHE_MAXSIZE=2G
}

# build_preset PRESET [OPTIONS]: everything, or the targets that the options name.
build_preset() {
  local preset=$1
  shift
  use_ccache
  cmake --preset "$preset"
  cmake --build --preset "$preset" "$@"
}

# Wine with a Windows of our own, made once: no display, no questions about add-ons, no chatter.
use_wine() {
  export WINEPREFIX=$cache/wine WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='
  unset DISPLAY WAYLAND_DISPLAY
}

prepare_wine() {
  use_wine
  # Two first runs at once would write into each other's Windows.
  mkdir -p "$cache"
  exec 8> "$cache/wine.lock"
  flock 8
  if [[ ! -e $WINEPREFIX/.complete ]]; then
    rm -rf "$WINEPREFIX"
    # The server that stays behind for a while must not keep the lock.
    wineboot --init 8>&-
    wineserver -w 8>&-
    touch "$WINEPREFIX/.complete"
  fi
  exec 8>&-
  [[ $(wine cmd /c 'echo ready') == ready* ]]
}

# Windows goes down with the last program in it and takes seconds to come up again; a program that waits for input keeps
# it up from one test to the next. It is cut off from our output, which the services it starts would else hold open.
start_wine_session() {
  use_wine
  set -m
  (sleep infinity | wine cmd) > /dev/null 2>&1 &
  wine_session=$!
  set +m
  # While it comes up, programs may fail to start.
  local try
  for try in 1 2 3 4 5; do
    [[ $(wine cmd /c 'echo ready' 2> /dev/null < /dev/null) != ready* ]] || return 0
  done
  echo "Wine does not come up."
}

# Sums of all tests so far, kept by count_tests and note.
passed=0
failed=0
skipped=0

# Counts a check that is no test of ctest's: a build that failed, a style check.
note() {
  case $1 in
    passed) passed=$((passed + 1)) ;;
    failed) failed=$((failed + 1)) ;;
  esac
}

# Adds a JUnit file of ctest's to the sums. A test that was asked to be left out, or said so itself, is skipped; one
# that could not be run (no such program, a failed fixture) is not: ctest writes "notrun" for both.
count_tests() {
  local cases total run left_out
  cases=$(grep -A1 -E '^\s*<testcase ' "$1" || true)
  total=$(grep -c '<testcase ' <<< "$cases" || true)
  run=$(grep -c '<testcase .*status="run"' <<< "$cases" || true)
  left_out=$(grep -c -E '<testcase .*status="disabled"|<skipped message="SKIP_' <<< "$cases" || true)
  passed=$((passed + run))
  skipped=$((skipped + left_out))
  failed=$((failed + total - run - left_out))
}

# The tests' own output stays on the screen: which one failed, and how, is what the reader of the log looks for.
run_tests() {
  local preset=$1 report failed_before=$failed status=0
  shift
  report=$root/build/log/tests-$preset.xml
  rm -f "$report"
  "$@" ctest --preset "$preset" --parallel "$jobs" --no-tests=error --output-on-failure --output-junit "$report" \
    < /dev/null || status=$?
  [[ ! -s $report ]] || count_tests "$report"
  # A run that broke off without a failed test is a failure all the same.
  if ((status != 0 && failed == failed_before)); then note failed; fi
}

# Configures, builds and tests one preset; further words go before ctest. Nothing in it ends the script: one system's
# failure must not hide the other's result.
build_and_test() {
  local preset=$1
  shift
  try_step "build $preset" build_preset "$preset"
  if ((step_status == 0)); then
    step_number=$((step_number + 1))
    echo "[$step_number/$step_total] test $preset"
    run_tests "$preset" "$@"
  else
    echo "the build of $preset failed, so its tests did not run; the log is $log"
    note failed
    step_number=$((step_number + 1))
  fi
}
