// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace Kelta {
namespace platform {

/// The operating system's strong random source (CryptoAPI; getrandom elsewhere).
class StrongRandom {
public:
  StrongRandom();
  ~StrongRandom();
  StrongRandom(const StrongRandom&) = delete;
  StrongRandom& operator=(const StrongRandom&) = delete;
  bool acquired() const { return acquired_; }
  /// Fills the buffer; false when the source gave no bytes.
  bool fill(unsigned char* buffer, std::size_t size);

private:
  bool acquired_ = false;
  std::uintptr_t handle_ = 0;
};

/// One word from the runtime's second source (rand_s; the random device elsewhere), to stir a generator with.
bool stirringWord(std::uint32_t& word);

std::uint64_t processId();

/// Whether a process of that number runs on this machine; true when in doubt.
bool processRuns(std::uint64_t id);

}  // namespace platform
}  // namespace Kelta
