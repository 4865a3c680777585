#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tests of the kelsync command from outside: host_test.py GROUP|all COMMAND...

COMMAND may begin with what runs programs of another system. A command that ends in .exe is handed Windows paths; what
only other systems have (terminals here, file modes, some file names) is then left out.
"""
import functools
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import termios
import time
import unicodedata
import unittest
from unittest.mock import ANY

KELSYNC = []
WINDOWS = False
DONE, FAILED, USAGE, MISSING, NO_KEY, INTERRUPTED = 0, 1, 2, 3, 4, 130
HEX_KEY = "00112233445566778899aabbccddeeff" * 2
NOTHING = "encrypted 0, decrypted 0, folders 0, deleted 0, failed 0, quarantined 0"


def form(argument):
    """An argument as the command takes it, and as it shows paths."""
    return "Z:" + str(argument) if WINDOWS and isinstance(argument, pathlib.PurePath) else str(argument)


def not_on_windows(reason):
    """Wine's own links, file modes and terminals are not those of Windows."""
    def decorate(test):
        @functools.wraps(test)
        def run(self):
            if WINDOWS:
                self.skipTest(reason)
            test(self)
        return run
    return decorate


class Base(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="kelsync-host-")
        self.addCleanup(holder.cleanup)
        self.base = pathlib.Path(os.path.realpath(holder.name))
        self.inside, self.outside, self.work = (self.base / name for name in ("in", "out", "work"))
        self.pair = ("--inside", self.inside, "--outside", self.outside, "--work", self.work)
        self.inside.mkdir()
        self.outside.mkdir()

    def environment(self, variables):
        kept = {name: value for name, value in os.environ.items() if not name.startswith(("KELSYNC", "SYNCPAIR"))}
        return {**kept, "XDG_DATA_HOME": str(self.base / "data"), **variables}

    def start(self, *arguments, **variables):
        """Starts the command without a terminal."""
        return subprocess.Popen([*KELSYNC, *map(form, arguments)], env=self.environment(variables), cwd=self.base,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                start_new_session=True)

    def finish(self, process):
        """What it wrote: output and errors, whose lines end the same everywhere."""
        texts = [written.decode() for written in process.communicate(timeout=300)]
        self.assertNotIn("\r", "".join(texts))
        return texts

    def expect(self, code, *arguments, **variables):
        """Runs the command, expects its exit code, and returns what it wrote: output and errors."""
        process = self.start(*arguments, **variables)
        output, errors = self.finish(process)
        self.assertEqual(process.returncode, code, "%s\n%s%s" % (arguments, output, errors))
        return output, errors

    def sync(self, code, *options, inside=None, work=None, **variables):
        return self.expect(code, "sync", "--inside", inside or self.inside, *self.pair[2:4], "--work", work or self.work,
                           *options, **variables)

    def expect_status(self, lists, text):
        """What "status" shows of the pair now: some of its JSON lists, and a part of its text."""
        shown = {}
        for line in self.expect(DONE, "status", *self.pair, "--json")[0].splitlines():
            shown.update(json.loads(line))
        self.assertEqual(shown, {**shown, **lists})
        self.assertRegex(self.expect(DONE, "status", *self.pair)[0], text)

    def expect_modes(self, *expected):
        for path, mode in expected:
            if not WINDOWS:
                self.assertEqual(stat.S_IMODE(path.stat().st_mode), mode)

    @staticmethod
    def faked(waiting):
        """For a run in which the library says that the file's entries wait, and that watches ran out."""
        library = next(pathlib.Path(KELSYNC[-1]).parent.rglob("libkelsync_waiting_list.so"))
        # The sanitizer wants to come first.
        return {"LD_PRELOAD": library, "WAITING_LIST": waiting, "ASAN_OPTIONS": "verify_asan_link_order=0"}

    def on_terminal(self, arguments, answers, columns=80, **variables):
        """Runs the command on a terminal of its own, types an answer at each prompt; exit code and screen."""
        process, terminal = pty.fork()
        if process == 0:
            termios.tcsetwinsize(0, (24, columns))
            os.chdir(self.base)
            os.execve(KELSYNC[0], [*KELSYNC, *map(str, arguments)], self.environment({"TERM": "xterm", **variables}))
        screen = b""
        prompts = 0
        while True:
            try:
                piece = os.read(terminal, 4096)
            except OSError:
                piece = b""
            if not piece:
                break
            screen += piece
            if (piece.rstrip(b" ").endswith(b":") or b"idle" in piece) and prompts < len(answers):
                os.write(terminal, answers[prompts].encode() + b"\r")
                prompts += 1
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), screen.decode(errors="replace")


