// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/EntryOptions.h"

#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

void EntryOptions::setCompression(unsigned method, int level) {
  if (method != kStored && method != kDeflated)
    throw ArchiveError(ArchiveFailure::badArgument, "no such compression method");
  if (method == kDeflated && (level < 0 || level > 9))
    throw ArchiveError(ArchiveFailure::badArgument, "no such compression level");
  method_ = static_cast<std::uint16_t>(method);
  level_ = level;
}

void EntryOptions::setEncryption(unsigned algorithm, unsigned keyBits, unsigned flags) {
  if (algorithm == 0 && keyBits == 0) {
    encryptionFlags_ = 0;
    return;
  }
  const unsigned known = kPasswordFlag | kNoOaepFlag | kTripleDesFlag;
  if (algorithm != kAlgorithmAes256 || keyBits != kKeyBits || (flags & kPasswordFlag) == 0 || (flags & ~known) != 0)
    throw ArchiveError(ArchiveFailure::badArgument, "no such encryption");
  encryptionFlags_ = static_cast<std::uint16_t>(flags);
}

}  // namespace zip
}  // namespace Kelta
