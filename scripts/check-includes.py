#!/usr/bin/env python3
"""Holds the arrows between folders: a file includes only from its own folder and from the targets that its
folder's CMakeLists.txt names in USES (and what those use), and a system library's header stands only where the
library is at home. Fails with a list of the includes that go the wrong way."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SRC = ROOT / "src"

# Which folder may see which library's headers.
HOMES = {
    r"^sqlite3\.h": ["platform/model"],
    r"^unicode/": ["platform/text"],
    r"^curl/": ["platform/http"],
    r"^openssl/": ["platform/files"],
    r"^zlib\.h": ["id3"],
    r"^nlohmann/": ["backend", "cli", "platform/files", "platform/model"],
    r"^libsecret/": ["platform/keyring"],
    r"^asio[./]": ["platform/concurrency", "platform/http", "cli", "desktop"],
    r"^Q[A-Z]": ["views", "desktop"],
    r"^CLI/": ["cli"],
    r"^httplib\.h": ["backend"],
}

# TagLib's headers have plain names ("tag.h"): they are known by the folder that they lie in.
TAGLIB_HOME = ["media"]


def taglib_headers():
    asked = subprocess.run(["pkg-config", "--cflags-only-I", "taglib"], capture_output=True, text=True, check=True)
    folders = [pathlib.Path(flag[2:]) for flag in asked.stdout.split()]
    return {header.name for folder in folders if folder.name == "taglib" for header in folder.iterdir()}


def targets():
    """folder -> (target, targets it uses)"""
    found = {}
    for path in SRC.rglob("CMakeLists.txt"):
        if path.parent == SRC:
            continue
        for call in re.finditer(r"velto_(?:library|program)\((\S+)(.*?)\)", path.read_text(), re.S):
            uses = re.findall(r"(?:PRIVATE_)?USES\s+((?:[^\s()]+\s*)+)", call.group(2))
            names = {name for group in uses for name in group.split() if name not in ("SOURCES", "USES", "PRIVATE_USES")}
            folder = str(path.parent.relative_to(SRC))
            known = found.setdefault(folder, (call.group(1), set()))
            known[1].update(names)
    return found


def main():
    found = targets()
    folder_of = {target: folder for folder, (target, _) in found.items()}

    def reachable(folder, seen):
        for name in found.get(folder, ("", set()))[1]:
            below = folder_of.get(name)
            if below and below not in seen:
                seen.add(below)
                reachable(below, seen)
        return seen

    taglib = taglib_headers()
    wrong = []
    for path in sorted([*SRC.rglob("*.cpp"), *SRC.rglob("*.hpp")]):
        folder = str(path.parent.relative_to(SRC))
        allowed = reachable(folder, {folder})
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            match = re.match(r'\s*#\s*include\s+([<"])([^>"]+)[>"]', line)
            if not match:
                continue
            header = match.group(2)
            if match.group(1) == '"':
                target = str(pathlib.PurePosixPath(header).parent)
                if target not in allowed:
                    wrong.append(f"{path.relative_to(ROOT)}:{number}: {header} is not below {folder}")
            if match.group(1) == "<" and header.removeprefix("taglib/") in taglib and folder not in TAGLIB_HOME:
                wrong.append(f"{path.relative_to(ROOT)}:{number}: <{header}> belongs to {', '.join(TAGLIB_HOME)}")
            for pattern, homes in HOMES.items():
                if re.search(pattern, header) and folder not in homes:
                    wrong.append(f"{path.relative_to(ROOT)}:{number}: <{header}> belongs to {', '.join(homes)}")
    print("\n".join(wrong) if wrong else "Includes go the right way.")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