class Usage(Base):
    def test_refused_arguments(self):
        pair = ("sync", "--inside", "in", "--outside", "out")
        link = "IN" if WINDOWS else "link"
        if not WINDOWS:
            (self.base / link).symlink_to("in")
        (self.base / "in" / "below").mkdir()
        for arguments, reason in (
            ((), "command is missing"),
            (("frobnicate",), "unknown command frobnicate"),
            (("sync",), "--inside is missing"),
            (("sync", "--inside", "--outside", "out"), "--inside needs a value"),
            ((*pair, "--bo\x1b[2Jgus"), "unknown option --bo\\u{1b}[2Jgus"),
            ((*pair, "--quiet=yes"), "--quiet takes no value"),
            ((*pair, "--inside", "in"), "--inside is given twice"),
            ((*pair, "stray"), "one argument too many: stray"),
            (("names", "maybe", "--inside", "in", "--outside", "out"), "names takes on or off"),
            ((*pair, "--asset", "a" * 256), "--asset takes"),
            (("sync", "--inside", "in", "--outside", "in"), "are the same folder"),
            (("sync", "--inside", "in/", "--outside", "./%s/." % link), "are the same folder"),
            (("sync", "--inside", "in", "--outside", link + "/below"), "the Outside lies in the Inside"),
            (("sync", "--inside", "in/below", "--outside", "in"), "the Inside lies in the Outside"),
            (("sync", "--inside", "/", "--outside", "out"), "the Outside lies in the Inside"),
            ((*pair, "--work", "in/w"), "work folder lies in the Inside"),
            ((*pair, "--work", "out"), "work folder lies in the Outside"),
            (("status", *pair[1:], "--pairs", "x"), "unknown option --pairs"),
            (("quarantine", *pair[1:]), "what to do is missing"),
            (("pack", "x"), "--output is missing"),
            (("pack", "x", "-o", "y", "--store", "--compress"), "exclude each other"),
            (("meta", "x", "--password", "y"), "unknown option --password"),
            (("key",), "rotate, verify or recover"),
        ):
            with self.subTest(arguments):
                output, errors = self.expect(USAGE, *arguments)
                self.assertIn(reason, errors)
                self.assertEqual(output, "")
        self.assertFalse((self.base / "data").exists(), "a refused run left something behind")

    def test_help_and_version(self):
        general = self.expect(DONE, "--help")[0]
        self.assertEqual(general, self.expect(DONE, "help")[0])
        for command in ("sync", "status", "quarantine", "pack", "unpack", "meta", "set-meta"):
            self.assertIn("kelsync " + command, general)
            text = self.expect(DONE, "help", command)[0]
            self.assertTrue(text.startswith("kelsync " + command + " "))
            self.assertEqual(text, self.expect(DONE, command, "whatever", "--help")[0])
        for action in ("rotate", "verify", "recover"):
            text = self.expect(DONE, "key", action, "--help")[0]
            self.assertTrue(text.startswith("kelsync key %s " % action))
            self.assertEqual(text, self.expect(DONE, "help", "key", action)[0])
        self.assertRegex(self.expect(DONE, "--version")[0], r"^kelsync \d+\.\d+\.\d+\n$")

    def test_missing_folders(self):
        (self.base / "file").write_text("no folder")
        for inside, outside, reason in (("nowhere", "out", "the Inside does not exist"),
                                        ("in", "file", "the Outside is no folder")):
            errors = self.expect(MISSING, "sync", "--inside", inside, "--outside", outside, "--make-key")[1]
            self.assertIn(reason, errors)
            self.assertEqual("create it first" in errors, "not exist" in reason)
        self.assertFalse((self.base / "nowhere").exists())
        self.assertFalse((self.base / "data").exists())


