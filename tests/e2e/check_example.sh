#!/bin/bash
# Runs the example host (behind the emulator, if there is one) and counts what it recorded: the same
# on both systems.
set -euo pipefail
program=("$@")
rm -f pattern.mp4 pattern.mp4.index
"${program[@]}" pattern.mp4
count() {
  ffprobe -v error -count_packets -select_streams "$1" -show_entries stream=nb_read_packets -of csv=p=0 pattern.mp4
}
faults=$(ffmpeg -v error -i pattern.mp4 -f null - 2>&1 < /dev/null)
found="$(count v:0) pictures, $(count a:0) sounds, faults: $faults"
[[ $found == "90 pictures, 142 sounds, faults: " ]] || { echo "recorded $found"; exit 1; }
[[ $(head -c 12 pattern.mp4.index) == "## version=2" ]]

# A host without standard streams: nothing that is printed may end up in the movie.
if ((${#program[@]} == 1)); then
  "${program[@]}" closed.mp4 <&- >&- 2>&-
  [[ -z $(ffmpeg -v error -i closed.mp4 -f null - 2>&1 < /dev/null) ]]
  ! grep -a -q 'layout = \|\[E\]\[bg\]' closed.mp4
fi
