#!/usr/bin/env bash
# The main job, shown: a folder of music becomes a library, every song gets its tags, the genres stand in the files.
# usage: demo.sh PROGRAMS [FOLDER [--in-place]]
# Everything it makes lies in build/demo; the token lies there too, so that the user's own keyring stays as it is.
set -euo pipefail
cd "$(dirname "$0")/.."
programs=$1
folder=${2:-}
in_place=${3:-}
demo=build/demo
if [[ -n "$folder" && ! -d "$folder" ]]; then
  echo "$folder is not a folder." >&2
  exit 2
fi
if [[ -n "$in_place" && "$in_place" != --in-place ]]; then
  echo "usage: ./dev run [FOLDER [--in-place]]" >&2
  exit 2
fi
# If it is a link, the folder that it leads to is copied and named.
[[ -z "$folder" ]] || folder=$(realpath -- "$folder")
mkdir -p "$demo/home"
if [[ -n "$folder" ]]; then
  own=$(realpath "$demo")
  if [[ "$folder/" == "$own/"* || "$own/" == "$folder/"* ]]; then
    echo "$folder is where the demonstration keeps its own files: name another folder." >&2
    exit 2
  fi
fi
# The journal stays: it knows which files a run that was killed has left beside their backups.
find "$demo/home" -mindepth 1 ! -name rewrites.journal -delete
rm -rf "$demo/token" "$demo"/backend.sqlite*
if [[ -z "$folder" ]]; then
  music=$demo/sample-music
  maker=tools/sample-music/make-sample-music.py
  rm -rf "$music"
  echo "1. Sample music"
  # Made once; each run tags a fresh copy.
  if [[ ! -d "$demo/pristine" ]] || ! sha256sum --status -c "$demo/pristine.sum" 2>/dev/null; then
    /usr/bin/python3 "$maker" "$demo/pristine" --count 60
    sha256sum "$maker" >"$demo/pristine.sum"
  fi
  cp -a --reflink=auto "$demo/pristine" "$music"
elif [[ "$in_place" == --in-place ]]; then
  music=$folder
  echo "1. Your folder, in place: $music"
else
  music=$demo/copy
  rm -rf "$music"
  echo "1. A copy of your folder (the originals are not touched)"
  needed=$(du -s --block-size=1 -- "$folder" | cut -f1)
  free=$(df --output=avail --block-size=1 "$demo" | tail -1)
  if ((needed > free)); then
    echo "A copy of $folder needs $((needed >> 20)) MB, $demo has $((free >> 20)) MB free: name a smaller folder." >&2
    exit 1
  fi
  cp -a --reflink=auto -- "$folder" "$music"
fi

coproc BACKEND { exec "$programs/velto-backend" --port 0 --credits 1000000 --exit-with-stdin --state "$demo/backend.sqlite" 2>"$demo/backend.log"; }
exec {backend_in}>&"${BACKEND[1]}"
read -r address <&"${BACKEND[0]}"
trap 'exec {backend_in}>&-' EXIT
echo "2. Local backend at $address (its tags are rules, not AI)"

velto() { "$programs/veltoctl" --home "$demo/home" --backend "$address" --token-file "$demo/token" --quiet "$@"; }

/usr/bin/python3 - "$address" <<'PY' | velto sign-in -
import sys, urllib.request
print(urllib.request.urlopen(sys.argv[1] + "/auth/desktop-login?email=dj@example.org&name=Demo+DJ&format=text").read().decode().strip())
PY
echo "3. Signed in"
velto whoami

echo "4. Scan"
velto library add "$music" --name Demo --include '*.{mp3,m4a,aac,mp4,aif,aiff,wav,flac}'

echo "5. Tag everything"
velto tag Demo --yes || (($? == 1)) # what could not be tagged, and why, is on the terminal

echo "6. What happened"
velto whoami
velto --json tracks Demo >"$demo/tracks.json"
/usr/bin/python3 - "$demo/tracks.json" <<'PY'
import collections, itertools, json, pathlib, sys
import mutagen

tracks = json.load(open(sys.argv[1]))
tagged = [track for track in tracks if track["lastTagged"]]
files = [file for track in tracks for file in track["files"]]
print(f"   {len(tracks)} tracks, {len(tagged)} tagged, {len(files)} files: "
      + ", ".join(f"{count} {status}" for status, count in collections.Counter(f["status"] for f in files).items()))

def genre(path):
    try:
        file = mutagen.File(path)
    except mutagen.MutagenError:  # a name in broken UTF-8 is not the file's own in a JSON text
        return None
    if file is None or file.tags is None:
        return None
    for key in ("TCON", "\xa9gen", "genre"):
        if key in file.tags:
            value = file.tags[key]
            return str(value[0] if isinstance(value, list) else value)
    return None

print("   Three files, their genre read back from disk by another program:")
lines = {}  # by format
for track in tagged:
    for file in track["files"]:
        suffix = pathlib.Path(file["absPath"]).suffix.lower()
        same = lines.setdefault(suffix, []) if suffix in (".mp3", ".m4a", ".aiff", ".aif") else None
        if same is not None and len(same) < 3 and (found := genre(file["absPath"])) is not None:
            same.append(f"     {file['relPath']}: {found!r} (stored: {track['genre']!r})")
for line in [line for row in itertools.zip_longest(*lines.values()) for line in row if line][:3]:
    print(line)
PY
echo "The library's store, log and music lie in $demo."