class Keys(Base):
    """An empty pair has nothing to wait for, so that a run takes no time."""

    def key_file(self, content):
        (self.base / "given").write_bytes(content)
        return "--key-file", "given"

    def test_forms_and_warnings(self):
        for key, warning in ((HEX_KEY, ""), ("A" * 43, ""), ("A" * 43 + "=", ""),
                             ("a long and random phrase, made of words", ""),
                             ("Straße 木", "short pass phrase"), (HEX_KEY[:-1], "63 hex digits, not 64")):
            for end in (b"", b"\n", b"\r\n"):
                errors = self.sync(DONE, *self.key_file(key.encode() + end))[1]
                self.assertIn(warning, errors)
                self.assertEqual(errors == "", warning == "", errors)
            self.assertIn(warning, self.sync(DONE, KELSYNC_KEY=key)[1])

    def test_refused_key_files(self):
        for content, reason in ((b"", "is empty"), (b"\n", "is empty"), (b"x" * 4097, "bigger than 4 KiB"),
                                (b"one\ntwo\n", "not one line"), (b"a\0b", "not one line"), (b"\xff\xfe", "not one")):
            self.assertIn(reason, self.sync(NO_KEY, *self.key_file(content))[1])
        self.assertIn("cannot be read", self.sync(NO_KEY, "--key-file", "nowhere")[1])
        self.assertIn("is a folder", self.sync(NO_KEY, "--key-file", "in")[1])
        self.assertIn("empty", self.sync(NO_KEY, KELSYNC_KEY="")[1])

    def test_making_one(self):
        errors = self.sync(NO_KEY)[1]
        self.assertIn("--make-key", errors)
        output = self.sync(DONE, "--make-key", "--quiet")[0]
        self.assertIn("Keep a copy", output)
        made = self.work / "key"
        self.assertRegex(made.read_text(), r"^[0-9a-f]{64}\n$")
        self.expect_modes((made, 0o600), (self.work, 0o700))
        kept = made.read_bytes()
        self.assertNotIn("Keep a copy", self.sync(DONE, "--make-key")[0])
        self.assertIn("key: %s" % form(made), self.sync(DONE)[0])
        self.assertEqual(made.read_bytes(), kept)
        self.sync(DONE, "--make-key", "--key-file", "other")
        self.assertNotEqual((self.base / "other").read_bytes(), kept)

    def test_changing_verifying_and_recovering(self):
        def key(code, action, *options, **variables):
            return self.expect(code, "key", action, *self.pair, *options, **variables)
        for name in ("x", "y"):
            (self.inside / name).write_text("content of " + name)
        self.sync(DONE, "--make-key", "--quiet")
        old = (self.work / "key").read_bytes()
        (self.base / "old").write_bytes(old)
        archive = self.outside / "x.kelta"
        self.assertIn("opened 2, not opened 0", key(DONE, "verify")[0])
        output, errors = key(NO_KEY, "verify", KELSYNC_KEY="f" * 64)
        self.assertIn("not opened 2", output)
        self.assertIn("does not open it: x", errors)
        key(NO_KEY, "rotate")
        key(NO_KEY, "rotate", "--make-key", KELSYNC_KEY="f" * 64)
        before = archive.stat().st_mtime_ns

        whole = (self.outside / "y.kelta").read_bytes()
        (self.outside / "y.kelta").write_bytes(whole[:300])
        output, errors = key(FAILED, "rotate", "--make-key")
        self.assertIn("under the new key 1, failed 1", output)
        self.assertIn("keep both keys", errors)
        self.assertIn("move it out", errors)
        self.assertIn("another key", key(USAGE, "rotate", "--new-key-file", self.base / "old")[1])
        self.assertIn("key rotate", self.sync(FAILED)[1])
        (self.outside / "y.kelta").write_bytes(whole)
        self.assertIn("under the new key 2, failed 0", key(DONE, "rotate")[0])
        fresh = (self.work / "key").read_bytes()
        self.assertNotEqual(fresh, old)
        self.assertEqual((self.work / "key.old").read_bytes(), old)
        self.assertFalse((self.work / "key.new").exists())
        self.expect_modes((self.work / "key", 0o600), (self.work / "key.old", 0o600))
        self.assertEqual(archive.stat().st_mtime_ns, before)
        self.assertIn("opened 2", key(DONE, "verify")[0])
        self.assertIn("no archive", key(NO_KEY, "rotate", "--make-key", "--asset", "mistyped")[1])
        self.assertEqual(set(self.work.glob("key*")), {self.work / "key", self.work / "key.old"})
        key(DONE, "rotate", "--make-key")
        self.assertEqual((self.work / "key.old").read_bytes(), old)
        self.assertEqual((self.work / "key.old.2").read_bytes(), fresh)
        fresh = (self.work / "key").read_bytes()
        for number in range(20):  # of a device that has the old key still
            (self.inside / str(number)).write_text("more")
        self.sync(DONE, "--quiet")
        for late in ("late", "latest"):
            (self.outside / late).with_suffix(".kelta").write_bytes(whole)
            self.assertIn("failed 0", key(DONE, "rotate", "--key-file", self.base / "old", "--new-key-file",
                                          self.work / "key")[0])
            (self.outside / late).with_suffix(".kelta").unlink()

        self.expect(NO_KEY, "key", "recover", archive, "-o", "r", "--key-file", "old")
        self.assertFalse((self.base / "r").exists())
        self.expect(DONE, "key", "recover", archive, "-o", "r", KELSYNC_KEY=fresh.decode().strip())
        self.assertEqual((self.base / "r").read_text(), "content of x")
        self.expect(DONE, "key", "recover", archive, "-o", "q", "--work", self.work)
        self.assertEqual((self.base / "q").read_text(), "content of x")
        self.assertIn("exists already", self.expect(FAILED, "key", "recover", archive, "-o", "r",
                                                    "--key-file", "old")[1])
        (self.base / "torn.kelta").write_bytes(whole[:300])
        self.expect(FAILED, "key", "recover", "torn.kelta", "-o", "s", "--key-file", "old")

    def test_none_is_made_where_it_could_not_open_the_archives(self):
        (self.outside / "deep").mkdir()
        (self.outside / "deep" / "a.txt.kelta").write_text("an archive of another device")
        for options in (("--make-key",), ("--make-key", "--key-file", "new")):
            self.assertIn("already holds archives", self.sync(NO_KEY, *options, work=self.work / "deep")[1])
        self.assertEqual({path.name for path in self.base.iterdir()}, {"in", "out"}, "a refused run left something")

    @not_on_windows("a terminal")
    def test_asked_for_on_a_terminal(self):
        command = ("sync", *self.pair)
        self.assertEqual(self.on_terminal(command, ["a secret phrase of some length", "a slip"])[0], NO_KEY)
        code, screen = self.on_terminal(command, ["a secret phrase of some length"] * 2)
        self.assertEqual(code, DONE, screen)
        self.assertNotIn("secret", screen)
        self.assertFalse((self.work / "key").exists())
        self.assertEqual(self.on_terminal(command, ["\x1b"])[0], NO_KEY)
        code, screen = self.on_terminal(command, [""])
        self.assertEqual(code, DONE, screen)
        self.assertIn("Keep a copy", screen)
        self.assertEqual(len((self.work / "key").read_text()), 65)


