#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Two devices and real files: the command's main job, from start to end, checked.

Device one encrypts an Inside to the Outside; device two, with the same key, decrypts that Outside into an Inside of
its own; both then run again with nothing to do; then two edits, a new file and a deletion travel back.
"""
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

SOURCES = (  # folder, endings (none: all), how many files
    ("/usr/share/doc", (), 110),
    ("/usr/include", (".h", ".hpp"), 110),
    ("/usr/bin", (), 40),
    ("/usr/lib", (".so", ".a", ".py", ".mo"), 30),
    ("/usr/share", (".png", ".svg", ".jpg", ".jpeg", ".gif", ".pdf", ".ttf", ".mo"), 70),
    ("/etc", (".conf", ".xml"), 20),
)
BIGGEST = 3_000_000
LONGEST = 140  # characters of a relative path: with the folder in front it stays below the limit of a pair
OWN_MARKERS = {".rid", ".kelta"}
NEVER_SYNCHRONISED = {"sid", "sk"}  # names that the product keeps for itself, in whatever case
NOTHING_DONE = "encrypted 0, decrypted 0, folders 0, deleted 0, failed 0, quarantined 0"


class Disagreement(Exception):
    pass


def require(condition, message):
    if not condition:
        raise Disagreement(message)


def candidates(folder, endings):
    for parent, folders, names in os.walk(folder):
        folders[:] = sorted(name for name in folders if name.lower() not in NEVER_SYNCHRONISED)
        for name in sorted(set(names) - NEVER_SYNCHRONISED):
            path = os.path.join(parent, name)
            if endings and not name.endswith(endings) or len(path) > LONGEST:
                continue
            if os.path.isfile(path) and not os.path.islink(path) and os.access(path, os.R_OK):
                if os.path.getsize(path) <= BIGGEST:
                    yield path


def collect(inside):
    """Copies real files, evenly spread over what the machine has, with their times."""
    for folder, endings, wanted in SOURCES:
        found = list(candidates(folder, endings))
        step = max(1, len(found) // wanted)
        for path in found[::step][:wanted]:
            target = inside + path
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy2(path, target)


def write(path, content, when=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content)
    if when is not None:
        os.utime(path, (when, when))


def add_own(inside):
    """What real files seldom show: empty files and folders, depth, names beyond ASCII, the same content twice."""
    own = os.path.join(inside, "own")
    write(own + "/empty", b"")
    write(own + "/empty too.txt", b"", 1_000_000_000)
    os.makedirs(own + "/folder without files")
    write(own + "/" + "/".join("level%02d" % n for n in range(1, 19)) + "/deep.txt", b"at the bottom\n" * 9)
    for name in ("Grüße, Jürgen.txt", "Ελληνικά/αρχείο.txt", "日本語/書類 一.txt", "русский/файл.bin",
                 "😀 emoji.txt", "e\u0301 decomposed.txt", "quote ' and \" and %41.txt", " spaces  around ", "-dash"):
        write(own + "/names/" + name, ("text of " + name + "\n").encode() * 5)
    write(own + "/old.txt", b"from 1988\n" * 10, 568_000_000)
    big = random.Random(7).randbytes(9_000_000)
    write(own + "/big.bin", big)
    write(own + "/big twin.bin", big)


def entries(folder):
    """Relative path -> None for a folder, (size, seconds) for a file; the engine's own markers left out."""
    found = {}
    for parent, folders, names in os.walk(folder):
        for name in folders + names:
            path = os.path.join(parent, name)
            if name not in OWN_MARKERS:
                status = os.stat(path)
                is_folder = os.path.isdir(path)
                found[os.path.relpath(path, folder)] = None if is_folder else (status.st_size, int(status.st_mtime))
    return found


def require_equal_sides(one, two):
    diff = subprocess.run(["diff", "-r", "--no-dereference", "-x", ".rid", "-x", ".kelta", one, two],
                          capture_output=True, text=True, errors="replace")
    require(diff.returncode == 0, "the two plain sides differ:\n" + diff.stdout[:2000] + diff.stderr[:2000])
    first, second = entries(one), entries(two)
    different = sorted(path for path in first.keys() | second.keys() if first.get(path, 0) != second.get(path, 0))
    require(not different, "sizes or times differ: " + ", ".join(different[:10]))


