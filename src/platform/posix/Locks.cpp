// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "platform/posix/Descriptor.h"
#include "platform/posix/Stat.h"

namespace Kelta {
namespace platform {

namespace {

bool isBusy(int error) { return error == EBUSY || error == ETXTBSY || error == EAGAIN || error == EWOULDBLOCK; }

/// Opens an ordinary file to ask about it, and nothing else; `busy` when somebody keeps it from being opened.
Descriptor openToAsk(int folder, const boost::filesystem::path& path, bool& busy) {
  struct stat status {};
  if (fstatat(folder, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode)) return Descriptor();
  Descriptor opened(openat(folder, path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  busy = !opened && isBusy(errno);
  if (opened && (fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode))) return Descriptor();
  return opened;
}

bool hasRecordLock(int descriptor) {
  struct flock lock {};
  lock.l_type = F_RDLCK;  // in conflict with write locks only
  lock.l_whence = SEEK_SET;
  return fcntl(descriptor, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool hasWholeLock(int descriptor) {
  if (flock(descriptor, LOCK_SH | LOCK_NB) != 0) return isBusy(errno);
  flock(descriptor, LOCK_UN);
  return false;
}

// The leases of a network file system are its server's: refused as well when nobody has the file open.
bool leasesTell(int descriptor) {
  constexpr std::uint32_t kNfs = 0x6969;
  constexpr std::uint32_t kSmb[] = {0x517B, 0xFF534D42, 0xFE534D42};
  struct statfs volume {};
  if (fstatfs(descriptor, &volume) != 0) return false;
  const auto type = static_cast<std::uint32_t>(volume.f_type);
  return type != kNfs && std::find(std::begin(kSmb), std::end(kSmb), type) == std::end(kSmb);
}

struct LeaseProbe {
  int descriptor = -1;
  bool written = false;
};

// A read lease is granted only while nobody has the file open for writing, and is given back at once.
void* probeLease(void* argument) {
  auto& probe = *static_cast<LeaseProbe*>(argument);
  const struct f_owner_ex owner { F_OWNER_TID, gettid() };
  if (fcntl(probe.descriptor, F_SETOWN_EX, &owner) != 0) return nullptr;
  if (fcntl(probe.descriptor, F_SETLEASE, F_RDLCK) != 0) {
    probe.written = errno == EAGAIN;
    return nullptr;
  }
  probe.written = fcntl(probe.descriptor, F_GETLEASE) != F_RDLCK;  // somebody asks for it back
  fcntl(probe.descriptor, F_SETLEASE, F_UNLCK);
  return nullptr;
}

}  // namespace

bool isLocked(const boost::filesystem::path& path) {
  bool busy = false;
  const Descriptor opened = openToAsk(AT_FDCWD, path, busy);
  return busy || (opened && (hasRecordLock(opened.get()) || hasWholeLock(opened.get())));
}

// Whoever opens the file while the lease lasts makes the system send a signal, to a thread of our own that takes none
// and ends: the host, whose handlers and pending signals are none of our business, never sees it.
bool isWrittenTo(int folder, const boost::filesystem::path& name) {
  bool busy = false;
  const Descriptor opened = openToAsk(folder, name, busy);
  if (!opened) return busy;
  if (!leasesTell(opened.get())) return false;
  LeaseProbe probe{opened.get()};
  sigset_t all;
  sigset_t former;
  pthread_t thread{};
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  const bool started = pthread_create(&thread, nullptr, &probeLease, &probe) == 0;
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  if (started) pthread_join(thread, nullptr);
  return probe.written;
}

bool isOpenForWriting(const boost::filesystem::path& path) { return isWrittenTo(AT_FDCWD, path); }

}  // namespace platform
}  // namespace Kelta