class Archives(Base):
    def pack(self, code, *options, **variables):
        return self.expect(code, "pack", "plain.txt", "-o", "a.zip", *options, **{"KELSYNC_PASSWORD": "pässword",
                                                                                  **variables})

    def setUp(self):
        super().setUp()
        self.plain = "some plain content, line by line\n" * 50
        (self.base / "plain.txt").write_text(self.plain)
        (self.base / "__KELASSET_.json").write_text('{"asset": "\x1b[31mone"}\n')

    def test_round_trip_with_metadata(self):
        sizes = []
        for option in ("--store", "--compress"):
            self.pack(DONE, "--meta", "__KELASSET_.json", option)
            content = (self.base / "a.zip").read_bytes()
            self.assertNotIn(b"plain content", content)
            sizes.append(len(content))
            self.assertEqual(self.expect(DONE, "meta", "a.zip")[0], '{"asset": "\x1b[31mone"}\n')
            self.expect(DONE, "unpack", "a.zip", "-o", "to/" + option, KELSYNC_PASSWORD="pässword")
            self.assertEqual((self.base / "to" / option / "Content").read_text(), self.plain)
            (self.base / "a.zip").unlink()
        self.assertGreater(sizes[0], 2 * sizes[1])

    def test_metadata_is_replaced_and_the_content_stays(self):
        self.pack(DONE, "--meta", "__KELASSET_.json")
        (self.base / "new").mkdir()
        (self.base / "new" / "__KELASSET_.json").write_text('{"asset": "two"}')
        self.expect(DONE, "set-meta", "a.zip", "--meta", "new/__KELASSET_.json")
        self.assertEqual(self.expect(DONE, "meta", "a.zip")[0], '{"asset": "two"}')
        entry = ("meta", "a.zip", "--entry", "Content")
        self.assertEqual(self.expect(DONE, *entry, KELSYNC_PASSWORD="pässword")[0], self.plain)
        self.assertIn("password", self.expect(NO_KEY, *entry)[1])

    @not_on_windows("a terminal")
    def test_own_name_on_a_terminal(self):
        pack = ("pack", "plain.txt", "-o", "b.zip")
        self.assertEqual(self.on_terminal(pack, ["typed ü", "mistyped"])[0], NO_KEY)
        code, screen = self.on_terminal(pack, ["typed x\x7fü", "typed ü"])
        self.assertEqual(code, DONE, screen)
        self.assertNotIn("typed", screen)
        self.expect(DONE, "unpack", "b.zip", "-o", "to", KELSYNC_PASSWORD="typed ü")
        self.assertEqual((self.base / "to" / "plain.txt").read_text(), self.plain)
        (self.base / "plain.txt").write_text("line by line \x1b[31m")
        self.expect(DONE, "pack", "plain.txt", "-o", "c.zip", KELSYNC_PASSWORD="typed ü")
        screen = self.on_terminal(("meta", "c.zip", "--entry", "plain.txt"), ["typed ü"])[1]
        self.assertIn("line by line \\u{1b}[31m", screen)

    def test_failures_are_told_apart(self):
        self.pack(DONE)
        self.assertIn("exists already", self.pack(FAILED)[1])
        password = {"KELSYNC_PASSWORD": "pässword"}
        whole = (self.base / "a.zip").read_bytes()
        (self.base / "cut.zip").write_bytes(whole[:-30])
        (self.base / "file").write_text("in the way")
        for arguments, reason in (
            (("unpack", "nowhere.zip", "-o", "to"), "/nowhere.zip: does not exist"),
            (("unpack", "in", "-o", "to"), "/in: is a folder"),
            (("unpack", "plain.txt", "-o", "to"), "no zip archive"),
            (("unpack", "a.zip", "-o", "file"), "/file: is no folder"),
            (("meta", "a.zip"), "no entry of that name"),
            (("set-meta", "a.zip", "--meta", "nowhere"), "/nowhere: does not exist"),
            (("pack", "plain.txt", "-o", "nowhere/b.zip"), "/nowhere: is no folder"),
            (("pack", "plain.txt", "-o", "b.zip", "--meta", "gone"), "/gone: does not exist"),
        ):
            with self.subTest(arguments):
                self.assertIn(reason, self.expect(FAILED, *arguments, **password)[1])
        self.expect(FAILED, "unpack", "cut.zip", "-o", "to", **password)
        self.assertIn("password is wrong", self.expect(NO_KEY, "unpack", "a.zip", "-o", "to", KELSYNC_PASSWORD="x")[1])
        self.assertIn("set, but empty", self.expect(NO_KEY, "unpack", "a.zip", "-o", "to", KELSYNC_PASSWORD="")[1])
        (self.base / "Content").write_text("x")
        self.assertIn("Content is kept", self.expect(USAGE, "set-meta", "a.zip", "--meta", "Content")[1])
        self.assertIn("no password", self.expect(NO_KEY, "unpack", "a.zip", "-o", "to")[1])
        self.assertFalse((self.base / "to" / "plain.txt").exists())
        self.assertEqual((self.base / "a.zip").read_bytes(), whole)


