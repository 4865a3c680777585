// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace Kelta {
namespace host {

/// Overwrites and empties a text, in a way that the compiler does not leave out.
template <class Char>
void wipe(std::basic_string<Char>& text) {
  text.resize(text.capacity());
  volatile Char* const characters = &text[0];
  for (std::size_t i = 0; i < text.size(); ++i) characters[i] = 0;
  text.clear();
}

/// A text that is wiped when it goes. It has room for the longest key from the start, so that no copy
/// is left behind by growing.
template <class Char>
class BasicSecret {
public:
  static constexpr std::size_t kLongest = 4096;

  BasicSecret() { text_.reserve(kLongest + 1); }
  explicit BasicSecret(const std::basic_string<Char>& text) : BasicSecret() { text_.assign(text); }
  ~BasicSecret() { wipe(text_); }
  BasicSecret(BasicSecret&& other) noexcept { text_.swap(other.text_); }
  BasicSecret& operator=(BasicSecret&& other) noexcept {
    text_.swap(other.text_);
    return *this;
  }

  std::basic_string<Char>& text() { return text_; }
  const std::basic_string<Char>& text() const { return text_; }
  const Char* c_str() const { return text_.c_str(); }

private:
  std::basic_string<Char> text_;
};

using Secret = BasicSecret<wchar_t>;
using NarrowSecret = BasicSecret<char>;

}  // namespace host
}  // namespace Kelta
