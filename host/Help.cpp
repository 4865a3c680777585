// SPDX-License-Identifier: Apache-2.0
#include "Help.h"

#include <map>

#include "KeyHelp.h"

namespace Kelta {
namespace host {
namespace {

const char* const kGeneral = R"(kelsync keeps a plain folder (the Inside) and an encrypted one (the Outside) in step.

  kelsync sync --inside DIR --outside DIR    synchronise a pair of folders, once
  kelsync watch --inside DIR --outside DIR   the same, going on until it is stopped
  kelsync check --inside DIR --outside DIR   show files that would get too long a path on the Outside
  kelsync names on|off --inside DIR --outside DIR
                                             encrypt file names on the Outside, or no more
  kelsync ls --inside DIR --outside DIR      list the Outside with its plain names
  kelsync status --inside DIR --outside DIR  show what is not synchronised, and what the last run told
  kelsync quarantine clear --inside DIR --outside DIR [PATH...]
                                             clear records of what is not synchronised
  kelsync key rotate --inside DIR --outside DIR
                                             bring the pair's archives under a new key
  kelsync key verify --inside DIR --outside DIR
                                             try the key on every archive
  kelsync key recover ARCHIVE -o FILE        decrypt one archive of a pair with its key
  kelsync pack FILE -o ARCHIVE               encrypt one file into an archive
  kelsync unpack ARCHIVE -o DIR              decrypt an archive
  kelsync meta ARCHIVE                       print the metadata of an archive
  kelsync set-meta ARCHIVE --meta FILE       replace the metadata of an archive
  kelsync help COMMAND                       more about one command
  kelsync --version

Exit codes:
    0  done
    1  something could not be synchronised, an archive could not be read or written, the output could not
       be shown, or another run uses the work folder
    2  wrong usage
    3  a folder of the pair is missing
    4  no key or password, or a wrong one
  130  interrupted
)";

const char* const kSync = R"(kelsync sync --inside DIR --outside DIR [options]

Carries every change of either folder over to the other and returns when nothing is left to do.
Both folders must exist. The newer version of a file wins, by its last-write time in whole seconds.

  --inside DIR     the plain files
  --outside DIR    the encrypted archives, usually in a cloud client's folder
  --work DIR       state, log and temporary files of this pair on this machine; the default is a
                   folder of its own among the user's program data
  --key-file FILE  a text file that holds the key
  --make-key       make a random key, if there is none yet, in the work folder (or in FILE)
  --asset ID       the id that new archives name as their key's (default: main)
  --compress       compress new archives
  --names          encrypt file names on the Outside, from now on; see kelsync help names
  --pace N         keep N percent of the pauses by which scans spare the disk, 0 to 100 (default: 0)
  -q, --quiet      show only failures and the summary

The key is looked for in --key-file, in the environment variable KELSYNC_KEY, in the file "key" of the
work folder, and is asked for on a terminal otherwise. It is 64 hex digits or 32 bytes in base64; any
other text is a pass phrase, which is hashed once without salt and must be long and random.
Keep a copy of the key elsewhere: without it nothing on the Outside can be opened.

A file that is being written to, or cannot be replaced while a program has it open, is left for a later
run, and listed at the end.

Exit codes: 0 done, 1 something is not synchronised or another run uses the work folder, 2 usage,
3 a folder of the pair is missing, 4 no key or a wrong one, 130 interrupted (what was finished stays;
the next run does the rest).
)";

const char* const kNames = R"(kelsync names on|off --inside DIR --outside DIR [options]

Turns encrypted file names on the Outside on or off, and remembers it for the later runs of this pair on this machine.
The archives are renamed, not written again. Folder names are never encrypted. Other devices read both kinds of names,
but write the one that they are set to.

  --inside DIR     the plain files
  --outside DIR    the encrypted archives
  --work DIR       the work folder of the pair, when it is not the default one
  --key-file FILE  a text file that holds the key
  --asset ID       the id of the key (default: main)

Exit codes: 0 all are in line; 1 some archives keep their names, or another run uses the work folder; 2 usage; 3 a
folder of the pair is missing; 4 no key or a wrong one; 130 interrupted (run it again).
)";

const char* const kLs = R"(kelsync ls --inside DIR --outside DIR [options]

Lists the archives of the Outside: whether the name is plain, encrypted or unreadable, the bytes, and the plain name.

  --inside DIR     the plain files
  --outside DIR    the encrypted archives
  --work DIR       the work folder of the pair, when it is not the default one
  --key-file FILE  a text file that holds the key
  --asset ID       the id of the key (default: main)

It may run while the pair is synchronised or watched.

Exit codes: 0 listed; 1 a name is unreadable; 2 usage; 3 a folder of the pair is missing; 4 no key.
)";

const char* const kCheck = R"(kelsync check --inside DIR --outside DIR [--work DIR]

Shows the files of the Inside that could not be encrypted, since the path on the Outside would be longer than 260
characters or the name longer than 255 bytes: "!" behind the numbers for plain and for encrypted names. Needs no key,
and encrypts nothing. It may run while the pair is synchronised or watched.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one

Exit codes: 0 all fit; 1 some do not; 2 usage; 3 a folder of the pair is missing.
)";

