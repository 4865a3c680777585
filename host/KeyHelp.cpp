// SPDX-License-Identifier: Apache-2.0
#include "KeyHelp.h"

namespace Kelta {
namespace host {

const char* const kKeyHelp = R"(kelsync key rotate --inside DIR --outside DIR [options]
kelsync key verify --inside DIR --outside DIR [options]
kelsync key recover ARCHIVE -o FILE [--key-file FILE] [--work DIR]

rotate brings every archive on the Outside under a new key; verify tries the key on every archive; recover decrypts one
archive with nothing but its key. "kelsync help key rotate", and so on, tells more.
)";

const char* const kKeyRotateHelp = R"(kelsync key rotate --inside DIR --outside DIR [options]

Brings every archive on the Outside under a new key, on one device only; the files in them are not encrypted anew. Keep
the old key until it says that it is done. Interrupted or failed, it goes on where it was when it is run again, and
until then "kelsync sync" refuses to run. Afterwards the other devices need the new key. What one of them made under the
old key meanwhile follows with --key-file OLD --new-key-file NEW.

  --inside DIR         the plain files
  --outside DIR        the encrypted archives
  --work DIR           the work folder of the pair, when it is not the default one
  --key-file FILE      a text file that holds the old key
  --new-key-file FILE  a text file that holds the new key
  --make-key           make a new random key, in the work folder (or in the file of --new-key-file)
  --asset ID           the id that the archives name as their key's (default: main)

The old key is looked for as by "kelsync sync". The new one is taken from --new-key-file, from the environment variable
KELSYNC_NEW_KEY, or is asked for on a terminal. When the pair's own key, in the work folder, was the old one, the new
one takes its place and the old one is kept beside it as "key.old" (then "key.old.2", and so on).

Exit codes: 0 done; 1 some archives could not be read or replaced, or another run uses the work folder; 2 usage; 3 a
folder of the pair is missing; 4 no key, or one that does not open an archive; 130 interrupted.
)";

const char* const kKeyVerifyHelp = R"(kelsync key verify --inside DIR --outside DIR [options]

Tries the key on every archive without decrypting the files. It may run while the pair is synchronised or watched.

  --inside DIR     the plain files
  --outside DIR    the encrypted archives
  --work DIR       the work folder of the pair, when it is not the default one
  --key-file FILE  a text file that holds the key
  --asset ID       the id that the archives name as their key's (default: main)

The key is looked for as by "kelsync sync".

Exit codes: 0 all open; 1 some archives are damaged; 2 usage; 3 a folder of the pair is missing; 4 no key, or one that
does not open an archive; 130 interrupted.
)";

const char* const kKeyRecoverHelp = R"(kelsync key recover ARCHIVE -o FILE [--key-file FILE] [--work DIR]

Decrypts one archive into FILE, which must not exist yet. It needs no pair: nothing but the archive and its key.

  -o, --output FILE  the file to write
  --key-file FILE    a text file that holds the key
  --work DIR         the work folder of a pair, whose file "key" holds the key; log and temporary files go there as well

The key is looked for in --key-file, in the environment variable KELSYNC_KEY, in the work folder, and is asked for on a
terminal otherwise.

Exit codes: 0 done; 1 the archive is damaged, or FILE cannot be written; 2 usage; 4 no key, or one that does not open
the archive.
)";

}  // namespace host
}  // namespace Kelta
