// SPDX-License-Identifier: Apache-2.0
#include "Key.h"

#include <algorithm>
#include <array>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstring>

#include "Failure.h"
#include "PairFolders.h"
#include "Prompt.h"
#include "Terminal.h"
#include "platform/AtomicFile.h"
#include "platform/Files.h"
#include "platform/Random.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kBase64Length = 43;  // of a key, without padding
constexpr std::size_t kShortPhrase = 20;

const wchar_t* const kNoKey =
    L"no key was given: give --key-file FILE, set KELSYNC_KEY, or run on a terminal to be asked for it; for a pair "
    L"that "
    L"has none yet, --make-key makes one";
const wchar_t* const kKeyMissing =
    L"no key was given: give the one that the archives on the Outside were made with, by --key-file FILE, by "
    L"KELSYNC_KEY, or on a terminal to be asked for it";
const wchar_t* const kNoNewKey =
    L"no new key was given: give --new-key-file FILE, set KELSYNC_NEW_KEY, let --make-key make one, or run on a "
    L"terminal to be asked for it";
const wchar_t* const kArchivesExist =
    L"the Outside already holds archives, which a new key could not open: give the key that they were made with "
    L"(--key-file FILE or KELSYNC_KEY)";

[[noreturn]] void refuseKey(const std::wstring& message) { throw Failure{Exit::noKey, message}; }

bool isThere(const fs::path& path) { return platform::stampOf(path).kind != platform::Kind::missing; }

void dropLineEnd(std::string& text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
}

void dropByteOrderMark(std::string& text) {
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
}

void readText(const fs::path& path, const std::wstring& name, NarrowSecret& content) {
  try {
    if (fs::is_directory(path)) refuseKey(L"the key file is a folder: " + name);
    platform::File file(path, platform::File::Mode::read);
    content.text().resize(NarrowSecret::kLongest + 1);
    content.text().resize(file.read(&content.text()[0], content.text().size()));
  } catch (const fs::filesystem_error&) {
    refuseKey(L"the key file cannot be read: " + name);
  }
}

Secret readKeyFile(const fs::path& path) {
  const std::wstring name = printable(genericOf(path));
  NarrowSecret content;
  readText(path, name, content);
  if (content.text().size() > NarrowSecret::kLongest) refuseKey(L"the key file is bigger than 4 KiB: " + name);
  dropByteOrderMark(content.text());
  dropLineEnd(content.text());
  if (content.text().empty()) refuseKey(L"the key file is empty: " + name);
  std::wstring wide;
  const bool valid = platform::wideFromUtf8(content.text(), wide);
  Secret key(wide);
  wipe(wide);
  if (!valid || key.text().find_first_of(std::wstring(L"\0\r\n", 3)) != std::wstring::npos) {
    refuseKey(L"the key file is not one line of text: " + name);
  }
  return key;
}

void fillWithHex(NarrowSecret& hex) {
  std::array<unsigned char, kKeyBytes> bytes{};
  platform::StrongRandom random;
  if (!random.acquired() || !random.fill(bytes.data(), bytes.size())) {
    throw Failure{Exit::failed, L"the system's random source gave nothing; no key was made"};
  }
  for (const unsigned char byte : bytes) {
    hex.text().push_back("0123456789abcdef"[byte >> 4]);
    hex.text().push_back("0123456789abcdef"[byte & 15]);
  }
  volatile unsigned char* const used = bytes.data();
  for (std::size_t i = 0; i < bytes.size(); ++i) used[i] = 0;
}

void writeKeyFile(const fs::path& path, const NarrowSecret& content) {
  bool created = false;
  try {
    platform::File file(path, platform::File::Mode::createNew);
    created = true;
    file.write(content.text().data(), content.text().size());
    file.flushToDisk();
    file.close();
    platform::syncFolder(path.parent_path());
  } catch (const fs::filesystem_error&) {
    boost::system::error_code ignored;
    if (created) fs::remove(path, ignored);
    refuseKey(L"the new key cannot be written to " + printable(genericOf(path)));
  }
}

FoundKey makeKey(const fs::path& path) {
  NarrowSecret content;
  fillWithHex(content);
  content.text().push_back('\n');
  writeKeyFile(path, content);
  const std::wstring name = printable(genericOf(path));
  say(L"A new key was made: " + name);
  say(L"Keep a copy of this file in another place. Without it nothing on the Outside can ever be opened again,");
  say(L"and every other device needs it (--key-file). Keep it out of the Outside: whoever has both can read all.");
  return {readKeyFile(path), name, false};
}

