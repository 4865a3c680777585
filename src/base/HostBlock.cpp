// SPDX-License-Identifier: Apache-2.0
#include "base/HostBlock.h"

#include <algorithm>
#include <cstdlib>

namespace Kelta {

namespace {

template <class Char>
Char* blockOf(const std::basic_string<Char>& text) {
  auto* block = static_cast<Char*>(std::calloc(text.size() + 1, sizeof(Char)));
  if (block != nullptr) std::copy(text.begin(), text.end(), block);
  return block;
}

}  // namespace

char* hostBlock(const std::string& text) { return blockOf(text); }

wchar_t* hostBlock(const std::wstring& text) { return blockOf(text); }

}  // namespace Kelta
