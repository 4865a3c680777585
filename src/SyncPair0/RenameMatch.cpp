// SPDX-License-Identifier: Apache-2.0
#include "SyncPair0/RenameMatch.h"

#include <algorithm>
#include <deque>
#include <map>
#include <tuple>

#include "base/GenericPath.h"

namespace Kelta {
namespace {

struct Likeness {
  bool name;
  bool time;
};

// From the closest to the one that the hash alone gives.
constexpr Likeness kLikenesses[] = {{true, true}, {true, false}, {false, true}, {false, false}};

std::wstring markOf(const RenameCandidate& candidate, const Likeness& likeness) {
  std::wstring mark = (candidate.isFolder ? L"/" : L"") + candidate.hash + L'\n';
  if (likeness.name) mark += nameOf(candidate.key);
  mark += L'\n';
  if (likeness.time) mark += std::to_wstring(candidate.time);
  return mark;
}

bool before(const RenameCandidate& a, const RenameCandidate& b) {
  const auto rank = [](const RenameCandidate& each) {
    const auto depth = each.isFolder ? std::count(each.key.begin(), each.key.end(), L'/') : 0;
    return std::make_tuple(!each.isFolder, depth, std::cref(each.key));
  };
  return rank(a) < rank(b);
}

}  // namespace

std::vector<RenameMatch> matchRenames(std::vector<RenameCandidate> added, std::vector<RenameCandidate> deleted) {
  std::sort(added.begin(), added.end(), before);
  std::sort(deleted.begin(), deleted.end(), before);
  std::vector<const RenameCandidate*> found(added.size(), nullptr);
  std::vector<bool> used(deleted.size(), false);
  for (const Likeness& likeness : kLikenesses) {
    std::map<std::wstring, std::deque<std::size_t>> free;
    for (std::size_t i = 0; i < deleted.size(); ++i) {
      if (!used[i]) free[markOf(deleted[i], likeness)].push_back(i);
    }
    for (std::size_t i = 0; i < added.size(); ++i) {
      if (found[i]) continue;
      const auto like = free.find(markOf(added[i], likeness));
      if (like == free.end() || like->second.empty()) continue;
      found[i] = &deleted[like->second.front()];
      used[like->second.front()] = true;
      like->second.pop_front();
    }
  }
  std::vector<RenameMatch> matches;
  for (std::size_t i = 0; i < added.size(); ++i) {
    if (found[i]) matches.push_back({found[i]->key, added[i].key, added[i].isFolder});
  }
  return matches;
}

}  // namespace Kelta
