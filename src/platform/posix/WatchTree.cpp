// SPDX-License-Identifier: Apache-2.0
#include "platform/posix/WatchTree.h"

#include <dirent.h>
#include <errno.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <memory>

#include "platform/posix/Descriptor.h"
namespace Kelta {
namespace platform {
namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO |
                                   IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

std::string joined(const std::string& folder, const char* name) {
  return !folder.empty() && folder.back() == '/' ? folder + name : folder + '/' + name;
}

bool isFolder(const dirent& entry, const std::string& path) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool WatchTree::addRoot(const std::string& folder) {
  root_ = inotify_add_watch(inotify_, folder.c_str(), kChanges);
  incomplete_ = root_ < 0 && (errno == ENOSPC || errno == ENOMEM);
  if (root_ < 0) return false;
  folders_[root_] = folder;
  watches_[folder] = root_;
  return true;
}

// The kernel gives a folder that is watched already its former number, whatever it is called now.
bool WatchTree::watch(const std::string& folder, bool& fresh) {
  const auto known = watches_.find(folder);
  if (known != watches_.end() && known->second == root_) {
    fresh = false;
    return true;
  }
  const int number = inotify_add_watch(inotify_, folder.c_str(), kChanges | IN_DONT_FOLLOW);
  if (number < 0) {
    incomplete_ = incomplete_ || errno == ENOSPC || errno == ENOMEM;
    return false;
  }
  const auto former = folders_.find(number);
  fresh = former == folders_.end();
  if (!fresh && former->second != folder) forget(number);
  folders_[number] = folder;
  watches_[folder] = number;
  return true;
}

void WatchTree::add(const std::string& folder, std::vector<std::string>& found) {
  std::vector<std::string> queue{folder};
  while (!queue.empty()) {
    const std::string current = std::move(queue.back());
    queue.pop_back();
    bool fresh = false;
    if (!watch(current, fresh)) continue;
    const std::unique_ptr<DIR, FolderCloser> listing(opendir(current.c_str()));
    if (!listing) continue;
    while (const dirent* const entry = readdir(listing.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      const std::string path = joined(current, entry->d_name);
      if (fresh) found.push_back(path);
      if (isFolder(*entry, path)) queue.push_back(path);
    }
  }
}

WatchTree::Watches WatchTree::takeBelow(const std::string& folder) {
  Watches taken;
  const auto own = watches_.find(folder);
  if (own != watches_.end()) taken.insert(*own);
  const auto first = watches_.lower_bound(folder + '/');
  const auto behind = watches_.lower_bound(folder + static_cast<char>('/' + 1));
  taken.insert(first, behind);
  watches_.erase(first, behind);
  if (own != watches_.end()) watches_.erase(own);
  return taken;
}

void WatchTree::move(const std::string& from, const std::string& to) {
  for (const auto& moved : takeBelow(from)) {
    const std::string path = to + moved.first.substr(from.size());
    watches_[path] = moved.second;
    folders_[moved.second] = path;
  }
}

void WatchTree::remove(const std::string& folder) {
  for (const auto& removed : takeBelow(folder)) {
    folders_.erase(removed.second);
    inotify_rm_watch(inotify_, removed.second);
  }
}

void WatchTree::forget(int watch) {
  const auto folder = folders_.find(watch);
  if (folder == folders_.end()) return;
  const auto own = watches_.find(folder->second);
  if (own != watches_.end() && own->second == watch) watches_.erase(own);
  folders_.erase(folder);
}

const std::string* WatchTree::folderOf(int watch) const {
  const auto folder = folders_.find(watch);
  return folder == folders_.end() ? nullptr : &folder->second;
}

}  // namespace platform
}  // namespace Kelta
