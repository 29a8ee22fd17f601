#!/bin/bash
# From a fresh clone to a recorded movie: builds the library and its command `zeva`, records a movie into three
# containers at once, and shows what Debian's own ffprobe and ffmpeg, which know nothing of this library, make of them.
# Needs a Debian machine and root or sudo for packages that are missing. The results are in demo-out/.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
cd "$root"

readonly out=demo-out
readonly table=$out/report.txt
readonly recordings=("$out/hello.mp4" "$out/hello.flv" "$out/hello.mkv")

# A movie that Debian has in a package: somebody at a computer, filmed and recorded; 8 s, 1280x720, H.264 and AAC.
find_movie() {
  dpkg-query -L forensics-samples-files | grep '/movie2/movie-hello\.mp4$' ||
    fail "the package forensics-samples-files does not hold movie-hello.mp4."
}

record() {
  build/linux/bin/zeva record --input "$movie" -o "${recordings[0]}" --also "${recordings[1]}" \
    --also "${recordings[2]}" --keep-index --fast
}

# One value out of ffprobe's answer.
probe() {
  local file=$1 stream=$2 entry=$3
  shift 3
  ffprobe -v error "$@" -select_streams "$stream" -show_entries "$entry" -of default=nw=1:nk=1 "$file" | sed -n 1p
}

# Pictures, counted by decoding them all.
count_frames() {
  probe "$1" v:0 stream=nb_read_frames -count_frames
}

# One row of the table.
show_row() {
  local file=$1 faults=$2
  printf '%-16s %-10s %-6s %-10s %7s  %-6s %10s  %s\n' "$(basename "$file")" \
    "$(probe "$file" v:0 format=format_name | cut -d, -f1)" \
    "$(probe "$file" v:0 stream=codec_name)" \
    "$(probe "$file" v:0 stream=width)x$(probe "$file" v:0 stream=height)" "$(count_frames "$file")" \
    "$(probe "$file" a:0 stream=codec_name)" "$(probe "$file" v:0 format=duration)" "$faults"
}

# Lines of complaint when the whole file is decoded. In the file's own time base: rounded to whole pictures, as ffmpeg
# does by itself, Matroska's milliseconds would make two pictures meet, and that would look like a fault.
count_faults() {
  { ffmpeg -v error -xerror -i "$1" -map 0 -enc_time_base -1 -f null - 2>&1 < /dev/null || echo "ffmpeg gave up"; } |
    tee -a "$log" | wc -l
}

# Writes the table; fails if a recording cannot be decoded without a complaint.
judge() {
  local file faults bad=0
  exec > "$table"
  printf '%-16s %-10s %-6s %-10s %7s  %-6s %10s  %s\n' file container video size frames audio duration "decoding errors"
  show_row "$movie" "(the input)"
  for file in "${recordings[@]}"; do
    faults=$(count_faults "$file")
    show_row "$file" "$faults"
    ((faults == 0)) || bad=1
  done
  return "$bad"
}

# 4 by 3 pictures, evenly over the movie. ffmpeg's own frame count decides the distance.
contact_sheet() {
  local frames
  frames=$(count_frames "$out/hello.mp4")
  local every=$((frames / 12 > 0 ? frames / 12 : 1))
  ffmpeg -v error -y -i "$out/hello.mp4" -frames:v 1 -update 1 \
    -vf "select=not(mod(n\,$every)),scale=320:-2,tile=4x3:padding=4:margin=4" "$out/contact-sheet.png"
}

open_log "$root/build/log" demo
step_total=6
# The files of the last run must not pass for this one's.
rm -rf "$out"
mkdir -p "$out"
packages_step build-linux demo
ffmpeg_step linux
step "build the library and zeva" build_preset linux --target ZEVALib zeva_tool
movie=$(find_movie)
step "record ${movie##*/} as MP4, FLV and MKV at once" record
try_step "look at the recordings with Debian's ffprobe" judge
[[ ! -s $table ]] || sed 's/^/    /' "$table"
((step_status == 0)) || fail "Debian's ffmpeg finds fault with a recording; its words are in $log."
step "contact sheet" contact_sheet

others=$(find "$out" -type f ! -name 'hello.mp4' ! -name 'hello.flv' ! -name 'hello.mkv' ! -name '*.txt' ! -name '*.png')

cat << EOF

The library:     build/linux/lib/libZEVALib.so
The command:     build/linux/bin/zeva
The recordings:  ${recordings[*]}
Their index:     ${others//$'\n'/ }
The table:       $table
The pictures:    $out/contact-sheet.png
EOF
