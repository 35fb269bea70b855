#!/usr/bin/env python3
"""What a DJ does with an external drive, on a real one: an image that is mounted, pulled out, mounted elsewhere, with
renamed folders, damaged songs and what a Mac leaves beside them. No song may lose its tags, its playlist or its status,
nothing is paid twice, no check scans without need, and the terminal says each time what is the matter.

Takes the first of exFAT, NTFS and ext4 that this machine can make and mount. Ends with 77 if that is none.

usage: drive_story.py BIN_FOLDER SAMPLE_SCRIPT"""

import json
import pathlib
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import urllib.request
import uuid

SKIPPED = 77
FILE_SYSTEMS = {"exfat": ["mkfs.exfat"], "ntfs3": ["mkfs.ntfs", "-q", "-F", "-f"], "ext4": ["mkfs.ext4", "-q"]}


def quietly(*command):
    try:
        return subprocess.run(command, capture_output=True).returncode == 0
    except OSError:
        return False


class Drive:
    def __init__(self, folder):
        self.image, self.mounted = folder / "drive.img", None

    def make(self, kind, place):
        self.image.unlink(missing_ok=True)
        with open(self.image, "wb") as image:
            image.truncate(64 << 20)
        self.kind = kind
        return quietly(*FILE_SYSTEMS[kind], self.image) and self.mount(place)

    def mount(self, place):
        place.mkdir(exist_ok=True)
        done = quietly("mount", "-t", self.kind, "-o", "loop", self.image, place)
        self.mounted = place if done else None
        return done

    def unmount(self, *options):
        if self.mounted and not quietly("umount", *options, self.mounted):
            sys.exit("cannot unmount the drive")
        self.mounted = None