def require_encrypted(inside, outside):
    """Every file has its archive, and no piece of plain content shows in any of them."""
    plain = {path for path, value in entries(inside).items() if value is not None}
    archives = {path for path, value in entries(outside).items() if value is not None}
    require(archives == {path + ".kelta" for path in plain}, "the Outside does not hold one archive for each file")
    pieces = []
    for path in sorted(plain)[::7]:
        content = open(os.path.join(inside, path), "rb").read()
        middle = content[len(content) // 2:][:32]
        if len(set(middle)) > 8:
            pieces.append((path, middle))
    require(len(pieces) > 30, "too few pieces of plain content to look for")
    for archive in archives:
        content = open(os.path.join(outside, archive), "rb").read()
        for path, piece in pieces:
            require(piece not in content, "plain content of %s is found in %s" % (path, archive))
    return len(pieces), len(archives)


class Device:
    def __init__(self, command, base, name, outside):
        self.command, self.name, self.outside = command, name, outside
        self.inside = os.path.join(base, name)
        self.work = os.path.join(base, name + "-work")
        os.makedirs(self.inside)
        self.environment = {key: value for key, value in os.environ.items() if not key.startswith("KELSYNC")}
        self.environment["XDG_DATA_HOME"] = os.path.join(base, "data")  # so that the trash is not the user's own

    def sync(self, step, *options):
        start = time.monotonic()
        done = subprocess.run([self.command, "sync", "--inside", self.inside, "--outside", self.outside, "--work",
                               self.work, *options], env=self.environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, errors="replace")
        seconds = time.monotonic() - start
        require(done.returncode == 0, "%s ended with %d:\n%s%s" % (step, done.returncode, done.stdout[-2000:],
                                                                   done.stderr[-2000:]))
        counts = next(line for line in done.stdout.splitlines() if line.startswith("encrypted "))
        print("%-34s %6.1f s   %s" % (step, seconds, counts), flush=True)
        return counts


def total(folder):
    files = [value for value in entries(folder).values() if value is not None]
    return "%d files, %d folders, %d bytes" % (len(files), len(entries(folder)) - len(files),
                                               sum(size for size, _ in files))


def travel_back(one, two):
    """Edits on the second device reach the first."""
    own = os.path.join(two.inside, "own")
    write(own + "/old.txt", b"edited on the second device\n")
    write(own + "/names/Grüße, Jürgen.txt", b"")
    write(own + "/new folder/neu – ny – 新.txt", b"made on the second device\n")
    os.remove(own + "/big twin.bin")
    two.sync("second device, after edits")
    one.sync("first device, takes the edits")
    require_equal_sides(one.inside, two.inside)
    require(not os.path.exists(os.path.join(one.inside, "own", "big twin.bin")), "a deletion did not travel")


def main_job(command, base):
    outside = os.path.join(base, "outside")
    os.makedirs(outside)
    one, two = (Device(command, base, name, outside) for name in ("inside1", "inside2"))
    collect(one.inside)
    add_own(one.inside)
    before = entries(one.inside)
    print("Inside: " + total(one.inside), flush=True)
    one.sync("first device, encrypts", "--make-key")
    require(entries(one.inside) == before, "the first device's Inside was changed")
    print("Outside: " + total(outside), flush=True)
    print("no plain content: %d pieces looked for in %d archives" % require_encrypted(one.inside, outside), flush=True)
    two.sync("second device, decrypts", "--key-file", os.path.join(one.work, "key"))
    require_equal_sides(one.inside, two.inside)
    shutil.copy(os.path.join(one.work, "key"), os.path.join(two.work, "key"))
    archives = entries(outside)
    for device, step in ((one, "first device, nothing to do"), (two, "second device, nothing to do")):
        require(device.sync(step) == NOTHING_DONE, step + ": something was done")
    require(entries(outside) == archives, "the Outside changed though there was nothing to do")
    travel_back(one, two)
    require_encrypted(one.inside, outside)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory(prefix="kelsync-run-") as folder:
        try:
            main_job(os.path.abspath(sys.argv[1]), os.path.realpath(folder))
        except Disagreement as disagreement:
            print("FAILED: %s" % disagreement)
            sys.exit(1)
    print("Both plain sides agree in content, names and times.")
