// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "Secret.h"

namespace Kelta {
namespace host {

/// What the user said about the key, and what decides whether a new one may be made.
struct KeyWishes {
  std::wstring keyFile;             ///< --key-file; empty when not given
  boost::filesystem::path ownFile;  ///< the work folder's own key file
  std::wstring outside;             ///< no key is put there
  bool make = false;                ///< --make-key
  bool archivesExist = false;       ///< a new key would not open them
  bool successor = false;           ///< the key that is to replace the pair's: KELSYNC_NEW_KEY, --new-key-file
};

struct FoundKey {
  Secret text;
  std::wstring source;     ///< for the summary: a file, the variable or the prompt
  bool overrides = false;  ///< the work folder has a key file of its own, which was not used
};

/// The key of the pair: --key-file, else KELSYNC_KEY, else the work folder's key file, else a new one when --make-key
/// is set, else what the user types on the terminal, who may ask for a new one there.
/// Throws Failure: noKey when none of these gives one or a file cannot be used.
FoundKey findKey(const KeyWishes& wishes);

/// Writes a key into a file of its own, for its owner alone, in place of one that is there. Throws Failure (failed).
void keepKey(const boost::filesystem::path& file, const Secret& key);

/// A warning about a key that is weak or looks mistyped; empty when there is none.
std::wstring doubtAbout(const std::wstring& key);

}  // namespace host
}  // namespace Kelta
