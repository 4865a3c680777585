// SPDX-License-Identifier: Apache-2.0
#include "Terminal.h"

#include <cstdio>

#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

void write(std::FILE* stream, const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fflush(stream);
}

}  // namespace

void say(const std::wstring& line) { write(stdout, platform::utf8(line) + "\n"); }

void complain(const std::wstring& line) { write(stderr, "kelsync: " + platform::utf8(line) + "\n"); }

}  // namespace host
}  // namespace Kelta
