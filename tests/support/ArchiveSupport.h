// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <map>
#include <string>

#include "Content.h"
#include "TempFolder.h"
#include "archive/Archive.h"
#include "archive/zip/ArchiveError.h"
#include "platform/Text.h"

namespace archive_test {

namespace fs = boost::filesystem;

using Kelta::test::readFile;
using Kelta::test::TempFolder;
using Kelta::test::writeFile;

/// Every file below a folder, with its content.
inline std::map<std::string, std::string> treeOf(const fs::path& folder) {
  std::map<std::string, std::string> tree;
  if (!fs::exists(folder)) return tree;
  for (fs::recursive_directory_iterator it(folder), end; it != end; ++it)
    if (!fs::is_directory(it->symlink_status()))
      tree[Kelta::platform::utf8(it->path().lexically_relative(folder).generic_path())] = readFile(it->path());
  return tree;
}

using Tree = std::map<std::string, std::string>;

/// Bytes that repeat (compressible) or do not, the same on every run.
inline std::string bytesOf(std::size_t size, bool compressible) {
  std::string bytes(size, '\0');
  std::uint32_t state = 12345;
  for (std::size_t i = 0; i < size; ++i) {
    state = state * 1664525 + 1013904223;
    bytes[i] = static_cast<char>(compressible ? i % 251 / 16 : state >> 24);
  }
  return bytes;
}

/// What the operation threw; 0 when it threw nothing.
template <class Operation>
int failureOf(Operation operation) {
  try {
    operation();
  } catch (const Kelta::zip::ArchiveError& error) {
    return error.code();
  }
  return 0;
}

constexpr int code(Kelta::zip::ArchiveFailure failure) { return static_cast<int>(failure); }

inline Kelta::archive::PackRequest request(const fs::path& source, const fs::path& target,
                                           const fs::path& metadata = fs::path()) {
  Kelta::archive::PackRequest made;
  made.source = source;
  made.target = target;
  made.metadata = metadata;
  made.password = "pass word \xC3\xA9";
  return made;
}

const char* const kPassword = "pass word \xC3\xA9";

}  // namespace archive_test