class Story:
    def __init__(self, programs, folder):
        self.programs, self.folder, self.home = programs, folder, folder / "home"
        self.backend = subprocess.Popen(
            [programs / "velto-backend", "--port", "0", "--exit-with-stdin", "--state", folder / "backend.sqlite"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.backend.stdout.readline().strip()
        page = f"{self.address}/auth/desktop-login?email=dj@example.org&name=DJ&format=text"
        self.run("sign-in", urllib.request.urlopen(page).read().decode().strip())

    def veltoctl(self, *arguments):
        return subprocess.run([self.programs / "veltoctl", "--home", self.home, "--backend", self.address, "--quiet",
                               "--token-file", self.folder / "token", *arguments],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)

    def run(self, *arguments):
        done = self.veltoctl("--json", *arguments)
        if done.returncode != 0:
            sys.exit(f"veltoctl {' '.join(arguments)} ended with {done.returncode}: {done.stderr}")
        return json.loads(done.stdout)

    def fails(self, text, *arguments):
        done = self.veltoctl(*arguments)
        if done.returncode != 1 or text not in done.stderr:
            sys.exit(f"veltoctl {' '.join(arguments)} ended with {done.returncode} and did not say '{text}': "
                     f"{done.stderr}")

    def says(self, wanted, *arguments):
        answer = self.run(*arguments)
        if any(answer[key] != value for key, value in wanted.items()):
            sys.exit(f"veltoctl {' '.join(arguments)} said {answer}, not {wanted}")

    def make_playlist(self):
        with sqlite3.connect(next(self.home.rglob("velto.store"))) as store:
            made = store.execute('INSERT INTO Playlist (id, name, createdAt, updatedAt, "order") VALUES (?, ?, 0, 0, 0)',
                                 (str(uuid.uuid4()).upper(), "Warm up")).lastrowid
            for order, (track,) in enumerate(store.execute("SELECT _id FROM Track ORDER BY _id").fetchall()):
                store.execute('INSERT INTO PlaylistItem (id, "order", addedAt, playlist, track) VALUES (?, ?, 0, ?, ?)',
                              (str(uuid.uuid4()).upper(), order, made, track))

    def playlist(self):
        with sqlite3.connect(next(self.home.rglob("velto.store"))) as store:
            return store.execute('SELECT "order", Track.canonicalSig FROM PlaylistItem '
                                 'JOIN Track ON Track._id = PlaylistItem.track ORDER BY "order"').fetchall()

    def songs(self):
        """What must never change; statuses of the files besides."""
        tracks = self.run("tracks")
        tags = {each["canonicalSig"]: (each["genre"], each["genres"], each["era"], each["lastTagged"]) for each in tracks}
        statuses = sorted(file["status"] for each in tracks for file in each["files"])
        return tags, statuses

    def credits(self):
        return self.run("whoami")["creditBalance"]["total"]


def tell(story, drive, place, sample_script):
    music = place / "Music"
    subprocess.run([sys.executable, sample_script, str(music), "--count", "24", "--seconds", "1"], check=True,
                   stdout=subprocess.DEVNULL)
    for song in [path for path in music.rglob("*") if path.is_file()]:
        (song.parent / ("._" + song.name)).write_bytes(b"\0\5\26\7 left by a Mac")
    (place / ".Spotlight-V100").mkdir()
    (place / "System Volume Information").mkdir()
    (place / "System Volume Information" / "no.mp3").write_bytes(b"no music")
    (music / "empty.mp3").write_bytes(b"")

    story.run("library", "add", str(place), "--name", "USB")
    story.run("tag", "--yes")
    story.make_playlist()
    playlist, (tags, statuses), credits = story.playlist(), story.songs(), story.credits()
    if set(statuses) != {"ready"} or not all(each[0] for each in tags.values()):
        sys.exit(f"the songs are not tagged: {statuses} {tags}")

    def unchanged(step):
        if story.songs() != (tags, statuses):
            sys.exit(f"{step}: the songs are not what they were: {story.songs()[1]}")
        if story.playlist() != playlist:
            sys.exit(f"{step}: the playlist is not what it was")
        done = story.veltoctl("tag", "--yes", "--json")
        if story.credits() != credits:
            sys.exit(f"{step}: something was paid twice: {done.stdout}")

    nothing_new = {"newFiles": 0, "scanRun": None}
    story.says(nothing_new, "check")
    drive.unmount()
    story.fails("(not mounted)", "check")
    story.fails("(not mounted)", "scan")
    unchanged("the drive is away")

    elsewhere = place.parent / "elsewhere"
    if not drive.mount(elsewhere):
        sys.exit("cannot mount the drive again")
    story.fails("(not mounted)", "scan")
    story.run("library", "relocate", "USB", str(elsewhere))
    story.says(nothing_new, "check")
    unchanged("the drive is mounted elsewhere")

    (elsewhere / "Music").rename(elsewhere / "Muzak")
    story.says({"newCount": 0, "missingCount": 0}, "scan")
    story.says(nothing_new, "check")
    unchanged("a folder is renamed")

    song = min(path for path in (elsewhere / "Muzak").rglob("*.mp3") if path.stat().st_size and path.name[0] != ".")
    content = song.read_bytes()
    song.write_bytes(b"")
    story.says({"errorCount": 2, "missingCount": 0}, "scan")
    for _ in range(3):
        story.says(nothing_new, "check")
    errors = {each["path"] for each in story.run("tracks", "--errors")}
    if errors != {str(song), str(elsewhere / "Muzak" / "empty.mp3")}:
        sys.exit(f"not the files with errors: {errors}")
    song.write_bytes(content)
    story.says({"errorCount": 1, "missingCount": 0}, "scan")
    unchanged("a damaged file is whole again")

    with open(song, "rb"):  # somebody uses the drive that is pulled
        drive.unmount("-l")
        story.fails("(not mounted)", "scan")
    unchanged("the drive was pulled")
    print(f"{len(tags)} songs on {drive.kind}: nothing lost, nothing paid twice")


def main():
    programs, sample_script = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    folder = pathlib.Path(tempfile.mkdtemp(prefix="velto-drive-"))
    drive = Drive(folder)
    try:
        place = folder / "drive"
        if not any(drive.make(kind, place) for kind in FILE_SYSTEMS):
            print("no drive can be mounted here")
            return SKIPPED
        story = Story(programs, folder)
        tell(story, drive, place, sample_script)
        return 0
    finally:
        drive.unmount("-l")
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
