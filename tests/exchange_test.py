#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds for different systems work on one Outside: exchange_test.py NATIVE WINDOWS64 WINDOWS32

Each argument is a command with what runs it, as one word ("scripts/wine run i686 build/kelsync.exe"), or "-" for one
that is left out. Windows builds see the files of this machine below Z:.
"""
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

HEX_KEY = "00112233445566778899aabbccddeeff" * 2
DONE, NO_KEY = 0, 4
PASSWORD = {"KELSYNC_PASSWORD": "pässword 木"}
FILES = {
    "plain.txt": b"plain content\n" * 100,
    "empty": b"",
    "Grüße 木.txt": "beyond ASCII: äöü".encode(),
    "deep/er/😀 𐍈.bin": bytes(range(256)) * 5000,
    "deep/name with spaces & (signs) 'quoted'": b"x",
}
TIMES = {name: 1600000000 + 12345 * number for number, name in enumerate(FILES)}


class Wrong(Exception):
    pass


def expect(holds, what):
    if not holds:
        raise Wrong(what)


class Build:
    def __init__(self, name, command):
        self.name = name
        self.command = [os.path.abspath(part) if os.path.exists(part) else part for part in shlex.split(command)]
        self.windows = self.command[-1].endswith(".exe")

    def path(self, path):
        return "Z:" + str(path).replace("/", "\\") if self.windows else str(path)

    def run(self, code, *arguments, **variables):
        """Paths among the arguments are handed over in the system's own form. Returns the output."""
        environment = {name: value for name, value in os.environ.items() if not name.startswith("KELSYNC")}
        words = [self.path(word) if isinstance(word, pathlib.PurePath) else word for word in arguments]
        done = subprocess.run([*self.command, *words], env={**environment, **variables}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)
        text = done.stdout.decode()
        expect(done.returncode == code,
               "%s: %s gave %d, not %d:\n%s" % (self.name, words[0], done.returncode, code, text))
        return text

    def sync(self, base, device):
        return self.run(DONE, "sync", "--inside", base / device, "--outside", base / "out", "--work",
                        base / ("work-" + device), "-q", KELSYNC_KEY=HEX_KEY)


def new_device(base, device, filled=False):
    (base / "out").mkdir(exist_ok=True)
    (base / device).mkdir()
    for name, content in FILES.items() if filled else ():
        (base / device / name).parent.mkdir(parents=True, exist_ok=True)
        (base / device / name).write_bytes(content)
        os.utime(base / device / name, (TIMES[name], TIMES[name]))


def tree(folder):
    """Files with their contents and times in seconds, and folders."""
    def shown(path):
        return (path.read_bytes(), int(path.stat().st_mtime)) if path.is_file() else "folder"
    return {str(path.relative_to(folder)): shown(path) for path in folder.rglob("*") if path.name != ".rid"}


def identities(*folders):
    """What changes when a file is written again."""
    return {path: (path.stat().st_ino, path.stat().st_mtime_ns) for folder in folders for path in folder.rglob("*")
            if path.is_file()}


EXPECTED = {**{name: (content, TIMES[name]) for name, content in FILES.items()}, "deep": "folder", "deep/er": "folder"}


def outside_travels(base, first, second):
    """What one makes the other opens; an edit, a new file and a deletion of the second travel back."""
    new_device(base, "one", filled=True)
    new_device(base, "two")
    first.sync(base, "one")
    expect("encrypted 0, decrypted 5, folders 2" in second.sync(base, "two"), "not everything was decrypted")
    expect(tree(base / "two") == EXPECTED, "the second Inside is another: %s" % sorted(tree(base / "two")))
    (base / "two" / "plain.txt").write_bytes(b"edited")
    (base / "two" / "neu ü 😀").write_bytes(b"new")
    (base / "two" / "deep" / "er" / "😀 𐍈.bin").unlink()
    second.sync(base, "two")
    first.sync(base, "one")
    expect(tree(base / "one") == tree(base / "two"), "the Insides differ")
    expect((base / "one" / "neu ü 😀").exists() and len(tree(base / "one")) == len(EXPECTED), "an edit was lost")


def archives_travel(base, first, second):
    """Single archives and their metadata."""
    meta = base / "__KELASSET_.json"
    meta.write_bytes('{"a": "ü",\r\n "b": "😀"}\n'.encode())
    plain = base / "Grüße.bin"
    plain.write_bytes(bytes(range(256)) * 9)
    for name, entry, options in (("😀 a.zip", plain.name, ("--compress",)),
                                 ("b.zip", "Content", ("--meta", meta, "--store"))):
        first.run(DONE, "pack", plain, "-o", base / name, *options, **PASSWORD)
        second.run(DONE, "unpack", base / name, "-o", base / ("to " + name), **PASSWORD)
        second.run(NO_KEY, "unpack", base / name, "-o", base / "nowhere", KELSYNC_PASSWORD="another")
        expect((base / ("to " + name) / entry).read_bytes() == plain.read_bytes(), "another content came out")
    expect(second.run(DONE, "meta", base / "b.zip") == meta.read_bytes().decode(), "other metadata came out")


def state_is_shared(base, first, second):
    """The state that one architecture wrote is the other's as well: its run finds nothing to do."""
    new_device(base, "one", filled=True)
    expect("encrypted 5" in first.sync(base, "one"), "not everything was encrypted")
    before = identities(base / "out", base / "one")
    expect("encrypted 0, decrypted 0, folders 0, deleted 0, failed 0, quarantined 0" in
           second.sync(base, "one"), "the second run found something to do")
    expect(identities(base / "out", base / "one") == before, "a file was written again")
    (base / "one" / "empty").write_bytes(b"no more")
    (base / "one" / "plain.txt").unlink()
    expect("encrypted 1, decrypted 0, folders 0, deleted 1" in second.sync(base, "one"), "changes were missed")
    changed = {path.name for path, mark in before.items() if identities(base / "out", base / "one").get(path) != mark}
    expect(changed == {"empty", "empty.kelta", "plain.txt", "plain.txt.kelta"}, "changed as well: %s" % changed)


def main():
    names = ("native", "windows-x86_64", "windows-i686")
    if len(sys.argv) != 1 + len(names):
        raise SystemExit(__doc__)
    native, *windows = [None if command == "-" else Build(name, command)
                        for name, command in zip(names, sys.argv[1:])]
    couples = [(test, one, other) for test in (outside_travels, archives_travel) for two in windows
               for one, other in ((native, two), (two, native))]
    couples += [(state_is_shared, *windows), (state_is_shared, *reversed(windows))]
    passed = failed = skipped = 0
    for test, first, second in couples:
        if first is None or second is None:
            skipped += 1
            print("SKIPPED  %s: a build is missing" % test.__name__)
            continue
        what = "%s: %s -> %s" % (test.__name__, first.name, second.name)
        with tempfile.TemporaryDirectory(prefix="kelsync-exchange-") as folder:
            try:
                test(pathlib.Path(os.path.realpath(folder)), first, second)
                passed += 1
                print("passed   " + what, flush=True)
            except (Wrong, OSError, UnicodeDecodeError, subprocess.TimeoutExpired) as error:
                failed += 1
                print("FAILED   %s: %s" % (what, error), flush=True)
    print("%d passed, %d failed, %d skipped" % (passed, failed, skipped))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
