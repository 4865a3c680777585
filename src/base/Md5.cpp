// SPDX-License-Identifier: Apache-2.0
#include "base/Md5.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace Kelta {

std::string md5Hex(const void* data, std::size_t size) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(data, size, digest, &length, EVP_md5(), nullptr) != 1)
    throw std::runtime_error("MD5 is not available");
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex += digits[digest[i] >> 4];
    hex += digits[digest[i] & 15];
  }
  return hex;
}

}  // namespace Kelta
