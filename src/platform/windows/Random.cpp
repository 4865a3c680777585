// SPDX-License-Identifier: Apache-2.0
#include "platform/Random.h"

#include <stdlib.h>
#include <windows.h>
// after windows.h
#include <wincrypt.h>

#include <algorithm>
#include <limits>

#include "platform/windows/Native.h"

namespace Kelta {
namespace platform {

StrongRandom::StrongRandom() {
  HCRYPTPROV provider = 0;
  acquired_ = CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) != 0;
  handle_ = provider;
}

StrongRandom::~StrongRandom() {
  if (acquired_) CryptReleaseContext(handle_, 0);
}

bool StrongRandom::fill(unsigned char* buffer, std::size_t size) {
  constexpr std::size_t largest = 1u << 30;
  for (std::size_t done = 0; done < size;) {
    const DWORD count = static_cast<DWORD>(std::min(size - done, largest));
    if (!CryptGenRandom(handle_, count, buffer + done)) return false;
    done += count;
  }
  return true;
}

bool stirringWord(std::uint32_t& word) {
  unsigned int drawn = 0;
  if (rand_s(&drawn) != 0) return false;
  word = drawn;
  return true;
}

std::uint64_t processId() { return GetCurrentProcessId(); }

bool processRuns(std::uint64_t id) {
  if (id > std::numeric_limits<DWORD>::max()) return false;
  const Handle process(OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(id)));
  if (!process) return id == 0 || GetLastError() != ERROR_INVALID_PARAMETER;
  return WaitForSingleObject(process.get(), 0) != WAIT_OBJECT_0;
}

}  // namespace platform
}  // namespace Kelta
