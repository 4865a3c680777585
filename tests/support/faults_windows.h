// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>

// System calls that behave differently for a while. Only for a program that is linked with faults_windows.cpp.
namespace Kelta {
namespace test {

/// While it lives, two rules of Windows hold that not every system keeps that runs its programs: a path without the
/// prefix ends at 259 characters, that of a new folder at 247; and nothing replaces or removes what is read-only.
class StrictSystem {
public:
  StrictSystem();
  ~StrictSystem();
};

/// While it lives, one file claims that its content is kept elsewhere.
class Placeholder {
public:
  explicit Placeholder(const boost::filesystem::path& file);
  ~Placeholder();
  /// How often it was opened.
  int opens() const;
};

/// While it lives, one folder claims to be a reparse point of that kind.
class ReparsePoint {
public:
  ReparsePoint(const boost::filesystem::path& folder, unsigned long tag);
  ~ReparsePoint();
};

/// Nothing can be renamed to the path, as if a program held it.
class ClosedPlace {
public:
  explicit ClosedPlace(const boost::filesystem::path& path);
  ~ClosedPlace();
  ClosedPlace(const ClosedPlace&) = delete;
  ClosedPlace& operator=(const ClosedPlace&) = delete;
};

}  // namespace test
}  // namespace Kelta
