#!/usr/bin/python3
"""Makes a folder of songs for demonstrations, tests and benchmarks: generated sound, invented names, real files.

    make-sample-music.py TARGET [--count 60] [--seed 1] [--seconds 4]    a varied library with odd names
    make-sample-music.py TARGET --many 10000                            many small files, fast, for benchmarks

The same seed gives the same songs under the same names. Needs ffmpeg and python3-mutagen (Debian's Python)."""

import argparse
import concurrent.futures
import hashlib
import os
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile

from mutagen import aiff, flac, id3, mp4, wave

MARKER = ".velto-sample-music"
WORKERS = 2

ARTIST_FIRST = ["Nordlicht", "Velvet", "Copper", "Paper", "Signal", "Lunar", "Crimson", "Static", "Marble", "Hollow",
                "Tidal", "Amber", "Glass", "Rural", "Silent", "Neon"]
ARTIST_LAST = ["Kollektiv", "Harbour", "Parade", "Quartet", "Machine", "Sisters", "Orchestra", "Foxes", "Transit",
               "Garden", "Assembly", "Union", "Trio", "Meridian", "Sound System", "Department"]
TITLE_FIRST = ["Midnight", "Concrete", "Slow", "Electric", "Golden", "Broken", "Distant", "Falling", "Second",
               "Hidden", "Burning", "Quiet", "Wooden", "Crystal", "Endless", "Borrowed"]
TITLE_LAST = ["Ferry", "Window", "Ritual", "Circuit", "Avenue", "Letters", "Tides", "Mirror", "Lantern", "Station",
              "Signal", "Rain", "Balcony", "Compass", "Disco", "Riddim"]
MIXES = ["", "", "", "", " (Extended Mix)", " (Club Mix)", " (Dub)", " (Instrumental)"]
ALBUMS = ["Night Ferries", "Rooms Without Clocks", "Postcards from Lagos", "Tape 7", "The Long Platform",
          "Habana by Bus", "Winter Numbers", "Second Floor, Left"]
GENRES = ["", "", "", "", "House", "Hip-Hop", "R&B/Soul", "Deep House, Techno", "Drum & Bass - 1990s"]

# name -> (extension, ffmpeg arguments, tagging)
KINDS = {
    "mp3-v2.4": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-b:a", "96k"], "id3v2.4"),
    "mp3-v2.3": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-b:a", "96k"], "id3v2.3"),
    "m4a": (".m4a", ["-c:a", "aac", "-b:a", "64k"], "mp4"),
    "flac": (".flac", ["-c:a", "flac"], "vorbis"),
    "wav": (".wav", ["-c:a", "pcm_s16le"], "riff"),
    "aiff": (".aiff", ["-c:a", "pcm_s16be"], "aiff"),
    "mp3-v2.2": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-b:a", "96k"], "id3v2.2"),
    "aac": (".aac", ["-c:a", "aac", "-b:a", "64k", "-f", "adts"], "id3v2.4"),
    "aif": (".aif", ["-c:a", "pcm_s16be"], "aiff"),
    "mp3-vbr": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-q:a", "5", "-write_xing", "0"], "id3v2.3"),
    "mp3-v1": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-b:a", "96k"], "id3v2.3+v1"),
    "mp3-bare": (".mp3", ["-id3v2_version", "0", "-c:a", "libmp3lame", "-b:a", "96k"], "none"),
}
ORDER = ["mp3-v2.4", "mp3-v2.3", "m4a", "flac", "mp3-v2.4", "wav", "mp3-v2.3", "aiff", "mp3-v2.2", "aac", "mp3-vbr",
         "aif", "mp3-v1", "m4a", "mp3-bare"]
MANY_KINDS = ["mp3-v2.4", "mp3-v2.3", "m4a", "flac", "mp3-v2.2", "aac", "mp3-vbr", "wav", "aiff", "aif"]


class Song:
    def __init__(self, number, kind, chance):
        self.number, self.kind = number, kind
        self.extension, self.encoding, self.tagging = KINDS[kind]
        self.artist = f"{chance.choice(ARTIST_FIRST)} {chance.choice(ARTIST_LAST)}"
        self.title = f"{chance.choice(TITLE_FIRST)} {chance.choice(TITLE_LAST)}{chance.choice(MIXES)}"
        self.album = chance.choice(ALBUMS)
        self.genre = chance.choice(GENRES)
        self.year = str(chance.randrange(1955, 2025))
        self.track, self.disc = number % 12 + 1, None
        self.cover = chance.random() < 0.4
        self.tone, self.beat = chance.randrange(80, 700), chance.choice([1.5, 1.9, 2.0, 2.1, 2.4, 2.9])
        self.noise = chance.random() < 0.4
        self.same_as = None
        self.folder = pathlib.PurePath(chance.choice(["", "Crates", "Crates/Friday", "Downloads/2024/New"]))
        self.name = f"{number:02d} {self.title}".encode()

    def path(self, target):
        folder = target / self.folder
        return os.path.join(os.fsencode(folder), self.name + self.extension.encode())


