// SPDX-License-Identifier: Apache-2.0
#include "Help.h"

#include <map>

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
  -q, --quiet      show only failures and the summary

The key is looked for in --key-file, in the environment variable KELSYNC_KEY, in the file "key" of the
work folder, and is asked for on a terminal otherwise. It is 64 hex digits or 32 bytes in base64; any
other text is a pass phrase, which is hashed once without salt and must be long and random.
Keep a copy of the key elsewhere: without it nothing on the Outside can be opened.

Exit codes: 0 done, 1 something could not be synchronised or another run uses the work folder, 2 usage,
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

Exit codes: 0 listed; 1 a name is unreadable, or another run uses the work folder; 2 usage; 3 a folder of the pair is
missing; 4 no key.
)";

const char* const kCheck = R"(kelsync check --inside DIR --outside DIR [--work DIR]

Shows the files of the Inside that could not be encrypted, since the path on the Outside would be longer than 260
characters or the name longer than 255 bytes: "!" behind the numbers for plain and for encrypted names. Needs no key,
and encrypts nothing.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one

Exit codes: 0 all fit; 1 some do not, or another run uses the work folder; 2 usage; 3 a folder of the pair is missing.
)";

const char* const kWatch = R"(kelsync watch --inside DIR --outside DIR [options]
kelsync watch --pairs FILE [-q]

Keeps the folders in step until it is stopped (Ctrl-C, SIGTERM): watches both, and carries a change over a moment after
it was made. On a terminal it shows what it is doing, elsewhere a line for each entry.

  --pairs FILE     keep several pairs in step: FILE has one a line, each with these options, but for --pairs and
                   --quiet; double quotes hold together what has spaces in it; a line that
                   begins with # is left out
  -q, --quiet      show only what cannot be synchronised

The other options, and how the key is found, are those of "kelsync sync"; see "kelsync help sync".

Exit codes: 0 stopped; 1 something failed or another run uses the work folder; 2 usage; 3 a folder of a pair is missing
at the start; 4 no key or a wrong one.
)";

const char* const kStatus = R"(kelsync status --inside DIR --outside DIR [--work DIR] [--json]

Shows the files that are not synchronised, with the time and the reason, and the notifications of the last run. Changes
nothing on either side.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one
  --json         both as the library hands them out: the quarantine on one line, the notifications on the next

Exit codes: 0 shown, whether anything is quarantined or not; 1 the work folder cannot be read; 2 usage.
)";

const char* const kQuarantine = R"(kelsync quarantine clear --inside DIR --outside DIR [--work DIR] [PATH...]

Clears the records of the named files, or all of them. PATH is what "kelsync status" shows, or the file's full path. A
file whose reason still holds is recorded again by the next run.

  --inside DIR   the plain files
  --outside DIR  the encrypted archives
  --work DIR     the work folder of the pair, when it is not the default one

Exit codes: 0 cleared; 1 a PATH has no record, a record could not be removed, or another run uses the work folder;
2 usage.
)";

const char* const kKey = R"(kelsync key rotate --inside DIR --outside DIR [options]
kelsync key verify --inside DIR --outside DIR [options]
kelsync key recover ARCHIVE -o FILE [--key-file FILE] [--work DIR]

rotate brings every archive on the Outside under a new key, on one device only; the files in them are not encrypted
anew. Keep the old key until it says that it is done. Interrupted or failed, it goes on where it was when it is run
again, and until then "kelsync sync" refuses to run. Afterwards the other devices need the new key. What one of them
made under the old key meanwhile follows with --key-file OLD --new-key-file NEW.
verify tries the key on every archive without decrypting the files.
recover decrypts one archive into FILE, which must not exist yet. It needs no pair: nothing but the archive and its key.

  --inside DIR         the plain files
  --outside DIR        the encrypted archives
  --work DIR           the work folder of the pair, when it is not the default one
  --key-file FILE      a text file that holds the key (rotate: the old one)
  --new-key-file FILE  rotate: a text file that holds the new key
  --make-key           rotate: make a new random key, in the work folder (or in the file of --new-key-file)
  --asset ID           the id that the archives name as their key's (default: main)
  -o, --output FILE    recover: the file to write

The key is looked for as by "kelsync sync". The new one is taken from --new-key-file, from the environment variable
KELSYNC_NEW_KEY, or is asked for on a terminal. When the pair's own key, in the work folder, was the old one, the new
one takes its place and the old one is kept beside it as "key.old" (then "key.old.2", and so on).

Exit codes: 0 done; 1 some archives could not be read or replaced, or are damaged; 2 usage; 3 a folder of the pair is
missing; 4 no key, or one that does not open an archive; 130 interrupted.
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

Prints an entry of ARCHIVE, as text.

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
  static const std::map<std::wstring, const char*> texts = {
      {L"sync", kSync},   {L"watch", kWatch},   {L"status", kStatus}, {L"quarantine", kQuarantine},
      {L"names", kNames}, {L"ls", kLs},         {L"check", kCheck},   {L"key", kKey},
      {L"pack", kPack},   {L"unpack", kUnpack}, {L"meta", kMeta},     {L"set-meta", kSetMeta}};
  const auto found = texts.find(command);
  return found == texts.end() ? std::string() : found->second;
}

std::string versionText() { return std::string("kelsync ") + KELSYNC_VERSION + "\n"; }

}  // namespace host
}  // namespace Kelta
