// SPDX-License-Identifier: Apache-2.0
#include "platform/Random.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <unistd.h>

#include <limits>

namespace Kelta {
namespace platform {

StrongRandom::StrongRandom() {
  unsigned char probe = 0;
  acquired_ = getrandom(&probe, sizeof probe, GRND_NONBLOCK) >= 0 || errno == EAGAIN || errno == EINTR;
}

StrongRandom::~StrongRandom() = default;

bool StrongRandom::fill(unsigned char* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = getrandom(buffer + done, size - done, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

bool stirringWord(std::uint32_t& word) {
  const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (device < 0) return false;
  ssize_t got = 0;
  do {
    got = read(device, &word, sizeof word);
  } while (got < 0 && errno == EINTR);
  close(device);
  return got == static_cast<ssize_t>(sizeof word);
}

std::uint64_t processId() { return static_cast<std::uint64_t>(getpid()); }

bool processRuns(std::uint64_t id) {
  if (id == 0) return true;  // to kill(), 0 is not a process but a group
  if (id > static_cast<std::uint64_t>(std::numeric_limits<pid_t>::max())) return false;
  return kill(static_cast<pid_t>(id), 0) == 0 || errno != ESRCH;
}

}  // namespace platform
}  // namespace Kelta