class Sync(Base):
    def test_encrypted_names(self):
        (self.inside / "docs").mkdir()
        (self.inside / "docs" / "a.txt").write_text("first")
        pair = self.pair
        self.assertIn("files: 1; too long with plain names: 0, with encrypted names: 0", self.expect(DONE, "check", *pair)[0])
        self.sync(DONE, "--make-key")
        self.assertIn(" encrypt  docs/b.txt", self.sync_new("b.txt", "--names"))
        self.assertIn(" encrypt  docs/c.txt", self.sync_new("c.txt"))
        names = [archive.name for archive in self.outside.rglob("*?.kelta")]
        self.assertFalse({"a.txt.kelta", "b.txt.kelta", "c.txt.kelta"} & set(names), "remembered, and all turned over")
        self.assertRegex(self.expect(DONE, "ls", *pair)[0], r"(?m)^encrypted +[0-9]+  docs/a\.txt$")
        self.assertIn("all archives have plain names now", self.expect(DONE, "names", "off", *pair)[0])
        self.assertTrue((self.outside / "docs" / "c.txt.kelta").exists())
        self.assertIn(NOTHING, self.sync(DONE)[0])
        (self.inside / ("l" * 200)).write_text("")
        self.assertRegex(self.expect(FAILED, "check", *pair)[0], r" path name  path name   file\n *\d+  206  [0-9 ]+!  l{200}\n"
                                                                 r"files: 4; .* names: 0, .* names: 1")

    def sync_new(self, name, *options):
        (self.inside / "docs" / name).write_text(name)
        return self.sync(DONE, *options)[0]

    def test_two_devices(self):
        (self.inside / "docs").mkdir()
        (self.inside / "docs" / "a.txt").write_text("first")
        (self.inside / "Grüße.txt").write_text("second, longer")
        evil = "evil\u202e.txt" if WINDOWS else "e\x1b[31mvil.txt"
        (self.inside / evil).write_text("")
        output, errors = self.sync(DONE, "--make-key")
        self.assertEqual(errors, "")
        self.assertRegex(output, r"(?m)^\[[1-4]/4\] encrypt  docs/a\.txt$")
        self.assertRegex(output, r"(?m)^\[[1-4]/4\] folder   docs$")
        self.assertRegex(output, r"evil\\u\{202e\}|e\\u\{1b\}\[31mvil")
        self.assertNotRegex(output, "[\x1b\u202e]")
        self.assertIn("encrypted 3, decrypted 0, folders 1, deleted 0, failed 0, quarantined 0", output)
        archives = list(self.outside.rglob("*?.kelta"))
        self.assertIn("written %d bytes" % sum(file.stat().st_size for file in archives), output)
        self.assertIn(NOTHING, self.sync(DONE)[0])

        second = self.base / "second"
        second.mkdir()
        quiet = self.sync(DONE, "-q", "--key-file", self.work / "key", inside=second, work=self.base / "work2")[0]
        self.assertRegex(quiet, "^encrypted 0, decrypted 3, folders 1, deleted 0, failed 0, quarantined 0\n")
        self.assertEqual((second / "docs" / "a.txt").read_text(), "first")
        self.assertEqual((second / "Grüße.txt").read_text(), "second, longer")
        self.assertEqual(int((second / "docs" / "a.txt").stat().st_mtime),
                         int((self.inside / "docs" / "a.txt").stat().st_mtime))

        for archive in self.outside.rglob("*"):
            if archive.is_file():
                archive.unlink()
        (self.outside / "docs").rmdir()
        errors = self.sync(MISSING)[1]
        self.assertIn("is its volume mounted?", errors)
        self.assertEqual((self.inside / "docs" / "a.txt").read_text(), "first")

    def test_other_case_is_the_same_folder_on_windows(self):
        if not WINDOWS:
            self.skipTest("case matters here")
        (self.inside / "a.txt").write_text("to be deleted")
        self.sync(DONE, KELSYNC_KEY=HEX_KEY)
        (self.inside / "a.txt").unlink()
        output = self.sync(DONE, KELSYNC_KEY=HEX_KEY, inside=form(self.inside).upper().replace("Z:", "z:"))[0]
        self.assertIn("encrypted 0, decrypted 0, folders 0, deleted 1", output)

    def test_what_is_left_out_fails_the_run(self):
        folder = self.inside / ("long" * 50)
        folder.mkdir()
        (folder / ("name" * 20)).write_text("too long a path")
        (self.inside / "good.txt").write_text("carried over all the same")
        (self.outside / "bad.txt.kelta").write_text("no archive at all")
        if not WINDOWS:
            (folder / b"bad\xff.txt".decode(errors="surrogateescape")).write_text("its name is no text")
        output = self.sync(FAILED, KELSYNC_KEY=HEX_KEY)[0]
        self.assertRegex(output, "(?m)^quarantined: (long)+/(name)+: ")
        self.assertTrue(WINDOWS or re.search("(?m)^quarantined: (long)+/bad\ufffd.txt: ", output), output)
        self.assertRegex(output, r"(?m)^\[\d/\d\] FAILED   bad\.txt$")
        self.assertRegex(output, r"(?m)^not synchronised: bad\.txt\b")
        self.assertIn("encrypted 1, decrypted 0, folders 1, deleted 0, failed 1, quarantined %d" % (1 if WINDOWS else 2), output)
        self.assertEqual((self.outside / "bad.txt.kelta").read_text(), "no archive at all")
        failed = [dict(path=form(self.outside / "bad.txt"), name="bad.txt", reason=ANY)]
        self.expect_status({"failed": failed}, "not synchronised: 1\n  bad.txt: its archive cannot be read")
        for path in self.inside.glob("long*"):
            shutil.rmtree(path)
        os.utime(self.outside / "bad.txt.kelta", (1600000000, 1600000000))
        (self.inside / "bad.txt").write_text("whole")
        errors = self.sync(DONE, KELSYNC_KEY=HEX_KEY)[1]
        self.assertIn("bad.txt cannot be read and is to be replaced", errors)
        self.expect_status({"failed": []}, "not synchronised: 0\n")

    def test_output_that_is_lost(self):
        (self.inside / "a.txt").write_text("content")
        with open("/dev/full", "w") as full:
            for arguments in (("--help",), ("sync", "--inside", "in", "--outside", "out", "--work", "work")):
                done = subprocess.run([*KELSYNC, *arguments], env=self.environment({"KELSYNC_KEY": HEX_KEY}),
                                      cwd=self.base, stdout=full, stderr=subprocess.PIPE, text=True)
                self.assertEqual(done.returncode, FAILED)
                self.assertIn("could not be written", done.stderr)
        if not WINDOWS:
            process = self.start("ls", "--inside", "in", "--outside", "out", "--work", "work", KELSYNC_KEY=HEX_KEY)
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"", "a reader that has enough is no fault")
            self.assertEqual(process.wait(timeout=60), -signal.SIGPIPE)
        (self.inside / "b.txt").write_text("content")
        process = self.start("sync", "--inside", "in", "--outside", "out", "--work", "work", KELSYNC_KEY=HEX_KEY)
        process.stdout.close()
        process.stderr.close()
        self.assertEqual(process.wait(timeout=60), FAILED)
        self.assertTrue((self.outside / "b.txt.kelta").exists())
        self.assertIn(NOTHING, self.sync(DONE, KELSYNC_KEY=HEX_KEY)[0])

    def test_interrupted(self):
        (self.inside / "a.txt").write_text("content")
        process = self.start("sync", *self.pair, KELSYNC_KEY=HEX_KEY)
        while process.poll() is None and not (self.work / "log" / "syncpair.log").exists():
            time.sleep(0.01)
        process.send_signal(signal.SIGINT if WINDOWS else signal.SIGTERM)  # Wine makes it a Ctrl-C
        output, errors = self.finish(process)
        self.assertEqual(process.returncode, INTERRUPTED, output + errors)
        self.assertIn("interrupted", errors)
        self.assertEqual([path for path in self.base.rglob("*~kelsync*")], [])

    def test_work_folder_of_another_pair(self):
        for name in ("in2", "out2"):
            (self.base / name).mkdir()
        self.sync(DONE, KELSYNC_KEY=HEX_KEY)
        self.assertEqual((self.work / "pair").read_text(), "%s\n%s\n" % (form(self.inside), form(self.outside)))
        self.expect_modes((self.work / "pair", 0o600))
        for pair in (("in2", "out"), ("in", "out2"), ("out", "in")):
            errors = self.expect(USAGE, "sync", "--inside", pair[0], "--outside", pair[1], "--work", "work",
                                 KELSYNC_KEY=HEX_KEY)[1]
            self.assertIn("another pair:\n  Inside:  %s\n  Outside: %s\n" % (form(self.inside), form(self.outside)),
                          errors)
        (self.work / "pair").unlink()
        self.expect(DONE, "sync", "--inside", "in2", "--outside", "out", "--work", "work", KELSYNC_KEY=HEX_KEY)

    def test_wrong_key_is_refused_before_anything_is_written(self):
        (self.inside / "a.txt").write_text("content")
        self.sync(DONE, "--make-key")
        (self.inside / "b.txt").write_text("not to be locked away")
        before = sorted((path, path.stat().st_mtime_ns) for path in self.outside.rglob("*"))
        errors = self.sync(NO_KEY, KELSYNC_KEY=HEX_KEY)[1]
        self.assertIn("the environment variable KELSYNC_KEY", errors)
        self.assertIn("in place of the pair's own, %s" % form(self.work / "key"), errors)
        self.assertIn("changed on another device", errors)
        self.assertEqual(sorted((path, path.stat().st_mtime_ns) for path in self.outside.rglob("*")), before)
        self.assertIn("encrypted 1", self.sync(DONE)[0])

    def test_status_and_clearing(self):
        pair = self.pair
        for command in (("status", *pair), ("status", *pair, "--json"), ("quarantine", "clear", *pair)):
            output, errors = self.expect(FAILED, *command)
            self.assertEqual(output, "")
            self.assertIn("not synchronised yet", errors)
        self.expect(MISSING, "status", "--inside", "nowhere", *pair[2:])
        self.assertFalse(self.work.exists())
        awkward, other = ("mine.kelta", "other.kelta") if WINDOWS else ('say "hi"\t.txt', "back\\slash.txt")
        for name in (awkward, other, "good.txt"):
            (self.inside / name).write_text("x")
        self.sync(FAILED, KELSYNC_KEY=HEX_KEY)
        def seen():
            places = (self.inside, self.outside, self.work / "state")
            return sorted((path, path.stat().st_mtime_ns) for place in places for path in place.rglob("*"))
        # What a start would mend.
        (self.work / "state/Kelta_sync_state_0.txt").write_text("rubbish\n")
        (self.outside / ".kelta").unlink()
        before = seen()
        output = self.expect(DONE, "status", *pair, "--key-file", "of sync", "--make-key", "--names", "-q")[0]
        self.assertRegex(output, r"(?m)\Anot synchronised: 0\nquarantined: 2$")
        line = r"mine\.kelta: A name ending in" if WINDOWS else r'say "hi"\\t\.txt: Name cannot be stored$'
        self.assertRegex(output, r"(?m)^  \d{4}-\d\d-\d\dT[\d:]+Z  path-issue  " + line)
        self.assertRegex(output, r"Quarantine for .*\n  SYNC   Encrypted good.txt successfully\n\Z")
        shown = re.search(r"path-issue  (.*): (?=(Name cannot|A name ending))", output).group(1)
        lists = self.expect(DONE, "status", *pair, "--json")[0].splitlines()
        quarantine, notifications, waiting, failed = map(json.loads, lists)
        self.assertEqual((waiting, failed), ({"waiting": []}, {"failed": []}))
        self.assertEqual(sorted(record["quarantine_path"] for record in quarantine["quarantined"]),
                         sorted(form(self.inside / name) for name in (other, awkward)))
        self.assertIn("Encrypted good.txt successfully", [told["message"] for told in notifications["notifications"]])
        (self.work / "notifications").write_text('{"notifications":[{"ty')
        output, errors = self.expect(DONE, "status", *pair, "--json")
        self.assertEqual(output.splitlines()[1], '{"notifications":[]}')
        self.assertIn("damaged", errors)
        self.assertEqual(seen(), before)
        self.outside.rename(self.base / "unmounted")
        output, errors = self.expect(MISSING, "status", *pair)
        self.assertIn("quarantined: 2", output)
        self.assertIn("is its volume mounted?", errors)
        (self.base / "unmounted").rename(self.outside)
        errors = self.expect(FAILED, "quarantine", "clear", *pair, "good.txt")[1]
        self.assertIn("good.txt: not quarantined", errors)
        self.assertIn("cleared 1, left 1", self.expect(DONE, "quarantine", "clear", *pair, shown)[0])
        self.assertIn("cleared 1, left 0", self.expect(DONE, "quarantine", "clear", *pair)[0])
        self.assertIn("cleared 0, left 0", self.expect(DONE, "quarantine", "clear", *pair)[0])

    @not_on_windows("a library put before another")
    def test_what_is_left_for_later(self):
        (self.inside / "disk.iso").write_text("grows")
        waiting = self.base / "waiting.json"
        def synced(code, *entries):
            waiting.write_text(json.dumps({"waiting": [dict(path=str(self.inside / name), reason=reason, seconds=2)
                                                       for name, reason in entries]}, separators=(",", ":")))
            return self.sync(code, KELSYNC_KEY=HEX_KEY, **self.faked(waiting))[0]
        ahead = (("old.jpg", "future-time"), (self.outside / "old.jpg.kelta", "future-time"))
        archive = self.outside / "disk.iso.kelta"
        for entries, reason in (((("disk.iso", "changing"),), "it is being written to"),
                                (((archive, "changing"), ("disk.iso", "in-use")), "a program has it open"),
                                ((("disk.iso", "in-use"), (archive, "changing")), "a program has it open")):
            output = synced(FAILED, *ahead, *entries)
            self.assertEqual(re.findall(r"(?m)^left for later: (disk\.iso: [^,;]+)", output), ["disk.iso: " + reason])
            self.assertEqual(output.count("last-write time in the future: old.jpg: "), 1)
            self.assertRegex(output, r"failed 0, quarantined 0, left for later 1\n")
        self.expect_status({}, "left for later: 1\n  in-use +disk.iso: a program has it .*\n"
                               "last-write time in the future: 1\n  old.jpg: .*\nnot")
        self.assertRegex(synced(DONE, *ahead), r"quarantined 0\n")
        waits = [dict(path=str(self.inside / "old.jpg"), name="old.jpg", reason="future-time", seconds=2)]
        self.expect_status({"waiting": waits}, "left for later: 0\nlast-write time in the future: 1\n")

    def test_a_conflict_is_shown(self):
        second = self.base / "second"
        second.mkdir()
        self.sync(DONE, inside=second, work=self.base / "work2", KELSYNC_KEY=HEX_KEY)
        for folder, text in ((self.inside, "one"), (second, "two")):
            (folder / "a.txt").write_text(text)
            os.utime(folder / "a.txt", (1600000000, 1600000000))
        self.sync(DONE, KELSYNC_KEY=HEX_KEY)
        output = self.sync(DONE, inside=second, work=self.base / "work2", KELSYNC_KEY=HEX_KEY)[0]
        self.assertRegex(output, r"(?m)^conflict copy made: a\.txt\.\d{8}-\d{6}-[0-9a-f]{4}\.kelta_conflict$")
        self.sync(DONE, KELSYNC_KEY=HEX_KEY)
        for folder in (self.inside, second):
            self.assertEqual(sorted(path.read_text() for path in folder.glob("a.txt*")), ["one", "two"])
        for folder, seconds in ((self.inside, 1600000010), (second, 1600000020)):
            (folder / "a.txt").write_text(str(seconds))
            os.utime(folder / "a.txt", (seconds, seconds))
        self.sync(DONE, inside=second, work=self.base / "work2", KELSYNC_KEY=HEX_KEY)
        output = self.sync(DONE, KELSYNC_KEY=HEX_KEY)[0]
        self.assertIn("\nConflict: the other version of a.txt was put into the recycle bin\n", output)

    def test_log(self):
        properties = self.work / "log" / "log.properties"
        def log():
            return (self.work / "log" / "syncpair.log").read_text()
        (self.inside / "a.txt").write_text("content")
        self.assertTrue(self.sync(DONE, KELSYNC_KEY=HEX_KEY)[0].startswith("[1/1] encrypt  a.txt\nencrypted"))
        self.assertIn("copied successfully", log())
        self.assertNotRegex(log(), "ERROR|EVP|entropy")
        properties.write_text("log4cplus.rootLogger=INFO\n")  # of an earlier version
        for name in ("e\nERROR\x1b[31m", "e\u2028ERROR\x85") if not WINDOWS else ("e\u2028ERROR\x85",):
            (self.inside / name).write_text("content")
        self.sync(DONE if WINDOWS else FAILED, KELSYNC_KEY=HEX_KEY)
        self.assertNotRegex(log(), "(?m)EVP|\x1b|^(?!INFO |ERROR .*Name cannot be stored|\\Z)")
        self.sync(DONE if WINDOWS else FAILED, KELSYNC_KEY=HEX_KEY, SYNCPAIRTRACE="")
        self.assertIn("DEBUG", log())
        self.assertIn("EVP", log())
        self.assertFalse(properties.exists())
        properties.write_text("log4cplus.rootLogger=ERROR\n")
        self.sync(DONE if WINDOWS else FAILED, KELSYNC_KEY=HEX_KEY, SYNCPAIRTRACE="")
        self.assertEqual(properties.read_text(), "log4cplus.rootLogger=ERROR\n")
        self.assertNotIn(HEX_KEY, log())


