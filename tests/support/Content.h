// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <boost/filesystem/path.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Kelta {
namespace test {

// The standard library's streams: some builds of Boost's send a path through the code page.
inline std::filesystem::path standard(const boost::filesystem::path& path) { return path.native(); }

inline void writeFile(const boost::filesystem::path& path, const std::string& content) {
  std::ofstream out(standard(path), std::ios::binary);
  EXPECT_TRUE(out.write(content.data(), static_cast<std::streamsize>(content.size())).flush()) << path;
}

inline std::string readFile(const boost::filesystem::path& path) {
  std::ifstream in(standard(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace test
}  // namespace Kelta
