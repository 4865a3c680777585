// SPDX-License-Identifier: Apache-2.0
// The commands that are about the names of archives: names, ls, check.
#include <boost/filesystem/operations.hpp>
#include <map>

#include "Commands.h"
#include "Engine.h"
#include "PairKey.h"
#include "PairSetup.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

constexpr std::size_t kMaxCharacters = 260;
constexpr std::size_t kMaxBytes = 255;

std::wstring column(const std::wstring& text, std::size_t width) {
  return std::wstring(text.size() < width ? width - text.size() : 0, L' ') + text;
}

/// The files below a folder, by full path in generic form; links are not followed.
std::map<std::wstring, platform::FileStamp> filesBelow(const std::wstring& folder) {
  std::map<std::wstring, platform::FileStamp> files;
  boost::system::error_code error;
  fs::recursive_directory_iterator entry(platform::pathOf(folder), fs::directory_options::skip_permission_denied,
                                         error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    std::wstring path;
    const platform::FileStamp stamp = platform::stampOf(entry->path());
    if (stamp.kind == platform::Kind::file && platform::wideOf(entry->path().generic_path(), path)) files[path] = stamp;
  }
  if (error) throw Failure{Exit::failed, L"the folder cannot be listed: " + printable(folder)};
  return files;
}

std::wstring lastOf(const std::wstring& path) { return path.substr(path.rfind(L'/') + 1); }

struct Room {
  std::wstring text;
  bool enough;
};

Room roomOf(const std::wstring& folder, const std::wstring& name) {
  const std::size_t characters = folder.size() + 1 + name.size();
  const std::size_t bytes = platform::utf8(name).size();
  const bool enough = characters <= kMaxCharacters && bytes <= kMaxBytes;
  return {column(std::to_wstring(characters), 5) + column(std::to_wstring(bytes), 5) + (enough ? L" " : L"!"), enough};
}

}  // namespace

Exit namesCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  const std::wstring wish = options.onlyOperand(L"on or off");
  if (wish != L"on" && wish != L"off") throw Failure{Exit::usage, L"names takes on or off"};
  NamedPair named(options);
  named.open();
  const PairFolders& pair = named.folders;
  WorkFolder& work = named.work;
  const FoundKey key = pairKey(options, work, pair, false);
  work.claim();
  work.prepareLog();
  Engine engine(named.settings());
  openWithKey(engine, options, key, work);
  work.rememberNames(wish == L"on");
  engine.setNames(wish == L"on");
  const bool done = engine.resetNames();
  if (engine.stopAsked()) return Exit::interrupted;
  say(std::wstring(done ? L"all" : L"not all") + L" archives have " + (wish == L"on" ? L"encrypted" : L"plain") +
      L" names now");
  if (!done) complain(L"some keep theirs; kelsync ls shows which");
  return done ? Exit::done : Exit::failed;
}

Exit lsCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  options.refuseOperands();
  NamedPair named(options);
  named.openForReading();
  const PairFolders& pair = named.folders;
  const FoundKey key = pairKey(options, named.work, pair, false);
  Engine engine(named.settings());
  engine.setKey(assetOf(options), key.text.c_str());
  std::size_t unreadable = 0;
  say(L"name         bytes  file");
  for (const auto& file : filesBelow(pair.outside)) {
    if (!isArchiveName(lastOf(file.first))) continue;
    const std::wstring relative = file.first.substr(pair.outside.size() + 1);
    const std::wstring plain = engine.plainName(file.first);
    const bool isPlain = plain + kArchiveSuffix == lastOf(file.first);
    const wchar_t* const form = plain.empty() ? L"unreadable" : isPlain ? L"plain     " : L"encrypted ";
    unreadable += plain.empty() ? 1U : 0U;
    const std::wstring folder = relative.substr(0, relative.size() - lastOf(relative).size());
    say(form + column(std::to_wstring(file.second.size), 8) + L"  " +
        printable(folder + (plain.empty() ? lastOf(relative) : plain)));
  }
  return unreadable == 0 ? Exit::done : Exit::failed;
}

Exit checkCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({}));
  options.refuseOperands();
  NamedPair named(options);
  named.openForReading();
  const PairFolders& pair = named.folders;
  Engine engine(named.settings());
  engine.setKey(L"check", L"any key gives names of the same lengths");
  std::size_t tooLong[2] = {0, 0};
  bool headed = false;
  std::size_t seen = 0;
  const auto files = filesBelow(pair.inside);
  for (const auto& file : files) {
    const std::wstring relative = file.first.substr(pair.inside.size() + 1);
    const std::wstring name = lastOf(relative);
    if (name == L".rid") continue;  // a marker of our own
    ++seen;
    const std::wstring folder =
        (pair.outside + L"/" + relative).substr(0, pair.outside.size() + relative.size() - name.size());
    const Room plain = roomOf(folder, name + kArchiveSuffix);
    const Room encrypted = roomOf(folder, engine.encryptedName(name));
    tooLong[0] += plain.enough ? 0U : 1U;
    tooLong[1] += encrypted.enough ? 0U : 1U;
    if (plain.enough && encrypted.enough) continue;
    if (!headed) {
      say(L"     plain  encrypted   (path: characters, at most 260; name: bytes, at most 255)");
      say(L" path name  path name   file");
    }
    headed = true;
    say(plain.text + encrypted.text + L"  " + printable(relative));
  }
  say(L"files: " + std::to_wstring(seen) + L"; too long with plain names: " + std::to_wstring(tooLong[0]) +
      L", with encrypted names: " + std::to_wstring(tooLong[1]));
  return tooLong[0] + tooLong[1] == 0 ? Exit::done : Exit::failed;
}

}  // namespace host
}  // namespace Kelta
