// SPDX-License-Identifier: Apache-2.0
#include "CryptoHelper/CryptoHelper.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "CryptoHelper/KeyText.h"
#include "CryptoHelper/RandomFill.h"
#include "base/Log.h"
#include "platform/Random.h"

#define CRYPTO_LOG(level, ...) KELTA_LOG(::Kelta::log::copyHandler(), level, nullptr, __VA_ARGS__)
#define CRYPTO_DEBUG(...) CRYPTO_LOG(log4cplus::DEBUG_LOG_LEVEL, __VA_ARGS__)
#define CRYPTO_INFO(...) CRYPTO_LOG(log4cplus::INFO_LOG_LEVEL, __VA_ARGS__)

namespace Kelta {

namespace {

constexpr int kBlockBytes = 16;

using Iv = std::array<unsigned char, kBlockBytes>;
using Block = std::unique_ptr<unsigned char, void (*)(void*)>;

Block allocate(std::size_t size) {
  return Block(static_cast<unsigned char*>(std::calloc(std::max<std::size_t>(size, 1), 1)), &std::free);
}

/// The key of one operation, wiped when it ends.
class Key {
public:
  Key(CryptoHelper& helper, std::string& text) { helper.setKey(&bytes_, text); }
  ~Key() {
    if (bytes_) OPENSSL_cleanse(bytes_, crypto::kKeyBytes);
    std::free(bytes_);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  const unsigned char* bytes() const { return bytes_; }

private:
  unsigned char* bytes_ = nullptr;
};

enum class Direction { decrypt = 0, encrypt = 1 };

/// One run of the cipher over a whole buffer: which of its steps went right, and how much came out.
struct Run {
  bool init = false;
  bool update = false;
  bool final = false;
  int length = 0;

