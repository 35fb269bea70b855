#!/usr/bin/env python3
"""Kills veltoctl at random moments of a scan, a tagging run and a clearing run, and looks after each kill whether
anything was lost: every music file is there with its audio unchanged and its tag readable, the store is whole,
every track that was stored as tagged is still tagged, and of what the backend was paid for at most the batches in
flight are missing, each of which the next start names in the log.

usage: kill_rounds.py BIN_FOLDER SAMPLE_SCRIPT [KILLS] [SEED]"""

import hashlib
import json
import os
import pathlib
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import urllib.request
from datetime import datetime, timezone

import mutagen
import mutagen.id3


IN_FLIGHT = 30  # three batches of ten tracks


def audio_of(data, suffix):
    """The bytes of a file that no tag writer may change."""
    if suffix == ".mp3":
        if data[:3] == b"ID3":
            size = (data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9]
            return data[10 + size:]
        return data
    if suffix in (".m4a", ".mp4"):
        at, found = 0, b""
        while at + 8 <= len(data):
            size = int.from_bytes(data[at:at + 4], "big") or len(data) - at
            if data[at + 4:at + 8] == b"mdat":
                found += data[at + 8:at + size]
            at += max(size, 8)
        return found
    if suffix in (".aif", ".aiff"):
        at = 12
        while at + 8 <= len(data):
            size = int.from_bytes(data[at + 4:at + 8], "big")
            if data[at:at + 4] == b"SSND":
                return data[at + 8:at + 8 + size]
            at += 8 + size + (size & 1)
        return b""
    return data


class World:
    def __init__(self, programs, sample_script, folder):
        self.programs, self.folder = programs, folder
        self.music, self.home = folder / "music", folder / "home"
        subprocess.run([sys.executable, sample_script, str(self.music), "--count", "40", "--seconds", "2"],
                       check=True, stdout=subprocess.DEVNULL)
        self.backend = subprocess.Popen(
            [programs / "velto-backend", "--port", "0", "--credits", "1000000", "--exit-with-stdin",
             "--state", folder / "backend.sqlite",
             "--fault", "slow:60"],  # else hardly a kill would meet a batch in flight
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.backend.stdout.readline().strip()
        self.audio = {path: self.fingerprint(path) for path in self.files()}

    def files(self):
        return [path for path in self.music.rglob("*") if path.is_file() and not path.name.startswith(".")]

    @staticmethod
    def fingerprint(path):
        return hashlib.sha256(audio_of(path.read_bytes(), path.suffix.lower())).hexdigest()

    def command(self, *arguments):
        return [self.programs / "veltoctl", "--home", self.home, "--backend", self.address, "--quiet",
                "--token-file", self.folder / "token", *arguments]

    def run(self, *arguments):
        done = subprocess.run(self.command(*arguments), capture_output=True, timeout=120)
        if done.returncode != 0:
            sys.exit(f"veltoctl {' '.join(arguments)} ended with {done.returncode}: {done.stderr.decode()}")
        return done.stdout

    def prepare(self):
        page = f"{self.address}/auth/desktop-login?email=dj@example.org&name=DJ&format=text"
        callback = urllib.request.urlopen(page).read().decode().strip()
        self.run("sign-in", callback)
        self.run("library", "add", str(self.music), "--name", "Killed",
                 "--include", "*.{mp3,m4a,mp4,aac,aif,aiff,wav,flac}")

    def tagged(self, since=""):
        tracks = json.loads(self.run("--json", "tracks"))
        return {track["canonicalSig"] for track in tracks if (track["lastTagged"] or "") > since}, len(tracks)

    def credits(self):
        return json.loads(self.run("--json", "whoami"))["creditBalance"]["total"]

    def owed(self, since, credits, log_size):
        """What is wrong with the account of a killed tagging run, as texts. Runs after the next start."""
        stored, _ = self.tagged(since)
        missing = credits - self.credits() - len(stored)
        with open(self.home / "velto.log", "rb") as log:
            log.seek(log_size)
            named = sum(int(count) for count in re.findall(rb"a batch of (\d+) tracks was under way", log.read()))
        if missing > IN_FLIGHT or missing > named:
            return [f"{missing} tracks that were paid for are missing, {named} are named"]
        return []

    def problems(self):
        """What is wrong now, as texts. Runs after a start of the program has had its chance to put things right."""
        found = []
        for path, before in self.audio.items():
            if not path.exists():
                found.append(f"{path} is gone")
            elif self.fingerprint(path) != before:
                found.append(f"{path}: its audio has changed")
            elif path.suffix.lower() == ".mp3" and path.read_bytes()[:3] == b"ID3":
                try:
                    mutagen.id3.ID3(path)
                except mutagen.MutagenError as error:
                    found.append(f"{path}: {error}")
        for left in [path for path in self.music.rglob(".*") if path.is_file() and path.suffix in (".backup", ".tmp", ".replaced")]:
            found.append(f"{left} was left behind")
        with sqlite3.connect(f"file:{self.home}/velto.store?mode=ro", uri=True) as store:
            if store.execute("PRAGMA integrity_check").fetchone()[0] != "ok":
                found.append("the store is damaged")
        return found


def main():
    programs, sample_script = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    kills = int(sys.argv[3]) if len(sys.argv) > 3 else 12
    seed = int(sys.argv[4]) if len(sys.argv) > 4 else random.randrange(1 << 30)
    chance = random.Random(seed)
    print(f"seed {seed}", flush=True)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="velto-kill-"))
    world = World(programs, sample_script, folder)
    try:
        world.prepare()
        lengths = {}
        for action in (("scan",), ("tag", "--yes", "--again"), ("clear-tags", "--yes"), ("tag", "--yes", "--again")):
            began = time.monotonic()
            world.run(*action)
            lengths[action] = time.monotonic() - began
        tagged_before, count_before = world.tagged()
        killed, number = 0, 0
        while killed < kills:
            number += 1
            action = chance.choice(list(lengths))
            if action[0] == "scan":
                # A scan only writes much when files look changed.
                for path in chance.sample(sorted(world.audio), 10):
                    os.utime(path, (chance.randrange(10**9), chance.randrange(10**9)))
            credits, log_size = world.credits(), (world.home / "velto.log").stat().st_size
            since = datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%f")
            began = time.monotonic()
            child = subprocess.Popen(world.command(*action), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
            try:
                child.wait(chance.uniform(0, lengths[action]))
                # It was quicker than thought: a busy machine has made the first measure too long.
                lengths[action] = min(lengths[action], time.monotonic() - began)
            except subprocess.TimeoutExpired:
                child.send_signal(signal.SIGKILL)
                killed += 1
            child.wait()
            tagged, count = world.tagged()
            problems = world.problems()
            if action[0] == "tag":
                problems += world.owed(since, credits, log_size)
            if action[0] != "clear-tags" and not tagged >= tagged_before:
                problems.append(f"{len(tagged_before - tagged)} tracks lost their tags")
            if count < count_before:
                problems.append(f"{count_before - count} tracks are gone")
            if problems:
                print(f"round {number}, {' '.join(action)}:", *problems, sep="\n  ")
                sys.exit(1)
            tagged_before, count_before = tagged, count
        world.run("scan")
        world.run("tag", "--yes")
        print(f"{killed} kills in {number} rounds: nothing lost")
    finally:
        world.backend.stdin.close()
        world.backend.wait()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
