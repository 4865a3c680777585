// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <utility>

namespace Kelta {
namespace platform {

/// A file descriptor that closes itself.
class Descriptor {
public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }
  int release() { return std::exchange(number_, -1); }

private:
  int number_;
};

/// For a std::unique_ptr to an open listing.
struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace platform
}  // namespace Kelta
