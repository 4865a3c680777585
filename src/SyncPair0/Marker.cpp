// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/Marker.h"

#include <boost/filesystem/exception.hpp>

#include "platform/Files.h"
#include "platform/Text.h"

namespace Kelta {
namespace {

const std::string kText = "This folder holds encrypted files. Deleting this file does no harm.\n";
const std::wstring kName = L".kelta";
constexpr std::size_t kMarkerBytes = 1024;
constexpr std::size_t kMarkDigits = 32;

bool hasOnly(const std::string& text, const char* characters) {
  return text.find_first_not_of(characters) == std::string::npos;
}

}  // namespace

OutsideMarker outsideMarkerOf(const std::string& text) {
  OutsideMarker marker;
  if (text.compare(0, kText.size(), kText) != 0) return marker;
  const std::string line = text.substr(kText.size(), text.find('\n', kText.size()) - kText.size());
  if (kText.size() + line.size() + 1 < text.size()) return marker;
  if (line.size() == kMarkDigits && hasOnly(line, "0123456789abcdef")) marker.mark = line;
  marker.isRandom = marker.mark.empty() && hasOnly(line, "0123456789-");
  return marker;
}

std::string outsideMarkerText(const std::string& mark) { return kText + mark + "\n"; }

std::string readMarker(const std::wstring& path) {
  if (platform::stampOf(platform::pathOf(path)).kind != platform::Kind::file) return std::string();
  try {
    platform::File file(platform::pathOf(path), platform::File::Mode::read);
    std::string text(kMarkerBytes + 1, '\0');
    text.resize(file.read(&text[0], text.size()));
    return text.size() > kMarkerBytes ? std::string() : text;
  } catch (const boost::filesystem::filesystem_error&) {
    return std::string();
  }
}

bool mayBeMarkerCopy(const std::wstring& name) {
  if (name.size() <= kName.size()) return false;
  if (name.compare(0, kName.size(), kName) == 0) return true;
  const bool archive = name.compare(name.size() - kName.size(), kName.size(), kName) == 0;
  return archive && std::wstring(L" ._-([").find(name[0]) != std::wstring::npos;
}

}  // namespace Kelta
