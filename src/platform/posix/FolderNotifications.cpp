// SPDX-License-Identifier: Apache-2.0
// Notifications through inotify, which watches single folders: a watch stands on every folder below, and follows the
// tree as folders appear, move and go.
#include "platform/FolderNotifications.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <system_error>

#include "platform/Text.h"
#include "platform/posix/Descriptor.h"
#include "platform/posix/WatchTree.h"

namespace Kelta {
namespace platform {
namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;
// A rename within the tree comes as two events, the second of which may still be under way.
constexpr int kMoveMilliseconds = 20;
// Where folders cannot be watched for want of watches, the whole tree counts as changed that often.
constexpr int kIncompleteMilliseconds = 30000;

Descriptor required(int number) {
  if (number < 0) throw std::system_error(errno, std::generic_category(), "folder notifications");
  return Descriptor(number);
}

class Inotify : public FolderNotifications {
public:
  explicit Inotify(const std::wstring& folder) : folder_(pathOf(folder).native()) {}

  bool open() override {
    if (!tree_.addRoot(folder_)) return false;
    std::vector<std::string> present;
    tree_.add(folder_, present);
    return true;
  }

  Event wait(std::vector<std::wstring>& paths) override {
    found_.clear();
    Event event = Event::changes;
    while (event == Event::changes && found_.empty()) event = waitOnce();
    for (const std::string& path : found_) {
      paths.emplace_back();
      wideOf(boost::filesystem::path(path), paths.back());  // a readable form where there is no exact one
    }
    return event;
  }

  bool isIncomplete() const override { return tree_.isIncomplete(); }

  void stop() override { eventfd_write(stop_.get(), 1); }

private:
  using Clock = std::chrono::steady_clock;

  /// What is seen meanwhile does not put it off.
  int millisecondsUntilLost() const {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - toldLost_).count();
    return static_cast<int>(std::max<std::int64_t>(kIncompleteMilliseconds - passed, 0));
  }

  Event waitOnce() {
    pollfd descriptors[] = {{stop_.get(), POLLIN, 0}, {events_.get(), POLLIN, 0}};
    const int untilLost = tree_.isIncomplete() ? millisecondsUntilLost() : -1;
    if (untilLost == 0 && movedFrom_.empty()) {
      toldLost_ = Clock::now();
      return Event::lost;
    }
    const int ready = poll(descriptors, 2, movedFrom_.empty() ? untilLost : kMoveMilliseconds);
    if (ready < 0) return errno == EINTR ? Event::changes : Event::ended;
    if (descriptors[0].revents != 0) return Event::stopped;
    if (ready == 0) {
      finishMove();
      return Event::changes;
    }
    return readEvents();
  }

  Event readEvents() {
    alignas(inotify_event) char buffer[kBufferBytes];
    const ssize_t got = read(events_.get(), buffer, sizeof buffer);
    if (got <= 0) return got < 0 && (errno == EINTR || errno == EAGAIN) ? Event::changes : Event::ended;
    const bool wasIncomplete = tree_.isIncomplete();
    lost_ = false;
    for (const char* at = buffer; at < buffer + got;) {
      inotify_event event{};
      std::memcpy(&event, at, sizeof event);
      if (endsAll(event)) return Event::ended;
      take(event, event.len > 0 ? at + sizeof event : "");
      at += sizeof event + event.len;
    }
    if (lost_) watchAnew();
    return lost_ || (tree_.isIncomplete() && !wasIncomplete) ? Event::lost : Event::changes;
  }

  bool endsAll(const inotify_event& event) const {
    return event.wd == tree_.root() && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0;
  }

  void take(const inotify_event& event, const char* name) {
    if ((event.mask & (IN_Q_OVERFLOW | IN_UNMOUNT)) != 0) lost_ = true;
    const bool arrival = (event.mask & IN_MOVED_TO) != 0 && event.cookie == moveCookie_ && !movedFrom_.empty();
    if (!arrival) finishMove();
    if ((event.mask & IN_IGNORED) != 0) return tree_.forget(event.wd);
    const std::string* const folder = tree_.folderOf(event.wd);
    if (*name == '\0') return;  // of a folder itself; the one above tells the same
    if (folder == nullptr) {
      lost_ = true;  // from a folder that was moved about too fast to be followed
      return;
    }
    const std::string path = folder->back() == '/' ? *folder + name : *folder + '/' + name;
    found_.push_back(path);
    if ((event.mask & IN_ISDIR) != 0) followFolder(event, path, arrival);
  }

  void followFolder(const inotify_event& event, const std::string& path, bool arrival) {
    if ((event.mask & IN_MOVED_FROM) != 0) {
      movedFrom_ = path;
      moveCookie_ = event.cookie;
      return;
    }
    if (arrival) tree_.move(movedFrom_, path);
    movedFrom_.clear();
    if ((event.mask & (IN_MOVED_TO | IN_CREATE)) != 0) tree_.add(path, found_);
  }

  /// A folder that did not arrive anywhere in the tree has left it.
  void finishMove() {
    if (!movedFrom_.empty()) tree_.remove(movedFrom_);
    movedFrom_.clear();
  }

  void watchAnew() {
    finishMove();
    std::vector<std::string> missed;
    tree_.add(folder_, missed);
  }

  std::string folder_;
  Descriptor stop_ = required(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  Descriptor events_ = required(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  WatchTree tree_{events_.get()};
  std::vector<std::string> found_;
  std::string movedFrom_;
  std::uint32_t moveCookie_ = 0;
  bool lost_ = false;
  Clock::time_point toldLost_ = Clock::now();  ///< while folders are not watched
};

}  // namespace

std::unique_ptr<FolderNotifications> folderNotifications(const std::wstring& folder) {
  return std::make_unique<Inotify>(folder);
}

}  // namespace platform
}  // namespace Kelta