def put(song, name, artist=None, title=None, folder=None, extension=None):
    song.name = name if isinstance(name, bytes) else name.encode()
    song.artist, song.title = artist or song.artist, title or song.title
    song.extension = extension or song.extension
    if folder is not None:
        song.folder = pathlib.PurePath(folder)


def make_odd(songs):
    """Gives the first songs the names and places that real collections have."""
    def untagged(song):
        put(song, f"{song.artist} - {song.title}")

    changes = [
        lambda s: put(s, "Über den Dächern", "Jörg Müßig", "Über den Dächern"),
        lambda s: put(s, "夜の電車", "銀河喫茶", "夜の電車", "東京"),
        lambda s: put(s, "🎉 Party 🪩", "DJ Konfetti 🎉", "Party 🪩"),
        lambda s: put(s, "He said \"Hold 'em\"", "The \"Quotes\"", "He said \"Hold 'em\""),
        lambda s: put(s, "-rf leading dash", "Dashboard Kids", "-rf"),
        lambda s: put(s, "long " + "very " * 46 + "name", "Verbose", "A " + "very " * 46 + "long title"),
        lambda s: put(s, "dots.. in. the...name.v2.final", "Dot Dot", "dots.. in. the...name"),
        lambda s: put(s, "SHOUTING", "LOUD CITY", "SHOUTING", extension=s.extension.upper()),
        lambda s: put(s, b"broken \xff\xfe utf-8 \xe9", "Latin One", "Café"),
        lambda s: put(s, "line\nbreak", "Two Lines", "line\nbreak"),
        lambda s: put(s, "Ελληνικά & кириллица", "Σύννεφο", "Дорога"),
        lambda s: put(s, "cafe\u0301 decomposed", "Cafe\u0301 Orchestra", "Cafe\u0301"),
        lambda s: put(s, " spaces  around ", "  Padded  ", "  Title with spaces  "),
        lambda s: put(s, "semi;colon|pipe & 100% $HOME `x`", "A; B | C", "semi;colon|pipe"),
    ]
    free = [song for song in songs if song.tagging != "none"]
    for song, change in zip(free, changes):
        change(song)
    for song in songs:
        if song.tagging == "none":
            untagged(song)
    rest = free[len(changes):]
    for disc, song in zip((1, 1, 2, 2), rest):
        song.disc, song.album, song.artist = disc, "The Long Platform", "Copper Transit"
        song.folder = pathlib.PurePath(f"Copper Transit/The Long Platform/CD {disc}")
    if len(rest) > 6:  # the same song twice, byte for byte, in two folders
        first, second = rest[4], rest[5]
        for name in ("kind", "extension", "encoding", "tagging", "artist", "title", "album", "genre", "year",
                     "track", "cover", "name"):
            setattr(second, name, getattr(first, name))
        first.folder, second.folder = pathlib.PurePath("Crates"), pathlib.PurePath("Backup/Crates")
        second.same_as = first


def sound(song, seconds):
    """An ffmpeg source: two tones, a beat, and sometimes noise under it."""
    # A pulse that decays within each beat; 440 and 1.5 times the tone make songs tell apart by ear.
    wave_text = (f"0.25*sin({song.tone}*2*PI*t)+0.15*sin({song.tone * 1.5}*2*PI*t)"
                 f"+0.4*sin(110*PI*t)*exp(-9*mod(t*{song.beat},1))")
    if song.noise:
        wave_text += f"+0.1*(random({song.number % 8})-0.5)"
    return f"aevalsrc='{wave_text}':d={seconds}:s=44100"


def ffmpeg(arguments):
    command = ["ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-threads", "1", *arguments]
    result = subprocess.run(command, stderr=subprocess.PIPE, check=False)
    if result.returncode != 0:
        raise SystemExit(f"make-sample-music: ffmpeg failed: {result.stderr.decode(errors='replace').strip()}")


def encode(song, seconds, path):
    # Bit-exact flags keep the encoder's version and the time out of the files.
    ffmpeg(["-f", "lavfi", "-i", sound(song, seconds), "-map_metadata", "-1", "-fflags", "+bitexact",
            "-flags:a", "+bitexact", *song.encoding, "-y", os.fsencode(path)])