/// A new key that is typed unseen would be lost with a slip of the finger.
void requireTheSameAgain(const std::wstring& key) {
  Secret again;
  if (askSecret(L"The same again: ", again) != Answer::given || again.text() != key) refuseKey(L"the two keys differ");
}

FoundKey askForKey(const KeyWishes& wishes) {
  FoundKey found{Secret(), L"typed in", false};
  const wchar_t* const question =
      wishes.successor       ? L"The new key. Type or paste it, or press Enter to have a random one made: "
      : wishes.archivesExist ? L"The key of this pair: "
                             : L"This pair has no key yet. Type or paste one, or press Enter to have a random "
                               L"one made: ";
  const Answer answer = askSecret(question, found.text);
  if (answer == Answer::noTerminal && wishes.successor) refuseKey(kNoNewKey);
  if (answer == Answer::noTerminal) refuseKey(wishes.archivesExist ? kKeyMissing : kNoKey);
  if (answer == Answer::cancelled) refuseKey(L"no key was given");
  if (!found.text.text().empty()) {
    if (!wishes.archivesExist) requireTheSameAgain(found.text.text());
    return found;
  }
  if (wishes.archivesExist) refuseKey(kArchivesExist);
  return makeKey(wishes.ownFile);
}

bool keyFromEnvironment(const char* variable, Secret& key) {
  std::wstring value;
  if (!platform::environment(variable, value)) return false;
  const std::wstring name(variable, variable + std::strlen(variable));
  if (value.size() > Secret::kLongest) refuseKey(name + L" is longer than 4096 characters");
  key.text().assign(value);
  wipe(value);
  if (key.text().empty()) refuseKey(name + L" is set, but empty");
  return true;
}

FoundKey keyOfFile(const KeyWishes& wishes) {
  const fs::path path = absoluteOf(wishes.keyFile);
  if (!wishes.make || isThere(path)) return {readKeyFile(path), printable(genericOf(path)), false};
  if (isWithin(genericOf(path), wishes.outside)) {
    throw Failure{Exit::usage, L"the new key file would lie in the Outside, where whoever reads the archives finds it"};
  }
  if (wishes.archivesExist) refuseKey(kArchivesExist);
  return makeKey(path);
}

FoundKey keyByOrder(const KeyWishes& wishes) {
  if (!wishes.keyFile.empty()) return keyOfFile(wishes);
  FoundKey found{Secret(), L"the environment variable KELSYNC_KEY", false};
  if (wishes.successor) found.source = L"the environment variable KELSYNC_NEW_KEY";
  if (keyFromEnvironment(wishes.successor ? "KELSYNC_NEW_KEY" : "KELSYNC_KEY", found.text)) return found;
  if (isThere(wishes.ownFile)) return {readKeyFile(wishes.ownFile), printable(genericOf(wishes.ownFile)), false};
  if (!wishes.make) return askForKey(wishes);
  if (wishes.archivesExist) refuseKey(kArchivesExist);
  return makeKey(wishes.ownFile);
}

}  // namespace

FoundKey findKey(const KeyWishes& wishes) {
  FoundKey found = keyByOrder(wishes);
  found.overrides = isThere(wishes.ownFile) && found.source != printable(genericOf(wishes.ownFile));
  return found;
}

void keepKey(const fs::path& file, const Secret& key) {
  NarrowSecret content;
  std::string text = platform::utf8(key.text());
  content.text().assign(text).push_back('\n');
  wipe(text);
  try {
    platform::writeWholeFile(file, content.text(), true);
  } catch (const fs::filesystem_error&) {
    throw Failure{Exit::failed, L"the key cannot be written to " + printable(genericOf(file))};
  }
}

std::wstring doubtAbout(const std::wstring& key) {
  const bool allHex = std::all_of(key.begin(), key.end(), [](wchar_t character) {
    return (character >= L'0' && character <= L'9') || (character >= L'a' && character <= L'f') ||
           (character >= L'A' && character <= L'F');
  });
  if (key.size() < kShortPhrase) {
    return L"warning: the key is a short pass phrase. It is hashed once and without salt, so it can be guessed; use "
           L"64 random hex digits (--make-key), or at least 20 random characters.";
  }
  const bool base64 = key.size() == kBase64Length || key.size() == kBase64Length + 1;
  if (allHex && !base64 && key.size() != 2 * kKeyBytes) {
    return L"warning: the key has " + std::to_wstring(key.size()) +
           L" hex digits, not 64, and is taken as a pass phrase. Is it complete?";
  }
  return std::wstring();
}

}  // namespace host
}  // namespace Kelta