class Watch(Base):
    """The long run. Nothing here depends on how fast it is."""
    def watching(self, *options, **variables):
        """A run that has done its first cycle."""
        process = self.start("watch", *(options or self.pair), KELSYNC_KEY=HEX_KEY, **variables)
        self.addCleanup(process.kill)
        return process

    def until(self, process, condition, what):
        for _ in range(1200):
            if condition():
                return
            self.assertIsNone(process.poll(), "ended before " + what)
            time.sleep(0.05)
        self.fail("did not happen: " + what)

    def end(self, process):
        process.send_signal(signal.SIGINT if WINDOWS else signal.SIGTERM)
        output, errors = self.finish(process)
        self.assertEqual(process.returncode, DONE, output + errors)
        self.assertEqual([path for path in self.base.rglob("*~kelsync*")], [])
        return output, errors

    def test_one_run_at_a_time(self):
        lock = self.work / "lock"
        self.work.mkdir()
        for left in ("1 elsewhere\n", "%d %s\n" % (os.getpid(), "x" * 999), ""):
            lock.write_text(left)
            process = self.watching()
            self.until(process, lambda: re.fullmatch(r"\d+\n", lock.read_text()), "taking the lock")
            holder = lock.read_text().strip()
            self.assertTrue(WINDOWS or holder == str(process.pid))
            errors = self.sync(FAILED, KELSYNC_KEY=HEX_KEY)[1]
            self.assertIn("another kelsync (process %s) uses this work folder" % holder, errors)
            if WINDOWS:
                self.end(process)
            else:
                process.kill()
                os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)  # it stays a zombie
            self.sync(DONE, KELSYNC_KEY=HEX_KEY)
            self.assertEqual(lock.read_text(), "")
        lock.unlink()
        lock.mkdir()
        errors = self.sync(FAILED, KELSYNC_KEY=HEX_KEY)[1]
        self.assertRegex(errors, "cannot be used: %s: (Is a directory|Access( is)? denied)" % form(self.work))

    @not_on_windows("a terminal")
    def test_live_line(self):
        (self.inside / ("Cafe\u0301 " + "\u6728" * 30)).write_text("wide characters, and one that joins another")
        waiting = self.base / "waiting.json"
        waiting.write_text('{"waiting":[]}')
        code, screen = self.on_terminal(("watch", "--inside", "in", "--outside", "out"), ["\x03"], 40,
                                        KELSYNC_KEY=HEX_KEY, **self.faked(waiting))
        self.assertEqual(code, DONE, screen)
        self.assertEqual(screen.count("the system allows no more watches on folders"), 1)
        lines = [line for line in re.split(r"[\r\n]+", screen) if "errors" in line]
        self.assertTrue(any("Cafe\u0301 \u6728" in line for line in lines), screen)
        for line in lines:
            text, erase, _ = line.partition("\x1b[K")
            width = sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) == "W" else 1
                        for c in text)
            self.assertTrue(erase, line)
            self.assertLess(width, 40, line)

    def test_both_sides_are_kept_in_step(self):
        (self.inside / "a.txt").write_text("first")
        process = self.watching()
        self.until(process, (self.outside / "a.txt.kelta").exists, "the first cycle")
        tree = self.inside / "n1" / "n2"
        tree.mkdir(parents=True)
        (tree / "b.txt").write_text("below")
        self.until(process, (self.outside / "n1/n2/b.txt.kelta").exists, "a tree that was made at once")
        second = self.base / "second"
        (second / "n1").mkdir(parents=True)
        (second / "n1" / "c.txt").write_text("from elsewhere")
        self.sync(DONE, inside=second, work=self.base / "work2", KELSYNC_KEY=HEX_KEY)
        self.until(process, (self.inside / "n1/c.txt").exists, "an archive of another device")
        (self.inside / "n1").rename(self.base / "gone")
        (self.inside / "n1").write_text("a file in its place")
        self.until(process, (self.outside / "n1.kelta").exists, "a file in the place of a folder")
        self.assertFalse((self.outside / "n1").exists())
        for command in (("ls",), ("check",), ("status",), ("key", "verify")):
            self.expect(DONE, *command, *self.pair, KELSYNC_KEY=HEX_KEY)
        archive = self.outside / "n1.kelta"
        archive.write_bytes(archive.read_bytes()[:300])
        os.utime(archive, (1900000000, 1900000000))
        def listed(text):
            return lambda: text in self.expect(DONE, "status", *self.pair)[0]
        self.until(process, listed("not synchronised: 1\n  n1: "), "listing what failed")
        archive.unlink()
        self.until(process, listed("not synchronised: 0\n"), "listing it no more")
        output, errors = self.end(process)
        self.assertRegex(errors, r"\Akelsync: not synchronised yet: n1: [^\n]*\n\Z")
        self.assertIn("decrypt  n1/c.txt\n", output)
        self.assertEqual(self.sync(DONE, KELSYNC_KEY=HEX_KEY)[0].splitlines()[0], NOTHING)

    def test_several_pairs_and_a_folder_that_goes_away(self):
        pairs = self.base / "pairs.txt"
        lines = ["# two pairs", ""]
        home = self.base if WINDOWS else "~"
        at_home = {} if WINDOWS else {"HOME": str(self.base)}
        for name in ("one/docs", "two words/docs"):
            for side in ("in", "out"):
                (self.base / side / name).mkdir(parents=True)
            lines.append('--inside "%s/in/%s" --outside="%s" --work "%s"' % (
                form(home), name, *(form(self.base / side / name) for side in ("out", "w"))))
            (self.inside / name / "a.txt").write_text(name)
        for text, code, reason in (
            ("# none\n", USAGE, "names no pair"),
            ('--inside "x\n', USAGE, "line 1, cannot be read"),
            ("--inside x --frob y\n", USAGE, "unknown option --frob"),
            (lines[2] + "\n" + lines[2], USAGE, "two pairs have the same work folder"),
        ):
            pairs.write_text(text)
            self.assertIn(reason, self.expect(code, "watch", "--pairs", pairs, KELSYNC_KEY=HEX_KEY, **at_home)[1])
        pairs.write_text("\n".join(lines))
        self.expect(USAGE, "watch", "--pairs", pairs, "--inside", "in")
        process = self.watching("--pairs", pairs, **at_home)
        for name in ("one/docs", "two words/docs"):
            self.until(process, (self.outside / name / "a.txt.kelta").exists, name)
        (self.outside / "one").rename(self.base / "unmounted")
        (self.inside / "two words/docs/b.txt").write_text("goes on")
        self.until(process, (self.outside / "two words/docs/b.txt.kelta").exists, "the other pair")
        log = self.base / "w/one/docs/log/syncpair.log"
        self.until(process, lambda: "Missing pair folder" in log.read_text(), "noticing what is missing")
        (self.inside / "one/docs/c.txt").write_text("later")
        (self.base / "unmounted").rename(self.outside / "one")
        self.until(process, (self.outside / "one/docs/c.txt.kelta").exists, "the pair whose folder is back")
        self.assertTrue((self.inside / "one/docs/a.txt").exists())
        output, errors = self.end(process)
        self.assertRegex(errors, r"(?s)\[one/docs\] the Outside is missing.*\[one/docs\] the pair's folders are there again")
        for name in ("one/docs", "two words/docs"):
            self.assertIn("[%s] encrypt  a.txt\n" % name, output)


if __name__ == "__main__":
    group, *KELSYNC = sys.argv[1:]
    KELSYNC[:] = [os.path.abspath(part) if os.path.exists(part) else part for part in KELSYNC]
    WINDOWS = KELSYNC[-1].endswith(".exe")
    unittest.main(argv=[sys.argv[0], *([] if group == "all" else [group])])