const char* const kWatch = R"(kelsync watch --inside DIR --outside DIR [options]
kelsync watch --pairs FILE [-q]

Keeps the folders in step until it is stopped (Ctrl-C, SIGTERM): watches both, and carries a change over a moment after
it was made. On a terminal it shows what it is doing, elsewhere a line for each entry.

  --pairs FILE     keep several pairs in step: FILE has one a line, each with these options, but for --pairs and
                   --quiet; double quotes hold together what has spaces in it, ~ at the start of a path is
                   the home folder; a line that begins with # is left out
  -q, --quiet      show only what cannot be synchronised

The other options, and how the key is found, are those of "kelsync sync"; see "kelsync help sync". Without --pace the
full scans that find what the system did not tell keep all their pauses; the first one, and what was told, keep none.

Exit codes: 0 stopped; 1 something failed or another run uses the work folder; 2 usage; 3 a folder of a pair is missing
at the start; 4 no key or a wrong one.
)";

const char* const kStatus = R"(kelsync status --inside DIR --outside DIR [--work DIR] [--json]

Shows what is not synchronised, with the reason: what could not be carried over, as of the latest cycle that looked at
it, and what is quarantined; what is left for later (it is being written to, or in use, or its share waits to be
confirmed); files whose last-write times lie in the future; and the notifications of the last run, what went well behind
the rest. Changes nothing on either side, and may run while the pair is synchronised or watched.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one
  --json         each on a line: the quarantine and the notifications as the library hands them out, then
                 {"waiting":[...]}, times in the future included, and {"failed":[...]}, both with the file's
                 "path", the "name" that is shown for it, and the "reason"

The other options of "kelsync sync" are taken as well, and not needed.

Exit codes: 0 shown, whether anything is quarantined or not; 1 the pair was not synchronised yet with this work folder,
or it cannot be read; 2 usage; 3 a folder of the pair is missing.
)";

const char* const kQuarantine = R"(kelsync quarantine clear --inside DIR --outside DIR [--work DIR] [PATH...]

Clears the records of the named files, or all of them. PATH is what "kelsync status" shows, or the file's full path. A
file whose reason still holds is recorded again by the next run.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one

Exit codes: 0 cleared; 1 a PATH has no record, a record could not be removed, the pair was not synchronised yet, or
another run uses the work folder; 2 usage; 3 a folder of the pair is missing, and was never synchronised.
)";

const char* const kPack = R"(kelsync pack FILE -o ARCHIVE [--meta FILE] [--compress | --store]

Encrypts FILE into the new archive ARCHIVE, which must not exist yet. The password is the environment variable
KELSYNC_PASSWORD, or is asked for.

  -o, --output ARCHIVE  the archive to write
  --meta FILE           add this file as an unencrypted entry under its own name
  --compress            compress (the default)
  --store               do not compress

With --meta or --store the file is kept as the entry "Content", as in the archives of a pair,
otherwise under its own name.
)";

const char* const kUnpack = R"(kelsync unpack ARCHIVE -o DIR

Decrypts every entry of ARCHIVE into the folder DIR, which is made if missing. Files of the same names there are
replaced. The password is the environment variable KELSYNC_PASSWORD, or is asked for.

  -o, --output DIR  the folder to write to
)";

const char* const kMeta = R"(kelsync meta ARCHIVE [--entry NAME]

Prints an entry of ARCHIVE, as text. On a terminal control characters are shown as \t, \u{1b} and so on, since
whoever made the archive chose them; a file or a pipe gets the text as it is.

  --entry NAME  the entry to print (default: __KELASSET_.json, the metadata of a pair's archives)

Metadata needs no password. For an encrypted entry it is taken from KELSYNC_PASSWORD, or asked for.
)";

const char* const kSetMeta = R"(kelsync set-meta ARCHIVE --meta FILE

Puts FILE into ARCHIVE as an unencrypted entry under its own name, in place of one of the same name. The other
entries stay as they are, and no password is needed. The metadata of a pair's archives holds the password that opens
them, itself encrypted: an archive whose metadata is lost cannot be opened any more.

  --meta FILE  the file to put in
)";

}  // namespace

std::string generalHelp() { return kGeneral; }

std::string helpOf(const std::wstring& command) {
  static const std::map<std::wstring, const char*> texts = {{L"sync", kSync},
                                                            {L"watch", kWatch},
                                                            {L"status", kStatus},
                                                            {L"quarantine", kQuarantine},
                                                            {L"names", kNames},
                                                            {L"ls", kLs},
                                                            {L"check", kCheck},
                                                            {L"key", kKeyHelp},
                                                            {L"pack", kPack},
                                                            {L"unpack", kUnpack},
                                                            {L"meta", kMeta},
                                                            {L"set-meta", kSetMeta},
                                                            {L"key rotate", kKeyRotateHelp},
                                                            {L"key verify", kKeyVerifyHelp},
                                                            {L"key recover", kKeyRecoverHelp}};
  const auto found = texts.find(command);
  return found == texts.end() ? std::string() : found->second;
}

std::string versionText() { return std::string("kelsync ") + KELSYNC_VERSION + "\n"; }

}  // namespace host
}  // namespace Kelta
