// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace Kelta {
namespace zip {

/// How one file becomes an entry. By default: Deflate of level 9, not encrypted, named by the caller.
class EntryOptions {
public:
  /// Method 8 (Deflate) with level 0 to 9, or method 0 (stored), whose level is ignored. Anything else throws
  /// "badArgument".
  void setCompression(unsigned method, int level);
  /// (0x6610, 256, flags): AES-256 under the listener's password; the flags are 0x0001 and, added to it, 0x0100
  /// and 0x4000. (0, 0, flags): none, whatever the flags. Anything else throws "badArgument".
  void setEncryption(unsigned algorithm, unsigned keyBits, unsigned flags);
  /// On: the entry carries the name of its file, whatever name it is added under.
  void setArchiveOption(bool keepSourceName) { keepSourceName_ = keepSourceName; }

  std::uint16_t method() const { return method_; }
  int level() const { return level_; }
  bool encrypted() const { return encryptionFlags_ != 0; }
  std::uint16_t encryptionFlags() const { return encryptionFlags_; }
  bool keepsSourceName() const { return keepSourceName_; }

private:
  std::uint16_t method_ = 8;
  int level_ = 9;
  std::uint16_t encryptionFlags_ = 0;
  bool keepSourceName_ = false;
};

}  // namespace zip
}  // namespace Kelta
