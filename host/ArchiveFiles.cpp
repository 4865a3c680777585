// SPDX-License-Identifier: Apache-2.0
#include "ArchiveFiles.h"

#include <kelsyncpair/kelsyncpair.h>

#include <boost/filesystem/operations.hpp>

#include "Failure.h"
#include "PairFolders.h"
#include "Terminal.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;

namespace Kelta {
namespace host {
namespace {

std::wstring sentenceOf(int result) {
  switch (result) {
    case KELSYNC_ARCHIVE_BAD_ARGUMENT:
      return L"a name or the password is empty or no valid text";
    case KELSYNC_ARCHIVE_CANNOT_READ:
      return L"it cannot be read";
    case KELSYNC_ARCHIVE_CANNOT_WRITE:
      return L"the output cannot be written (rights, a full disk, a folder in its place)";
    case KELSYNC_ARCHIVE_NOT_AN_ARCHIVE:
      return L"this is no zip archive";
    case KELSYNC_ARCHIVE_DAMAGED:
      return L"the archive is damaged: truncated or altered";
    case KELSYNC_ARCHIVE_WRONG_PASSWORD:
      return L"the password is wrong, or the archive is damaged";
    case KELSYNC_ARCHIVE_UNSUPPORTED:
      return L"a zip archive of a kind that is not read here";
    case KELSYNC_ARCHIVE_NO_ENTRY:
      return L"the archive has no entry of that name";
    case KELSYNC_ARCHIVE_UNSAFE_NAME:
      return L"the archive holds a name that would leave the target folder; nothing was unpacked from it";
    case KELSYNC_ARCHIVE_CANCELLED:
      return L"cancelled";
    default:
      return L"out of memory or another fault inside";
  }
}

}  // namespace

void requireSuccess(int result, const std::wstring& file) {
  if (result == KELSYNC_ARCHIVE_OK) return;
  const Exit code = result == KELSYNC_ARCHIVE_WRONG_PASSWORD ? Exit::noKey : Exit::failed;
  throw Failure{code, printable(file) + L": " + sentenceOf(result)};
}

void requireSuccess(int result, const std::wstring& input, const std::wstring& output) {
  requireSuccess(result, result == KELSYNC_ARCHIVE_CANNOT_WRITE ? output : input);
}

std::wstring pathArgument(const std::wstring& text) { return genericOf(absoluteOf(text)); }

bool exists(const std::wstring& path) {
  boost::system::error_code error;
  return fs::exists(platform::pathOf(path), error);
}

std::wstring inputFile(const std::wstring& text) {
  std::wstring path = pathArgument(text);
  if (!exists(path)) throw Failure{Exit::failed, printable(path) + L": does not exist"};
  if (isFolder(path)) throw Failure{Exit::failed, printable(path) + L": is a folder"};
  return path;
}

}  // namespace host
}  // namespace Kelta
