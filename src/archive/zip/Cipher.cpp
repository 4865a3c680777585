// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/Cipher.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "archive/zip/ArchiveError.h"

namespace Kelta {
namespace zip {

void CbcCipher::Free::operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }

CbcCipher::CbcCipher(Algorithm algorithm, Direction direction, Padding padding, const Key& key, const unsigned char* iv)
    : context_(EVP_CIPHER_CTX_new()), decrypting_(direction == Direction::decrypt) {
  const EVP_CIPHER* cipher = algorithm == Algorithm::aes256 ? EVP_aes_256_cbc() : EVP_des_ede3_cbc();
  requireCrypto(context_ != nullptr);
  requireCrypto(EVP_CipherInit_ex(context_.get(), cipher, nullptr, key.data(), iv, decrypting_ ? 0 : 1) == 1);
  requireCrypto(EVP_CIPHER_CTX_set_padding(context_.get(), padding == Padding::pkcs7 ? 1 : 0) == 1);
}

CbcCipher::~CbcCipher() = default;

std::size_t CbcCipher::update(const unsigned char* in, std::size_t size, unsigned char* out) {
  int written = 0;
  requireCrypto(EVP_CipherUpdate(context_.get(), out, &written, in, static_cast<int>(size)) == 1);
  return static_cast<std::size_t>(written);
}

bool CbcCipher::finish(unsigned char* out, std::size_t& written) {
  int last = 0;
  const int result = EVP_CipherFinal_ex(context_.get(), out, &last);
  if (result != 1 && decrypting_) return false;
  requireCrypto(result == 1);
  written = static_cast<std::size_t>(last);
  return true;
}

EncryptSink::EncryptSink(ByteSink& next, const Key& key, const unsigned char* iv)
    : next_(next),
      cipher_(CbcCipher::Algorithm::aes256, CbcCipher::Direction::encrypt, CbcCipher::Padding::pkcs7, key, iv),
      out_(new unsigned char[kBufferSize + kBlockSize]) {}

void EncryptSink::write(const unsigned char* data, std::size_t size) {
  while (size > 0) {
    const std::size_t part = std::min(size, kBufferSize);
    next_.write(out_.get(), cipher_.update(data, part, out_.get()));
    data += part;
    size -= part;
  }
}

void EncryptSink::finish() {
  std::size_t written = 0;
  cipher_.finish(out_.get(), written);
  next_.write(out_.get(), written);
  next_.finish();
}

DecryptSource::DecryptSource(ByteSource& encrypted, const Key& key, const unsigned char* iv)
    : encrypted_(encrypted),
      cipher_(CbcCipher::Algorithm::aes256, CbcCipher::Direction::decrypt, CbcCipher::Padding::pkcs7, key, iv),
      in_(new unsigned char[kBufferSize]),
      out_(new unsigned char[kBufferSize + kBlockSize]) {}

bool DecryptSource::refill() {
  if (ended_) return false;
  const std::size_t got = encrypted_.read(in_.get(), kBufferSize);
  next_ = 0;
  if (got > 0) {
    filled_ = cipher_.update(in_.get(), got, out_.get());
    return true;
  }
  ended_ = true;
  if (!cipher_.finish(out_.get(), filled_))
    throw ArchiveError(ArchiveFailure::damaged, "the encrypted data ends wrongly");
  return true;
}

std::size_t DecryptSource::read(unsigned char* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    if (next_ == filled_ && !refill()) break;
    const std::size_t part = std::min(size - done, filled_ - next_);
    std::memcpy(data + done, out_.get() + next_, part);
    next_ += part;
    done += part;
  }
  return done;
}

}  // namespace zip
}  // namespace Kelta
