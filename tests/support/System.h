// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <memory>
#include <set>
#include <string>
#include <vector>

// What tests need of the operating system beyond what the engine uses itself.
namespace Kelta {
namespace test {

/// Sets an environment variable of this process.
void setVariable(const char* name, const boost::filesystem::path& value);
void clearVariable(const char* name);

/// Makes a symbolic link. False, with nothing made, where the system has none or refuses.
bool makeLink(const boost::filesystem::path& target, const boost::filesystem::path& link);

/// Makes an entry that is neither file nor folder nor link. False where there is none.
bool makePipe(const boost::filesystem::path& path);

/// Names that the system lets a file have and that cannot be synchronised.
std::vector<std::string> unusableNames();

/// A name that can be synchronised and is a strain on those who quote, escape or recode it.
std::string awkwardName();

/// A program that has a file open for itself.
class HeldFile {
public:
  explicit HeldFile(const boost::filesystem::path& path);
  ~HeldFile();
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;
  void write(const std::string& text);

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// The user's recycle bin, from the time it is made on; below `home` where it can be moved.
class RecycleBin {
public:
  explicit RecycleBin(const boost::filesystem::path& home);
  ~RecycleBin();
  RecycleBin(const RecycleBin&) = delete;
  RecycleBin& operator=(const RecycleBin&) = delete;
  /// What was put there.
  std::multiset<std::string> contents() const;
  bool holds(const std::string& content) const { return contents().count(content) > 0; }

private:
  std::set<boost::filesystem::path> files() const;
  std::set<boost::filesystem::path> before_;
};

}  // namespace test
}  // namespace Kelta
