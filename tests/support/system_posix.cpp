// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>

#include "Content.h"
#include "System.h"

namespace Kelta {
namespace test {

namespace fs = boost::filesystem;

void setVariable(const char* name, const fs::path& value) { ::setenv(name, value.c_str(), 1); }
void clearVariable(const char* name) { ::unsetenv(name); }

bool makeLink(const fs::path& target, const fs::path& link) { return ::symlink(target.c_str(), link.c_str()) == 0; }
bool makePipe(const fs::path& path) { return ::mkfifo(path.c_str(), 0600) == 0; }

std::vector<std::string> unusableNames() { return {"tab\there", "back\\slash", "return\r", "bad\xFF\xFE", "bad\xFE"}; }

std::string awkwardName() { return "quo\"te 's \xC3\xA4 %d.txt"; }

struct HeldFile::Impl {
  int descriptor = -1;
};

HeldFile::HeldFile(const fs::path& path) : impl_(std::make_unique<Impl>()) {
  impl_->descriptor = ::open(path.c_str(), O_RDWR);
  EXPECT_EQ(::flock(impl_->descriptor, LOCK_EX), 0);
}
HeldFile::~HeldFile() { ::close(impl_->descriptor); }
void HeldFile::write(const std::string& text) {
  EXPECT_EQ(::write(impl_->descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

RecycleBin::RecycleBin(const fs::path& home) { setVariable("XDG_DATA_HOME", home / "data"); }
RecycleBin::~RecycleBin() = default;

std::set<fs::path> RecycleBin::files() const {
  const fs::path folder = fs::path(::getenv("XDG_DATA_HOME")) / "Trash/files";
  if (!fs::exists(folder)) return {};
  return std::set<fs::path>(fs::directory_iterator(folder), fs::directory_iterator());
}

std::multiset<std::string> RecycleBin::contents() const {
  std::multiset<std::string> found;
  for (const fs::path& file : files()) found.insert(readFile(file));
  return found;
}

}  // namespace test
}  // namespace Kelta
