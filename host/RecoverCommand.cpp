// SPDX-License-Identifier: Apache-2.0
#include "RecoverCommand.h"

#include <kelsyncpair/kelsyncpair.h>

#include <boost/filesystem/exception.hpp>

#include "ArchiveFiles.h"
#include "Key.h"
#include "LogFolder.h"
#include "Options.h"
#include "PairFolders.h"
#include "Terminal.h"
#include "platform/Files.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

/// The key for whatever asset the archive names. The library's callback has no context; there is one recovery a
/// process.
const Secret* givenKey = nullptr;

const wchar_t* KELSYNC_CALL anyKey(const wchar_t*) { return givenKey == nullptr ? nullptr : givenKey->c_str(); }

void KELSYNC_CALL noteOutcome(void* context, const wchar_t* operation, const wchar_t*, uint64_t, uint64_t) {
  *static_cast<std::wstring*>(context) = operation;
}

/// The work folder of a pair, or one for the recoveries of all archives.
fs::path workFolder(const std::wstring& text) {
  const fs::path data = platform::userDataFolder();
  if (text.empty() && data.empty())
    throw Failure{Exit::usage, L"the system names no folder for program data; give --work DIR"};
  return text.empty() ? data / "kelsync" / "recover" : absoluteOf(text);
}

fs::path logFolder(const fs::path& work) { return work / "log" / "reading"; }

void prepareWorkFolder(const fs::path& work) {
  try {
    createForOwner(work);
    createForOwner(work / "temp");
    prepareLogFolder(logFolder(work));
  } catch (const fs::filesystem_error&) {
    throw Failure{Exit::failed, L"the work folder cannot be used: " + printable(genericOf(work))};
  }
}

/// What the library made of it: "decrypt", "no-key" or "failed".
std::wstring decrypt(const std::wstring& archive, const std::wstring& file, const Secret& key, const fs::path& work) {
  kelsync_pair* handle = nullptr;
  kelsync_init(&handle);
  if (handle == nullptr) throw Failure{Exit::failed, L"not enough memory"};
  std::wstring outcome = L"failed";
  givenKey = &key;
  kelsync_set_log_folder(handle, genericOf(logFolder(work)).c_str());
  kelsync_set_temp_folder(handle, genericOf(work / "temp").c_str());
  kelsync_cb_register_keynotfound(handle, anyKey);
  kelsync_cb_register_progress(handle, noteOutcome, &outcome);
  single_decrypt(handle, archive.c_str(), file.c_str());
  kelsync_delete(handle);
  givenKey = nullptr;
  return outcome;
}

}  // namespace

Exit recoverCommand(const Arguments& arguments) {
  const Options options(arguments, {{L"--output", L"-o", true}, {L"--key-file", L"", true}, {L"--work", L"", true}});
  const std::wstring operand = options.onlyOperand(L"the archive");
  const std::wstring output = options.required(L"--output");
  if (output == L"-")
    throw Failure{Exit::usage, L"what is recovered goes into a file: -o FILE (./- for one of that name)"};
  const std::wstring file = pathArgument(output);
  const std::wstring archive = inputFile(operand);
  if (exists(file)) throw Failure{Exit::failed, printable(file) + L": exists already; nothing was recovered"};
  char* metadata = nullptr;
  const int readable = get_zip_meta_w(archive.c_str(), L"__KELASSET_.json", nullptr, &metadata);
  freeme(metadata);
  requireSuccess(readable, archive);
  const fs::path work = workFolder(options.value(L"--work"));
  KeyWishes wishes;
  wishes.keyFile = options.value(L"--key-file");
  wishes.ownFile = work / "key";
  wishes.archivesExist = true;
  const FoundKey key = findKey(wishes);
  prepareWorkFolder(work);
  const std::wstring outcome = decrypt(archive, file, key.text, work);
  if (outcome == L"no-key") throw Failure{Exit::noKey, printable(archive) + L": the key does not open it"};
  if (outcome != L"decrypt") {
    throw Failure{Exit::failed, printable(archive) + L": damaged, or " + printable(file) + L" cannot be written"};
  }
  say(L"recovered: " + printable(file));
  return Exit::done;
}

}  // namespace host
}  // namespace Kelta
