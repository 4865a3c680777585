// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <string>

namespace Kelta {
namespace zip {

/// A fixed number of secret bytes, wiped when the object goes.
template <std::size_t N>
struct Secret : std::array<unsigned char, N> {
  Secret() { this->fill(0); }
  Secret(const Secret&) = default;
  Secret& operator=(const Secret&) = default;
  ~Secret() { OPENSSL_cleanse(this->data(), N); }
};

/// A password in UTF-8, wiped when the object goes or takes another one.
class SecretText {
public:
  SecretText() = default;
  explicit SecretText(const std::string& text) : text_(text) {}
  explicit SecretText(const char* text) : text_(text) {}
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  ~SecretText() { wipe(); }

  const std::string& text() const { return text_; }
  bool empty() const { return text_.empty(); }
  void assign(const std::string& text) {
    wipe();
    text_ = text;
  }

private:
  void wipe() {
    if (!text_.empty()) OPENSSL_cleanse(&text_[0], text_.size());
    text_.clear();
  }

  std::string text_;
};

}  // namespace zip
}  // namespace Kelta
