// SPDX-License-Identifier: Apache-2.0
// What nobody here could read may still be worth something to its owner: before it is replaced, a copy of the archive
// goes to the recycle bin. The copy stands beside it under a conflict name for that, so that it lands in the bin of
// that volume, and is synchronised, if it can be, when it is restored.
#include <boost/filesystem/exception.hpp>
#include <vector>

#include "CryptoSyncCopyHandler/ConflictName.h"
#include "CryptoSyncCopyHandler/CryptoSyncCopyHandler.h"
#include "CryptoSyncCopyHandler/PairFolders.h"
#include "base/GenericPath.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "platform/AtomicFile.h"
#include "platform/Folders.h"

namespace Kelta {
namespace {

namespace fs = boost::filesystem;

// False, with nothing there, when something stands under the name or the original changes meanwhile.
bool copyBeside(const platform::Spot& from, const platform::FileStamp& stamp, const fs::path& name,
                Interruption& interruption) {
  platform::File input = from.folder.open(from.name, platform::File::Mode::read);
  platform::AtomicFile output(from.folder, name);
  std::vector<char> buffer(platform::kCopyBufferBytes);
  while (const std::size_t count = input.read(buffer.data(), buffer.size())) {
    interruption.check();
    output.file().write(buffer.data(), count);
  }
  output.file().setLastWriteTime(stamp.nanoseconds);
  return from.look().stamp.sameContent(stamp) && output.commitNew();
}

}  // namespace

// The name of the copy: that of the archive of a conflict copy, where the plain name can be told.
std::wstring CryptoSyncCopyHandler::nameToKeep(const std::wstring& archive) {
  const std::wstring plain = untransformName(archive);
  const std::wstring stem = plain.empty() ? nameOf(archive) : plain;
  const std::wstring copy = conflictNameOf(joinPath(parentOf(archive), stem), clock().nowSeconds());
  const std::wstring name = transformName(copy);
  return joinPath(parentOf(archive), name.empty() ? nameOf(copy) + L".kelta" : name);
}

bool CryptoSyncCopyHandler::keepAsItIs(std::wstring archive) {
  archive = genericForm(std::move(archive));
  const fs::path path = platform::pathOf(archive);
  const platform::FileStamp stamp = platform::stampOf(path);
  const auto kept = keptAsTheyAre_.find(archive);
  if (kept != keptAsTheyAre_.end() && kept->second.sameContent(stamp)) return true;
  const std::wstring copy = nameToKeep(archive);
  try {
    const platform::Spot spot = spotOf(outsideFolder_, archive);
    const fs::path name = platform::pathOf(nameOf(copy));
    if (!nameFits(copy) || !copyBeside(spot, stamp, name, interruption())) return false;
    const platform::Recycled recycled = spot.folder.throwAway(name);
    if (recycled == platform::Recycled::no) spot.folder.removeFile(name, spot.folder.look(name).id);
    if (recycled == platform::Recycled::no) return false;
    const bool inBin = recycled == platform::Recycled::yes;
    tellError(L"The archive of " + jsonEscaped(shownName(path)) +
              L" cannot be read and is to be replaced; a copy was " +
              (inBin ? L"put into the recycle bin as " : L"kept as ") + jsonEscaped(nameOf(copy)));
  } catch (const fs::filesystem_error& error) {
    HANDLER_ERROR("%s", error.what());
    return false;
  }
  keptAsTheyAre_[archive] = stamp;
  return true;
}

}  // namespace Kelta
