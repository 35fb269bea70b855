#!/usr/bin/env bash
# Runs every benchmark of `./dev bench` and prints their one table. Usage: scripts/bench.sh PROGRAM_FOLDER
# The music is made once, beside the programs' folder; remove it to have it made anew.
set -euo pipefail
programs=$(cd "$1" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
music=${programs%/bin}/music
songs=${programs%/bin}/songs

if [[ ! -e $music/.complete ]]; then
  rm -rf "$music"
  # Debian's own Python: the only one that sees python3-mutagen.
  /usr/bin/python3 "$root/tools/sample-music/make-sample-music.py" "$music" --many 10000 >&2
  touch "$music/.complete"
fi
if [[ ! -e $songs/.complete ]]; then
  rm -rf "$songs"
  mkdir -p "$songs"
  sound() { # FILE SECONDS ENCODING...
    ffmpeg -nostdin -loglevel error -f lavfi -i "sine=frequency=330:duration=$2" -ac 2 "${@:3}" \
      -metadata title="A Song" -metadata artist="Somebody" "$songs/$1"
  }
  sound song.mp3 6 -b:a 128k
  sound long.mp3 130 -b:a 320k
  sound song.m4a 6 -b:a 128k
  sound song.aiff 1 -write_id3v2 1
  touch "$songs/.complete"
fi

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
for run in "scan_bench $music" "store_bench" "tagwriting_bench $songs"; do
  echo "Running ${run%% *}" >&2
  read -r program argument <<<"$run"
  "$programs/$program" ${argument:+"$argument"} >>"$rows"
done
# A Markdown table, columns padded. Ratio: ours to the floor, the median of the rounds; cpu: the same of CPU time.
{
  printf 'what\tours\tfloor\tratio\tcpu\tbound\theld\n'
  cat "$rows"
} | awk -F '\t' '
  { for (i = 1; i <= NF; i++) { cell[NR, i] = $i; if (length($i) > width[i]) width[i] = length($i) } }
  END {
    for (row = 1; row <= NR; row++) {
      line = "|"
      for (i = 1; i <= 7; i++)
        line = line sprintf(i == 1 ? " %-" width[i] "s |" : " %" width[i] "s |", cell[row, i])
      print line
      if (row > 1) continue
      line = "|"
      for (i = 1; i <= 7; i++) { rule = sprintf("%" width[i] "s", ""); gsub(/ /, "-", rule)
        line = line (i == 1 ? " " rule " |" : " " substr(rule, 2) ": |") }
      print line
    }
  }'
if cut -f 7 "$rows" | grep -q NO; then
  echo "Not every bound was held; on a busy machine run it again before believing it." >&2
fi
