// SPDX-License-Identifier: Apache-2.0
#include "CryptoHelper/RandomFill.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

#include "base/Log.h"
#include "platform/Random.h"

#define RANDOM_LOG(logger, ...) KELTA_LOG(logger, log4cplus::INFO_LOG_LEVEL, nullptr, __VA_ARGS__)
#define RANDOM_INFO(...) RANDOM_LOG(::Kelta::log::copyHandler(), __VA_ARGS__)

namespace Kelta {
namespace crypto {

namespace {

constexpr int kStirrings = 2;
constexpr double kStirringEntropy = 4.0;

void seed(RandomSource& source) {
  const std::uint64_t record[3] = {
      platform::processId(), static_cast<std::uint64_t>(std::time(nullptr)),
      static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count())};
  static_assert(sizeof record == 24, "process, time and ticks");
  source.seedGenerator(record, sizeof record);
}

/// The last resort when the generator itself fails.
bool fillFromWords(RandomSource& source, unsigned char* buffer, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    std::uint32_t word = 0;
    if (!source.stirringWord(word)) return false;
    const std::size_t count = std::min(size - done, sizeof word);
    std::memcpy(buffer + done, &word, count);
    done += count;
  }
  return true;
}

}  // namespace

bool genRandomBuffer(RandomSource& source, unsigned char* buffer, std::size_t size) {
  if (source.acquired()) {
    const bool filled = source.fill(buffer, size);
    if (filled) RANDOM_LOG(log::crypto(), "Strong entropy acquired");
    if (!filled) RANDOM_INFO("Strong entropy failed for buffer");
    return filled;
  }
  RANDOM_INFO("CryptAcquireContext() failed, entropy weakened");
  if (!source.generatorSeeded()) {
    seed(source);
    for (int i = 0; i < kStirrings; ++i) {
      std::uint32_t word = 0;
      if (!source.stirringWord(word)) {
        RANDOM_INFO("rand_s() failure i=%d", i);
        return false;
      }
      source.addToGenerator(&word, sizeof word, kStirringEntropy);
      OPENSSL_cleanse(&word, sizeof word);
    }
  }
  return source.generate(buffer, size) || fillFromWords(source, buffer, size);
}

}  // namespace crypto
}  // namespace Kelta
