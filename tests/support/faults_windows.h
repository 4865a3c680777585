// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

// System calls that behave differently for a while. Only for a program that is linked with faults_windows.cpp.
namespace Kelta {
namespace test {

/// While it lives, paths without the prefix end at 259 characters, and those of new folders at 247. Not every system
/// that runs the tests has these limits.
class PathLimits {
public:
  PathLimits();
  ~PathLimits();
};

/// While it lives, one file claims that its content is kept elsewhere.
class Placeholder {
public:
  explicit Placeholder(const boost::filesystem::path& file);
  ~Placeholder();
  /// How often it was opened.
  int opens() const;
};

/// While it lives, there is no CryptoAPI provider.
class NoProvider {
public:
  NoProvider();
  ~NoProvider();
};

}  // namespace test
}  // namespace Kelta