def make_covers(folder, chance):
    covers = []
    for number in range(4):
        path = folder / f"cover{number}.png"
        colours = [f"0x{chance.randrange(1 << 24):06x}" for _ in range(2)]
        ffmpeg(["-f", "lavfi", "-i", f"gradients=s=240x240:c0={colours[0]}:c1={colours[1]}:x0=0:y0=0:x1=240:y1=240:n=2"
                f":seed={number}",
                "-frames:v", "1", "-fflags", "+bitexact", "-y", str(path)])
        covers.append(path.read_bytes())
    return covers


def id3_frames(song, cover):
    frames = [id3.TPE1(3, [song.artist]), id3.TIT2(3, [song.title]), id3.TALB(3, [song.album]),
              id3.TDRC(3, [song.year]), id3.TRCK(3, [f"{song.track}/12"])]
    if song.genre:
        frames.append(id3.TCON(3, [song.genre]))
    if song.disc:
        frames.append(id3.TPOS(3, [f"{song.disc}/2"]))
    if cover:
        frames.append(id3.APIC(3, "image/png", 3, "", cover))
    return frames


def save_id3(song, path, cover):
    tag = id3.ID3()
    for frame in id3_frames(song, cover):
        tag.add(frame)
    old = song.tagging.startswith("id3v2.3")
    if old:
        tag.update_to_v23()
    tag.save(path, v2_version=3 if old else 4, v1=2 if song.tagging.endswith("+v1") else 0)


def save_id3_v22(song, path, cover):
    """Nobody writes version 2.2 any more, but old files have it: three-letter frames, three-byte sizes."""
    def frame(name, content):
        return name + len(content).to_bytes(3, "big") + content

    def text(name, value):
        return frame(name, b"\x01" + value.encode("utf-16"))

    frames = text(b"TP1", song.artist) + text(b"TT2", song.title) + text(b"TAL", song.album)
    frames += frame(b"TYE", b"\x00" + song.year.encode()) + frame(b"TRK", b"\x00" + str(song.track).encode())
    if song.genre:
        frames += text(b"TCO", song.genre)
    if cover:
        frames += frame(b"PIC", b"\x00PNG\x03\x00" + cover)
    frames += bytes(64)
    size = bytes(len(frames) >> shift & 0x7F for shift in (21, 14, 7, 0))
    with open(path, "rb") as file:
        audio = file.read()
    with open(path, "wb") as file:
        file.write(b"ID3\x02\x00\x00" + size + frames + audio)


def save_mp4(song, path, cover):
    file = mp4.MP4(path)
    file["\xa9ART"], file["\xa9nam"], file["\xa9alb"] = [song.artist], [song.title], [song.album]
    file["\xa9day"], file["trkn"] = [song.year], [(song.track, 12)]
    if song.genre:
        file["\xa9gen"] = [song.genre]
    if song.disc:
        file["disk"] = [(song.disc, 2)]
    if cover:
        file["covr"] = [mp4.MP4Cover(cover, mp4.MP4Cover.FORMAT_PNG)]
    file.save()


def save_flac(song, path, cover):
    file = flac.FLAC(path)
    file["artist"], file["title"], file["album"] = song.artist, song.title, song.album
    file["date"], file["tracknumber"] = song.year, str(song.track)
    if song.genre:
        file["genre"] = song.genre
    if song.disc:
        file["discnumber"] = str(song.disc)
    if cover:
        picture = flac.Picture()
        picture.data, picture.mime, picture.type = cover, "image/png", 3
        file.add_picture(picture)
    file.save(padding=lambda info: 512)


def save_chunked(song, path, cover):
    """WAV and AIFF carry an ID3 tag in a chunk of their own."""
    file = wave.WAVE(path) if song.tagging == "riff" else aiff.AIFF(path)
    file.add_tags()
    for frame in id3_frames(song, cover):
        file.tags.add(frame)
    file.save(v2_version=4)


SAVERS = {"id3v2.4": save_id3, "id3v2.3": save_id3, "id3v2.3+v1": save_id3, "id3v2.2": save_id3_v22,
          "mp4": save_mp4, "vorbis": save_flac, "riff": save_chunked, "aiff": save_chunked}


def write_song(song, audio, target, covers):
    path = song.path(target)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    # The tag goes in under a plain name: mutagen is not asked to cope with names in broken UTF-8.
    plain = os.path.join(os.path.dirname(path), b".new-%d" % song.number + song.extension.lower().encode())
    shutil.copyfile(audio, plain)
    if song.tagging in SAVERS:
        cover = covers[song.number % len(covers)] if covers and song.cover else None
        SAVERS[song.tagging](song, os.fsdecode(plain), cover)
    os.rename(plain, path)