  bool right() const { return init && update && final; }
};

/// `out` has room for `length` bytes and one block.
Run runCipher(Direction direction, const Key& key, const Iv& iv, const unsigned char* in, int length,
              unsigned char* out) {
  Run run;
  const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  if (!context) return run;
  run.init = EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.bytes(), iv.data(),
                               static_cast<int>(direction)) == 1;
  int updated = 0;
  run.update = run.init && EVP_CipherUpdate(context.get(), out, &updated, in, length) == 1;
  if (!run.update) return run;
  int last = 0;
  run.final = EVP_CipherFinal_ex(context.get(), out + updated, &last) == 1;
  run.length = updated + (run.final ? last : 0);
  return run;
}

void logRun(const Run& run, int line, const char* function) {
  log4cplus::Logger& logger = run.right() ? log::crypto() : log::copyHandler();
  if (!logger.isEnabledFor(log4cplus::INFO_LOG_LEVEL)) return;
  const log::Place place = {__FILE__, line, function, nullptr};
  log::write(logger, log4cplus::INFO_LOG_LEVEL, place, "EVP init ok ? %s", log::truth(run.init));
  log::write(logger, log4cplus::INFO_LOG_LEVEL, place, "EVP update ok ? %s", log::truth(run.update));
  log::write(logger, log4cplus::INFO_LOG_LEVEL, place, "EVP final ok ? %s", log::truth(run.final));
}

class SystemRandom : public crypto::RandomSource {
public:
  bool acquired() override { return strong_.acquired(); }
  bool fill(unsigned char* buffer, std::size_t size) override { return strong_.fill(buffer, size); }
  bool stirringWord(std::uint32_t& word) override { return platform::stirringWord(word); }
  bool generatorSeeded() override { return RAND_status() == 1; }
  void seedGenerator(const void* record, std::size_t size) override { RAND_seed(record, static_cast<int>(size)); }
  void addToGenerator(const void* bytes, std::size_t size, double entropy) override {
    RAND_add(bytes, static_cast<int>(size), entropy);
  }
  bool generate(unsigned char* buffer, std::size_t size) override {
    return RAND_bytes(buffer, static_cast<int>(size)) == 1;
  }

private:
  platform::StrongRandom strong_;
};

}  // namespace

bool CryptoHelper::genRandomBuffer(unsigned char** buf, int len) {
  *buf = nullptr;
  if (len < 0) return false;
  *buf = allocate(static_cast<std::size_t>(len)).release();
  if (!*buf) return false;
  SystemRandom source;
  return crypto::genRandomBuffer(source, *buf, static_cast<std::size_t>(len));
}

void CryptoHelper::setKey(unsigned char** out, std::string& key) {
  *out = nullptr;
  const crypto::KeyForm form = crypto::keyFormOf(key);
  if (form == crypto::KeyForm::hex) CRYPTO_DEBUG("setKey() is hex");
  if (form == crypto::KeyForm::base64) CRYPTO_DEBUG("setKey() is Base64");
  Block block = allocate(crypto::kKeyBytes);
  if (block && crypto::keyFromText(key, form, block.get())) *out = block.release();
}

unsigned char* CryptoHelper::encryptBufferAES(unsigned char* in, int* len, std::string& key, unsigned char* iv,
                                              int ivLen) {
  const int plainLength = std::max(*len, 0);
  const int prefix = std::max(ivLen, 0);
  if (plainLength > INT_MAX - 2 * kBlockBytes - prefix) return nullptr;
  const int workLength = plainLength + kBlockBytes;
  const int resultLength = prefix + workLength + 1;
  CRYPTO_DEBUG("c_len = %d retlen = %d", workLength, resultLength);
  Block result = allocate(static_cast<std::size_t>(resultLength));
  const Key prepared(*this, key);
  if (!prepared.bytes() || !result) {
    CRYPTO_INFO("setKey error");
    return nullptr;
  }
  Iv start{};
  std::copy_n(iv, std::min(prefix, kBlockBytes), start.begin());
  std::copy_n(iv, prefix, result.get());
  const Run run = runCipher(Direction::encrypt, prepared, start, in, plainLength, result.get() + prefix);
  logRun(run, __LINE__, __func__);
  *len = prefix + run.length;
  return result.release();
}

unsigned char* CryptoHelper::encryptBufferAES(unsigned char* in, int* len, std::string& key) {
  unsigned char* drawn = nullptr;
  const bool random = genRandomBuffer(&drawn, kBlockBytes);
  const Block iv(drawn, &std::free);
  return random ? encryptBufferAES(in, len, key, iv.get(), kBlockBytes) : nullptr;
}

unsigned char* CryptoHelper::decryptBufferAES(unsigned char* in, std::string& key, int* len) {
  const int cipherLength = std::max(*len - kBlockBytes, 0);
  Block result = allocate(static_cast<std::size_t>(cipherLength) + kBlockBytes);
  Run run;
  const Key prepared(*this, key);
  if (*len >= kBlockBytes && prepared.bytes() && result) {
    Iv iv{};
    std::copy_n(in, kBlockBytes, iv.begin());
    run = runCipher(Direction::decrypt, prepared, iv, in + kBlockBytes, cipherLength, result.get());
  }
  logRun(run, __LINE__, __func__);
  *len = run.length;
  return result.release();
}

bool CryptoHelper::decrypted(const std::string& in, std::string& key, std::string& out, Trace trace) {
  out.clear();
  if (in.size() < 2 * kBlockBytes || in.size() % kBlockBytes != 0 || in.size() > INT_MAX) return false;
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(in.data());
  const int cipherLength = static_cast<int>(in.size()) - kBlockBytes;
  const Key prepared(*this, key);
  const Block result = allocate(in.size());
  if (!prepared.bytes() || !result) return false;
  Iv iv{};
  std::copy_n(bytes, kBlockBytes, iv.begin());
  const Run run = runCipher(Direction::decrypt, prepared, iv, bytes + kBlockBytes, cipherLength, result.get());
  if (trace == Trace::steps) logRun(run, __LINE__, __func__);
  if (run.right()) out.assign(reinterpret_cast<const char*>(result.get()), static_cast<std::size_t>(run.length));
  OPENSSL_cleanse(result.get(), in.size());
  return run.right();
}

bool CryptoHelper::encrypted(const std::string& in, std::string& key, const std::string& iv, std::string& out) {
  out.clear();
  if (iv.size() != kBlockBytes || in.size() > INT_MAX - 2 * kBlockBytes) return false;
  const Key prepared(*this, key);
  const Block result = allocate(in.size() + kBlockBytes);
  if (!prepared.bytes() || !result) return false;
  Iv start{};
  std::copy(iv.begin(), iv.end(), start.begin());
  const Run run = runCipher(Direction::encrypt, prepared, start, reinterpret_cast<const unsigned char*>(in.data()),
                            static_cast<int>(in.size()), result.get());
  if (!run.right()) return false;
  out = iv;
  out.append(reinterpret_cast<const char*>(result.get()), static_cast<std::size_t>(run.length));
  return true;
}

}  // namespace Kelta
