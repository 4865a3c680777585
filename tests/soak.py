#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Real programs on two watched devices: soak.py COMMAND [MINUTES] [SEED] [options]; see --help.

Each device has an Inside, a work folder, a trash and a `kelsync watch` of its own; they share the Outside. Each round
of each program has a folder that no other program touches, so every difference in the end is a fault. What has to be
there is kept in the folder "expected"; programs.log, one.log and two.log tell when what happened.
"""
import argparse
import functools
import http.server
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
import threading
import time
import urllib.parse

NOTHING = "encrypted 0, decrypted 0, folders 0, deleted 0, failed 0, quarantined 0"
CONFLICT_NAME = re.compile(r"\.\d{8}-\d{6}-[0-9a-f]{4}\.kelta_conflict$")
QUIET_SECONDS = 12  # longer than the pause between two whole scans after one that found something
OLD = 1_300_000_000  # the time of what is downloaded and copied
GIVEN_ON_LATER = 6  # seconds; a step of two for each time that happens
STUCK_SECONDS = 100  # longer than any pause before a copy is tried again


def tree(folder):
    """Relative path -> None for a folder, (size, seconds) for anything else; without the markers of folders."""
    found = {}
    for parent, folders, names in os.walk(folder):
        for path in (pathlib.Path(parent, name) for name in folders + names if name not in (".rid", ".kelta")):
            try:
                status = path.lstat()
            except FileNotFoundError:
                continue
            is_folder = path.name in folders
            found[str(path.relative_to(folder))] = None if is_folder else (status.st_size, int(status.st_mtime))
    return found


def differ(one, other):
    """What is given on as newer without being so gets a later time on the way."""
    return one != other and (not one or not other or one[0] != other[0] or abs(one[1] - other[1]) > GIVEN_ON_LATER)


class Device:
    """One computer, on which either `watch` runs or `sync` again and again."""

    def __init__(self, soak, name, watching):
        self.soak, self.name, self.watching, self.base = soak, name, watching, soak.base / name
        self.inside, self.trash = self.base / "inside", self.base / "data" / "Trash"
        self.inside.mkdir(parents=True)
        self.process, self.thread, self.stopping, self.lines = None, None, False, 0

    def note(self, text):
        self.lines += 1
        self.soak.note(text, self.name)

    def begin(self, *arguments):
        self.note(" ".join(map(str, arguments)))
        self.process = subprocess.Popen(
            [self.soak.options.command, arguments[0], "--inside", self.inside, "--outside", self.soak.outside, "--work",
             self.base / "work", *arguments[1:]],
            env={**self.soak.environment, "HOME": str(self.base), "XDG_DATA_HOME": str(self.base / "data")},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
        return self.process

    def follow(self, process):
        """Logs what the process writes, to its end: its exit code and its line of counts."""
        counts = ""
        for line in map(str.rstrip, process.stdout):
            self.note(line)
            counts = line if line.startswith("encrypted ") else counts
        self.note("ended with %d" % process.wait())
        return process.returncode, counts

    def sync(self, *options):
        return self.follow(self.begin("sync", *options))

    def sync_often(self):
        while not self.stopping and self.sync()[0] in (0, 1, -signal.SIGKILL):
            time.sleep(random.random())

    def start(self):
        if self.watching:
            self.thread = threading.Thread(target=self.follow, args=[self.begin("watch")], daemon=True)
            self.thread.start()
        elif not self.thread:
            self.thread = threading.Thread(target=self.sync_often, daemon=True)
            self.thread.start()

    def end(self, how):
        """Ends the watch; what ended by itself before is a fault. Leaves a `sync` to its end, but for SIGKILL."""
        self.note(how.name)
        if not self.thread.is_alive():
            self.soak.fault(self.name, "the command ended by itself with %d" % self.process.returncode)
        if self.watching or how == signal.SIGKILL:
            self.process.send_signal(how)
            self.process.wait()

    def stop(self):
        self.stopping = True
        self.end(signal.SIGTERM)
        self.thread.join()
        if self.process.returncode not in (0, 1 - self.watching):
            self.soak.fault(self.name, "the command ended with %d" % self.process.returncode)


class Download(http.server.SimpleHTTPRequestHandler):
    """Serves the files that lie aside, with their times, each at a pace of its own."""
    rounds = {}

    def copyfile(self, source, outputfile):
        for piece, pause in self.rounds[self.path].pieces(source.read()):
            outputfile.write(piece)
            time.sleep(pause)

    def log_message(self, *_):
        pass


class Round:
    """One round of one program on one device: the folder it works in, and what has to be there in the end."""

    def __init__(self, soak, device, program, number):
        self.soak, self.device = soak, device
        self.name = "%s/%s/%02d" % (device.name, program, number)
        self.rng = random.Random("%s/%s" % (soak.options.seed, self.name))
        self.inside, self.expected = device.inside / self.name, soak.base / "expected" / self.name
        self.aside = soak.base / "aside" / self.name  # for what is not to be synchronised
        for folder in (self.inside, self.expected, self.aside):
            folder.mkdir(parents=True)
        self.seconds = soak.options.seconds or self.rng.uniform(2, 7)

    def note(self, text):
        self.soak.note("%s: %s" % (self.name, text))

    def choose(self, *choices):
        choice = self.rng.choice(choices)
        self.note(choice)
        return choice

    def pause(self, low, high=None):
        if self.soak.ending.wait(low if high is None else self.rng.uniform(low, high)):
            raise InterruptedError

    def write(self, name, data):
        (self.inside / name).parent.mkdir(parents=True, exist_ok=True)
        (self.inside / name).write_bytes(data)

    def grow(self, name, data, midway=lambda: None):
        pieces = self.pieces(data)
        with open(self.inside / name, "wb", buffering=0) as file:
            for number, (piece, pause) in enumerate(pieces):
                file.write(piece)
                self.pause(pause)
                if number == len(pieces) // 2:
                    midway()

    def keep(self, files, when=None):
        """These have to be there in the end (name -> content), with this time if one is given."""
        for name, data in files.items():
            (self.expected / name).parent.mkdir(parents=True, exist_ok=True)
            (self.expected / name).write_bytes(data)
            self.soak.times["%s/%s" % (self.name, name)] = when

    def removed(self, *names):
        """The program deletes or renames these, so they may lie in the trash of the other device."""
        self.soak.removed.update("%s/%s" % (self.name, name) for name in names)

    def unlink(self, name):
        self.removed(name)
        self.note("deletes " + name)
        (self.inside / name).unlink()

    def remove_tree(self, name):
        """The engine may put its marker into a folder that is being emptied."""
        while os.path.lexists(self.inside / name):
            shutil.rmtree(self.inside / name, ignore_errors=True)

    def rename(self, old, new):
        self.removed(old)
        self.note("renames %s to %s" % (old, new))
        os.replace(self.inside / old, self.inside / new)

    def run(self, *command, feed=(), kill_after=None):
        self.note(" ".join(map(str, command)))
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                   env=self.soak.environment)
        self.soak.children.append(process)
        for piece, pause in feed:
            process.stdin.write(piece)
            process.stdin.flush()
            self.pause(pause)
        if kill_after is not None:
            self.pause(kill_after)
            process.kill()
        errors = process.communicate()[1].decode()
        if process.returncode != 0 and kill_after is None:
            raise OSError("%s ended with %d: %s" % (command[0], process.returncode, errors[-500:]))

    def body(self, low=200_000, high=3_000_000):
        return self.rng.randbytes(self.rng.randrange(low, high))

    def pieces(self, data):
        """The data in pieces with the pause after each: steadily, in bursts, or stalling for seconds in the middle."""
        pace = self.choose("steady", "bursts", "stalling")
        count = {"steady": 60, "bursts": 5, "stalling": 20}[pace]
        step = len(data) // count + 1
        pieces = [(data[at:at + step], self.seconds / count) for at in range(0, len(data), step)]
        if pace == "stalling":
            pieces[len(pieces) // 3] = (pieces[len(pieces) // 3][0], self.rng.uniform(2.5, 8))
        return pieces


# --- The programs

def write_rows(path, mode, log, seconds):
    """A process of its own: commits rows over several connections and logs each when its commit has returned."""
    rng = random.Random(seconds)
    connections = [sqlite3.connect(path, isolation_level=None, timeout=30) for _ in range(3)]
    connections[0].execute("PRAGMA journal_mode=" + mode)
    connections[0].execute("CREATE TABLE IF NOT EXISTS rows(id INTEGER PRIMARY KEY, text)")
    number = connections[0].execute("SELECT coalesce(max(id), 0) FROM rows").fetchone()[0]
    end = time.monotonic() + float(seconds)
    with open(log, "a", buffering=1) as committed:
        while time.monotonic() < end:
            number += 1
            connection = rng.choice(connections)
            connection.execute("INSERT INTO rows VALUES(?, ?)", (number, str(number) * rng.randrange(1, 500)))
            committed.write("%d\n" % number)
            if mode == "wal" and rng.random() < 0.02:
                connection.execute("PRAGMA wal_checkpoint(TRUNCATE)")
            time.sleep(rng.uniform(0.002, 0.06))
    for connection in connections:
        connection.close()


def sqlite(r, mode):
    log = r.soak.databases["%s/app.db" % r.name] = r.aside / "committed"
    r.removed("app.db-wal", "app.db-shm", "app.db-journal")
    r.keep({"app.db": b""})
    writer = (sys.executable, os.path.realpath(__file__), "--rows", r.inside / "app.db", mode, log)
    if r.rng.random() < 0.3:
        r.run(*writer, "60", kill_after=r.seconds / 2)
        r.pause(0, 3)
    r.run(*writer, str(r.seconds))


def download(r):
    data = r.aside / "disk.iso"
    data.write_bytes(r.body())
    os.utime(data, (OLD, OLD))
    path = "/%s/disk.iso" % r.name
    Download.rounds[path] = r
    url = "http://127.0.0.1:%d%s" % (r.soak.server.server_port, path)
    tool = r.choose(*r.soak.present("curl", "wget"), "python")
    if tool == "curl":
        r.run("curl", "-sS", "-R", "-o", r.inside / "disk.iso", url)
    elif tool == "wget":
        r.run("wget", "-q", "-P", r.inside, url)
    else:
        r.grow("disk.iso", data.read_bytes())
        os.utime(r.inside / "disk.iso", (OLD, OLD))
    r.note("is whole")
    r.keep({"disk.iso": data.read_bytes()}, OLD)


def copies(r):
    """What sets an old time in the end: cp -p, tar x, rsync --inplace, the last also over a former version."""
    tool = r.choose(*r.soak.present("cp", "tar", "rsync"))
    paths = [r.aside / ("photo%d.raw" % number) for number in range(3)]

    def make(path, when):
        path.write_bytes(r.body(*((4_000_000, 16_000_000) if tool == "cp" else (200_000, 900_000))))
        os.utime(path, (when, when))
        r.keep({path.name: path.read_bytes()}, when)

    for path in paths:
        make(path, OLD)
    if tool == "cp":
        r.run("cp", "-p", *paths, r.inside)
    elif tool == "tar":
        r.run("tar", "cf", r.aside / "tar", "-C", r.aside, *(path.name for path in paths))
        r.run("tar", "x", "-C", r.inside, feed=r.pieces((r.aside / "tar").read_bytes()))
    else:
        rsync = ("rsync", "--inplace", "--no-whole-file", "-t", "--bwlimit=%d" % r.choose(150, 400, 2000))
        r.run(*rsync, *paths, r.inside)
        r.pause(0, 4)
        make(paths[0], OLD + 1000)
        r.run(*rsync, paths[0], r.inside)
    r.note("all are whole")


def part_file(r):
    """A file that grows under another name, which is renamed or deleted, midway or in the end."""
    data, part = r.body(), "film.mkv.part"
    ending = r.choose("rename", "delete")

    def end():
        return r.unlink(part) if ending == "delete" else r.rename(part, "film.mkv")

    if r.choose("midway", "in the end") == "midway":
        r.grow(part, data, end)
    else:
        r.grow(part, data)
        if r.choose("with an old time", "with a new time") == "with an old time":
            os.utime(r.inside / part, (OLD, OLD))
        end()
    if ending == "rename":
        r.keep({"film.mkv": data})


def log_rotation(r):
    names, logs = ("app.log", "app.log.1", "app.log.2"), [[], [], []]
    end = time.monotonic() + 2 * r.seconds
    while time.monotonic() < end:
        rotation = time.monotonic() + r.rng.uniform(1.2, 3)
        with open(r.inside / names[0], "ab", buffering=0) as file:
            while time.monotonic() < rotation:
                logs[0].append(b"%f something happened\n" % time.time())
                file.write(logs[0][-1])
                r.pause(0.02, 0.1)
        if logs[2]:
            r.unlink(names[2])
        if logs[1]:
            r.rename(names[1], names[2])
        r.rename(names[0], names[1])
        logs = [[]] + logs[:2]
    r.keep({name: b"".join(lines) for name, lines in zip(names, logs) if lines})


def save_rename(r):
    """Written under a temporary name and renamed, every 100 ms."""
    for count in range(int(20 * r.seconds)):
        data = b"version %d\n" % count * r.rng.randrange(1, 5000)
        temporary = r.rng.choice(("book.txt.new", "book.txt.tmp%d" % count))
        r.write(temporary, data)
        r.rename(temporary, "book.txt")
        r.pause(0.1)
    r.keep({"book.txt": data})


def editors(r):
    """The ways in which editors save: in place, with a copy, a draft or a lock beside it, or under another name."""
    for number in range(r.rng.randrange(3, 9)):
        data = b"text %d " % number + r.body(10, 60_000)
        beside = r.choose("note.txt~", "#note.txt#", ".~lock.note.txt#", ".goutputstream-1") if number else None
        if beside == "note.txt~":
            r.rename("note.txt", beside)
        elif beside:
            r.write(beside, data)
            r.pause(0, 2)
        if beside == ".goutputstream-1":
            r.rename(beside, "note.txt")
        else:
            with open(r.inside / "note.txt", "wb", buffering=0) as file:
                file.write(data[:len(data) // 2])
                r.pause(0, 0.4)
                file.write(data[len(data) // 2:])
            if beside:
                r.unlink(beside)
        r.pause(0.1, 2.5)
    r.keep({"note.txt": data})


def folders(r):
    """A tree that is renamed, edited, changed within, and deleted from."""
    tops, top = ["tree"], "tree"
    files = {"%s%d.txt" % (below, number): r.body(10, 20_000) for below in ("", "b/", "b/c/") for number in range(3)}
    for name, data in files.items():
        r.write("tree/" + name, data)
    names = list(files)
    for number in range(r.rng.randrange(3, 7)):
        r.pause(0.2, 3)
        act, name = r.choose("rename", "rename", "edit", "rename one", "delete"), r.rng.choice(sorted(files))
        if act == "rename":
            tops.append("tree %d" % number)
            r.rename(top, tops[-1])
            top = tops[-1]
        elif act == "edit":
            files[name] += b" and more"
            r.write("%s/%s" % (top, name), files[name])
        elif act == "rename one":
            new = name + ".%d" % number
            names.append(new)
            r.rename("%s/%s" % (top, name), "%s/%s" % (top, new))
            files[new] = files.pop(name)
        else:
            r.remove_tree(top + "/b/c")
            files = {name: data for name, data in files.items() if not name.startswith("b/c/")}
    # Carried over one by one, a file may have had its new name under an old folder for a while, or the other way round.
    r.removed(*("%s/%s" % (top, name) for top in tops for name in names))
    r.keep({"%s/%s" % (top, name): data for name, data in files.items()})


def deletes(r):
    """Files that are deleted; some are made anew, or as folders, of which some go as well."""
    files = {"%d.txt" % number: r.body(10, 50_000) for number in range(8)}
    for name, data in files.items():
        r.write(name, data)
        r.pause(0, 0.5)
    r.pause(0, 4)
    for name in list(files):
        act = r.choose("keep", "delete", "make anew", "folder", "folder that goes")
        if act == "keep":
            continue
        r.unlink(name)
        data, again = files.pop(name) + b"!", name + ("/in.txt" if "folder" in act else "")
        if act != "delete":
            r.pause(0, 1.5)
            r.write(again, data)
            files[again] = data
        if act == "folder that goes":
            r.pause(0, 3)
            r.unlink(again)
            r.remove_tree(name)
            del files[again]
    r.keep(files)


def git(r):
    """A repository: commits, branches, and what packs it."""
    def run(*arguments):
        r.run("git", "-C", r.inside, "-c", "user.name=a", "-c", "user.email=a@b", "-c", "gc.autoDetach=false", *arguments)

    if not r.soak.present("git"):
        return
    r.soak.churned.add(r.name + "/.git/")
    run("init", "-q", "-b", "main")
    for number in range(r.rng.randrange(4, 10)):
        if number and r.rng.random() < 0.4:
            run("checkout", "-q", "-b", "branch%d" % number, r.choose("HEAD", "HEAD", "main"))
        r.write("file%d" % r.rng.randrange(4), r.body(10, 50_000))
        run("add", "-A", ":!.rid")
        run("commit", "-q", "--allow-empty", "-m", "change %d" % number)
        r.pause(0, 2)
        if r.rng.random() < 0.2:
            run("gc", "-q", "--prune=now")
    run("fsck", "--strict")
    r.removed(*("file%d" % number for number in range(4)))  # a branch may lack it
    r.keep({name: (r.inside / name).read_bytes() for name, value in tree(r.inside).items() if value})
    for name, value in tree(r.inside).items():
        if not value:
            (r.expected / name).mkdir(parents=True, exist_ok=True)


def kills(r):
    r.pause(4, 20)
    r.device.end(signal.SIGKILL)
    r.soak.excuse(r.device)
    r.pause(0, 4)
    r.device.start()


PROGRAMS = {
    "sqlite-wal": lambda r: sqlite(r, "wal"), "sqlite-rollback": lambda r: sqlite(r, "delete"), "download": download,
    "copies": copies, "part-file": part_file, "log-rotation": log_rotation, "save-rename": save_rename,
    "editors": editors, "folders": folders, "deletes": deletes, "git": git, "kills": kills,
}


# --- The run

class Soak:
    def __init__(self, options, base):
        self.options, self.base, self.outside = options, base, base / "outside"
        self.environment = {key: value for key, value in os.environ.items()
                            if not key.startswith("KELSYNC") and not key.lower().endswith("_proxy")}
        self.times, self.databases, self.removed, self.rounds = {}, {}, set(), {}
        self.excused, self.churned = set(), set()
        self.children, self.faults, self.checks = [], [], 0
        self.ending, self.lock = threading.Event(), threading.Lock()
        self.outside.mkdir()
        handler = functools.partial(Download, directory=base / "aside")
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.devices = [Device(self, name, not options.one_device) for name in ("one", "two")[:2 - options.one_device]]

    def note(self, text, log="programs"):
        now = time.time()
        moment = "%s.%03d" % (time.strftime("%H:%M:%S", time.localtime(now)), now % 1 * 1000)
        with self.lock, open(self.base / (log + ".log"), "a") as file:
            file.write("%s  %s\n" % (moment, text))

    def fault(self, where, text):
        self.faults.append("%s: %s" % (where, text))
        self.note("FAULT " + self.faults[-1])
        print("FAULT  " + self.faults[-1], flush=True)

    @staticmethod
    def present(*tools):
        return [tool for tool in tools if shutil.which(tool)]

    def serve(self, device, program, end):
        number = 0
        while number < self.options.rounds if self.options.rounds else time.monotonic() < end:
            number += 1
            r = Round(self, device, program, number)
            try:
                PROGRAMS[program](r)
            except InterruptedError:
                return
            except Exception as error:  # a program whose files are taken from under it
                self.fault(r.name, "%s: %s" % (type(error).__name__, error))
            self.rounds[program] = self.rounds.get(program, 0) + 1

    def excuse(self, device):
        """What a killed device carried over without having recorded it is merged at the restart: deleted before that,
        it comes back, and an older version may go to the trash."""
        lines = [line.split("\t") for file in (device.base / "work/state").glob("Kelta_sync_state_?.txt")
                 for line in file.read_text().splitlines()]
        times = {os.path.relpath(line[0], self.outside): int(line[1]) for line in lines}
        for name, value in tree(self.outside).items():
            plain = name[:-6] if value else name
            carried = plain.startswith(device.name + "/") or os.path.lexists(device.inside / plain)
            if carried and (name not in times or value and value[1] != times[name]):
                self.excused.add(plain)

    def run_programs(self):
        chosen = self.options.only.split(",") if self.options.only else list(PROGRAMS)
        end = time.monotonic() + 60 * self.options.minutes
        threads = [threading.Thread(target=self.serve, args=(device, program, end), daemon=True)
                   for device in self.devices for program in chosen]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def settle(self):
        """Waits until nothing happens any more. The bound is what the devices still do, not the time it takes."""
        bound = 1000 + sum(device.lines for device in self.devices) + 20 * len(tree(self.base / "expected"))
        former, since, quiet, same = None, 0, 0, False
        while not former or quiet < (QUIET_SECONDS if same else STUCK_SECONDS):
            time.sleep(0.5)
            now = [tree(device.inside) for device in self.devices] + [device.lines for device in self.devices]
            same = now[0].keys() == now[1].keys() and not any(differ(now[0][name], now[1][name]) for name in now[0])
            if now != former:
                former, since = now, time.monotonic()
            quiet = time.monotonic() - since
            if sum(device.lines for device in self.devices) > bound:
                return self.fault("both", "never quiet: they go on without end")

    def finish_devices(self):
        for device in self.devices:
            device.stop()
        for device in self.devices:
            for _ in range(1 if device.watching else 8):
                done = device.sync()
                if done == (0, NOTHING):
                    break
            self.checks += 1
            if done != (0, NOTHING):
                self.fault(device.name, "there was something left to do: %d, %s" % done)
            if "max_user_watches" in (self.base / (device.name + ".log")).read_text():
                self.fault(device.name, "the system did not tell it of changes: too little was tried")
        self.devices.append(Device(self, "fresh", False))
        code = self.devices[-1].sync("--key-file", self.devices[0].base / "work" / "key")[0]
        if code != 0:
            self.fault("fresh", "sync ended with %d" % code)

    def check_database(self, path, log):
        copy = self.base / "check"
        shutil.rmtree(copy, ignore_errors=True)
        copy.mkdir()
        for file in path.parent.glob(path.name + "*"):
            shutil.copy(file, copy)
        committed = {int(line) for line in log.read_text().split()}
        try:
            database = sqlite3.connect(copy / path.name)
            lost = committed - {row[0] for row in database.execute("SELECT id FROM rows")}
            state = database.execute("PRAGMA integrity_check").fetchone()[0]
            database.close()
        except sqlite3.Error as error:
            return "cannot be opened: %s" % error
        if state != "ok":
            return "is damaged: " + state
        return lost and "has lost %d of %d committed rows" % (len(lost), len(committed))

    def check_entry(self, device, name, wanted, found, first):
        """What is wrong with one entry; nothing: all is well."""
        if name not in found:
            return "is missing"
        if name not in wanted:
            name = CONFLICT_NAME.sub("", name)  # what comes back may find a folder in its place
            if any(excused == name or excused.startswith(name + "/") for excused in self.excused):
                return None
            return "came back" if name in self.removed else "was made by no program"
        if (wanted[name] is None) != (found[name] is None):
            return "is of another kind"
        if name in self.databases:
            wrong = self.check_database(device.inside / name, self.databases[name])
            if wrong:
                return wrong
        elif found[name]:
            content, whole = (device.inside / name).read_bytes(), (self.base / "expected" / name).read_bytes()
            if content != whole:
                kind = "a mere part" if whole.startswith(content) else "not"
                return "is %s of what it was (%d bytes of %d)" % (kind, len(content), len(whole))
            if self.times[name] not in (None, found[name][1]):
                return "has lost its time"
        return differ(first.get(name), found[name]) and "differs in size or time from the first device's"

    def check_trees(self):
        wanted, first = tree(self.base / "expected"), tree(self.devices[0].inside)
        for device in self.devices:
            found = tree(device.inside)
            for name in sorted(wanted.keys() | found.keys()):
                self.checks += 1
                wrong = self.check_entry(device, name, wanted, found, first)
                if wrong:
                    self.fault("on %s, %s" % (device.name, name), wrong)
        archives = {name for name, value in tree(self.outside).items() if value}
        for name in sorted(archives ^ {name + ".kelta" for name, value in wanted.items() if value}):
            if CONFLICT_NAME.sub("", name[:-6]) not in self.excused:
                self.fault("on the Outside, " + name, "is too much" if name in archives else "is missing")

    def check_trash(self):
        """In the trash of a device lies only what a program of the other one deleted or renamed."""
        for device in self.devices:
            for info in sorted((device.trash / "info").glob("*.trashinfo")):
                self.checks += 1
                origin = urllib.parse.unquote(re.search("^Path=(.*)$", info.read_text(), re.M).group(1))
                name = CONFLICT_NAME.sub("", os.path.relpath(origin, device.inside))
                own = name.startswith(device.name + "/")
                churned = not own and any(name.startswith(folder) for folder in self.churned)
                if (own or name not in self.removed) and name not in self.excused and not churned:
                    size = (device.trash / "files" / info.stem).stat().st_size
                    reason = "which a program of this device wrote" if own else "which no program deleted"
                    self.fault("in the trash of %s, %s" % (device.name, name), "%s, %d bytes" % (reason, size))

    def run(self):
        missing = {"curl", "wget", "tar", "rsync"}.difference(self.present("curl", "wget", "tar", "rsync"))
        print("seed %s, folder %s%s" % (self.options.seed, self.base, "".join("; no " + tool for tool in missing)))
        one = self.devices[0]
        one.sync("--make-key")
        for device in self.devices:
            if device is not one:
                device.sync("--key-file", one.base / "work/key")
                shutil.copy(one.base / "work/key", device.base / "work/key")
            device.start()
        self.run_programs()
        self.note("the programs have ended")
        if not self.options.one_device:
            self.settle()
        self.finish_devices()
        self.check_trees()
        self.check_trash()
        for program, count in self.rounds.items():
            hit = set(re.findall(r"(?:one|two)/%s/\d+" % program, "\n".join(self.faults)))
            print("%-16s %3d rounds, %d with faults" % (program, count, len(hit)))

    def end(self):
        self.ending.set()
        for process in self.children + [device.process for device in self.devices]:
            process.kill()


def main():
    parser = argparse.ArgumentParser(description="Real programs on two watched devices.")
    parser.add_argument("command", help="the kelsync command", type=os.path.abspath)
    parser.add_argument("minutes", nargs="?", type=float, default=2, help="how long the programs begin new rounds")
    parser.add_argument("seed", nargs="?", default=str(random.randrange(10**6)))
    parser.add_argument("--only", metavar="NAME,...", help="of: " + ", ".join(PROGRAMS))
    parser.add_argument("--rounds", type=int, metavar="N", help="so many rounds of each program on each device")
    parser.add_argument("--seconds", type=float, metavar="N", help="how long a round writes (2 to 7, some twice that)")
    parser.add_argument("--one-device", action="store_true", help="`sync` again and again instead of two watches")
    soak = Soak(parser.parse_args(), pathlib.Path(os.path.realpath(tempfile.mkdtemp(prefix="kelsync-soak-"))))
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    interrupted = False
    try:
        soak.run()
    except KeyboardInterrupt:
        interrupted = True
    finally:
        soak.end()
        if soak.faults and not interrupted:
            print("kept: %s (programs.log, one.log, two.log, and the logs of the work folders)" % soak.base)
        else:
            shutil.rmtree(soak.base)
    print("soak: %d checks, %d faults (seed %s)" % (soak.checks, len(soak.faults), soak.options.seed))
    return 130 if interrupted else 1 if soak.faults else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["--rows"]:
        write_rows(*sys.argv[2:])
    else:
        sys.exit(main())
