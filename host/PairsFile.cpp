// SPDX-License-Identifier: Apache-2.0
#include "PairsFile.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <sstream>

#include "Failure.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

constexpr std::uint64_t kLongestFile = 1024 * 1024;

std::string contentOf(const std::wstring& path) {
  try {
    platform::File file(platform::pathOf(path), platform::File::Mode::read);
    if (file.size() > kLongestFile) throw Failure{Exit::usage, printable(path) + L" is too long for a list of pairs"};
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    text.resize(file.read(&text[0], text.size()));
    return text;
  } catch (const boost::filesystem::filesystem_error&) {
    throw Failure{Exit::failed, printable(path) + L" cannot be read"};
  }
}

/// False when a quote is not closed.
bool takeApart(const std::wstring& line, std::vector<std::wstring>& arguments) {
  bool quoted = false;
  bool inside = false;
  for (const wchar_t character : line) {
    const bool space = character == L' ' || character == L'\t';
    if (space && !quoted) {
      inside = false;
      continue;
    }
    if (!inside) arguments.emplace_back();
    inside = true;
    if (character == L'"')
      quoted = !quoted;
    else
      arguments.back() += character;
  }
  return !quoted;
}

/// "~" and "~/…", also behind "--option=", as a shell would have them. Throws Failure (usage) when there is no home.
std::wstring withHome(const std::wstring& argument) {
  const std::size_t equals = argument.compare(0, 2, L"--") == 0 ? argument.find(L'=') : std::wstring::npos;
  const std::size_t start = equals == std::wstring::npos ? 0 : equals + 1;
  const std::wstring value = argument.substr(start);
  if (value != L"~" && value.compare(0, 2, L"~/") != 0 && value.compare(0, 2, L"~\\") != 0) return argument;
  std::wstring home;
  if (!platform::environment("HOME", home)) platform::environment("USERPROFILE", home);
  if (home.empty()) throw Failure{Exit::usage, printable(argument) + L": there is no home folder (HOME is not set)"};
  return argument.substr(0, start) + home + value.substr(1);
}

}  // namespace

std::vector<std::vector<std::wstring>> readPairs(const std::wstring& file) {
  std::vector<std::vector<std::wstring>> pairs;
  std::istringstream lines(contentOf(file));
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    // Editors on Windows put a byte order mark in front.
    if (number == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::wstring wide;
    std::vector<std::wstring> arguments;
    if (!platform::wideFromUtf8(line, wide) || !takeApart(wide, arguments)) {
      throw Failure{Exit::usage, printable(file) + L", line " + std::to_wstring(number) + L", cannot be read"};
    }
    if (arguments.empty() || arguments.front()[0] == L'#') continue;
    std::transform(arguments.begin(), arguments.end(), arguments.begin(), withHome);
    pairs.push_back(std::move(arguments));
  }
  if (pairs.empty()) throw Failure{Exit::usage, printable(file) + L" names no pair"};
  return pairs;
}

}  // namespace host
}  // namespace Kelta