def prepare_target(target):
    """Empties a folder that an earlier run made; anything else that is not empty is left alone."""
    if target.is_symlink() or (target.exists() and not target.is_dir()):
        raise SystemExit(f"make-sample-music: {target} is not a folder")
    if target.is_dir() and any(target.iterdir()):
        if not (target / MARKER).is_file():
            raise SystemExit(f"make-sample-music: {target} is not empty and was not made by this program")
        for entry in target.iterdir():
            if entry.is_dir() and not entry.is_symlink():
                shutil.rmtree(entry)
            else:
                entry.unlink()
    target.mkdir(parents=True, exist_ok=True)
    (target / MARKER).write_text("Made by make-sample-music.py; the next run replaces everything in this folder.\n")


def make_library(target, count, seconds, chance, work):
    songs = [Song(number, ORDER[number % len(ORDER)], chance) for number in range(count)]
    make_odd(songs)
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        covers = make_covers(work, chance)
        sources = [song for song in songs if song.same_as is None]
        audio = {song.number: work / f"{song.number}{KINDS[song.kind][0]}" for song in sources}
        list(pool.map(lambda song: encode(song, seconds, audio[song.number]), sources))
    for song in sources:
        write_song(song, audio[song.number], target, covers)
    for song in songs:
        if song.same_as is not None:
            os.makedirs(os.path.dirname(song.path(target)), exist_ok=True)
            shutil.copyfile(song.same_as.path(target), song.path(target))
    # One file of a kind that the program does not read.
    ffmpeg(["-f", "lavfi", "-i", sound(songs[0], seconds), "-c:a", "libopus", "-fflags", "+bitexact",
            "-y", str(target / "unsupported.opus")])
    return len(songs) + 1


def write_many(job):
    target, numbers, bases, pictures, seed = job
    for number in numbers:
        kind = MANY_KINDS[number % len(MANY_KINDS)]
        chance = random.Random(f"{seed}/{number}")
        song = Song(number, kind, chance)
        song.title = f"{song.title} {number}"
        song.folder = pathlib.PurePath(f"{number // 2500:02d}/{number // 50:05d}")
        song.name = f"{number:06d} {song.title}".encode()
        song.cover = number % 3 == 0
        write_song(song, chance.choice(bases[kind]), target, pictures)


def picture_bytes(chance):
    """As large as the covers that shops embed, and as hard to compress; nothing here decodes them."""
    return b"\x89PNG\r\n\x1a\n" + chance.randbytes(chance.randrange(30_000, 120_000))


def make_many(target, count, seed, chance, work):
    """A few encoded bases a kind; every file is a copy with a tag of its own."""
    bases = {}
    jobs = []
    pictures = [picture_bytes(chance) for _ in range(8)]
    for kind in MANY_KINDS:
        # Two lengths; uncompressed kinds short and at a low rate, so that 10,000 files stay small.
        for seconds in (1, 2) if kind not in ("wav", "aiff", "aif") else (0.5, 0.8):
            song = Song(len(jobs), kind, chance)
            if kind in ("wav", "aiff", "aif", "flac"):
                song.encoding = ["-ar", "22050", *song.encoding]
            path = work / f"base{len(jobs)}{song.extension}"
            bases.setdefault(kind, []).append(path)
            jobs.append((song, seconds, path))
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        list(pool.map(lambda job: encode(*job), jobs))
    with concurrent.futures.ProcessPoolExecutor(WORKERS) as pool:
        blocks = [range(start, min(start + 500, count)) for start in range(0, count, 500)]
        list(pool.map(write_many, [(target, block, bases, pictures, seed) for block in blocks]))
    return count


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("target", type=pathlib.Path)
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--seconds", type=float, default=4)
    parser.add_argument("--many", type=int, metavar="N")
    options = parser.parse_args()
    if options.count < 1 or options.seconds <= 0 or (options.many is not None and options.many < 1):
        parser.error("--count, --seconds and --many must be positive")
    prepare_target(options.target)
    chance = random.Random(options.seed)
    with tempfile.TemporaryDirectory() as work:
        if options.many:
            made = make_many(options.target, options.many, options.seed, chance, pathlib.Path(work))
        else:
            made = make_library(options.target, options.count, options.seconds, chance, pathlib.Path(work))
    size = sum(entry.stat().st_size for entry in options.target.rglob("*") if entry.is_file())
    print(f"{made} files, {size / 1e6:.1f} MB of generated music in {options.target}")


if __name__ == "__main__":
    sys.exit(main())
