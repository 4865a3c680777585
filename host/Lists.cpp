// SPDX-License-Identifier: Apache-2.0
#include "Lists.h"

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <map>
#include <sstream>
#include <utility>

#include "Failure.h"

namespace Kelta {
namespace host {
namespace {

using Tree = boost::property_tree::wptree;

/// Empty when there is none.
Tree listOf(const std::wstring& text, const std::wstring& name) {
  if (text.empty()) return Tree();
  std::wistringstream stream(text);
  Tree tree;
  try {
    boost::property_tree::read_json(stream, tree);
  } catch (const boost::property_tree::json_parser_error&) {
    throw Failure{Exit::failed, L"the engine's list of " + name + L" cannot be read"};
  }
  return tree.get_child(name, Tree());
}

std::wstring member(const Tree& tree, const wchar_t* name) { return tree.get<std::wstring>(name, std::wstring()); }

std::wstring quoted(const std::wstring& text) {
  std::wstring result = L"\"";
  for (const wchar_t character : text) {
    if (character == L'"' || character == L'\\') result += L'\\';
    if (character >= 0x20) {
      result += character;
      continue;
    }
    result += L"\\u00";
    result += L"01"[character >> 4];
    result += L"0123456789abcdef"[character & 15];
  }
  return result + L"\"";
}

template <typename Entry>
std::wstring membersOf(const Entry& entry) {
  return L"\"path\":" + quoted(entry.path) + L",\"name\":" + quoted(entry.name) + L",\"reason\":" +
         quoted(entry.reason);
}

}  // namespace

std::wstring Waiting::explained() const {
  static const std::map<std::wstring, std::wstring> texts = {
      {L"changing", L"it is being written to, and is carried over when it rests"},
      {L"in-use", L"a program has it open; its new version is put in place when that is closed"},
      {L"future-time", L"changes that are saved before that time may go unseen"},
      {L"share-unconfirmed", L"its share names another key than before, which has not been confirmed"}};
  const auto text = texts.find(reason);
  return text == texts.end() ? reason : text->second;
}

bool isAboutLoser(const Notification& told) { return told.message.find(L"Conflict: the other version of ") == 0; }

std::vector<Notification> notificationsOf(const std::wstring& text) {
  std::vector<Notification> list;
  for (const auto& child : listOf(text, L"notifications")) {
    list.push_back({member(child.second, L"type"), member(child.second, L"message"), member(child.second, L"more")});
  }
  return list;
}

std::vector<Quarantined> quarantinedOf(const std::wstring& text) {
  std::vector<Quarantined> list;
  for (const auto& child : listOf(text, L"quarantined")) {
    list.push_back({member(child.second, L"record_file"), member(child.second, L"errorid"),
                    member(child.second, L"quarantine_path"), member(child.second, L"message"),
                    member(child.second, L"timestamp")});
  }
  return list;
}

std::vector<Waiting> waitingOf(const std::wstring& text) {
  std::vector<Waiting> list;
  for (const auto& child : listOf(text, L"waiting")) {
    const auto seconds = child.second.get<std::int64_t>(L"seconds", 0);
    list.push_back({member(child.second, L"path"), member(child.second, L"reason"), std::chrono::seconds(seconds),
                    member(child.second, L"name")});
  }
  return list;
}

std::vector<Failed> failedOf(const std::wstring& text) {
  std::vector<Failed> list;
  for (const auto& child : listOf(text, L"failed")) {
    list.push_back({member(child.second, L"path"), member(child.second, L"name"), member(child.second, L"reason")});
  }
  return list;
}

std::wstring textOf(const std::vector<Failed>& entries) {
  std::wstring list;
  for (const Failed& entry : entries) list += (list.empty() ? L"{" : L",{") + membersOf(entry) + L"}";
  return L"{\"failed\":[" + list + L"]}";
}

std::wstring textOf(const std::vector<Waiting>& entries) {
  std::wstring list;
  for (const Waiting& entry : entries) {
    list += (list.empty() ? L"{" : L",{") + membersOf(entry) + L",\"seconds\":" +
            std::to_wstring(entry.untilNext.count()) + L"}";
  }
  return L"{\"waiting\":[" + list + L"]}";
}

// A file that a program has open waits for that, whatever is written to the other side meanwhile.
std::vector<Waiting> onePerFile(const std::vector<Waiting>& entries,
                                const std::function<std::wstring(const std::wstring& path)>& shown) {
  std::map<std::pair<bool, std::wstring>, Waiting> files;
  for (Waiting entry : entries) {
    if (entry.name.empty()) entry.name = shown(entry.path);
    const auto added = files.emplace(std::make_pair(entry.hasFutureTime(), entry.name), entry);
    if (added.second) continue;
    Waiting& same = added.first->second;
    entry.untilNext = same.untilNext = std::max(same.untilNext, entry.untilNext);
    if (entry.reason == L"in-use") same = entry;
  }
  std::vector<Waiting> list;
  list.reserve(files.size());
  for (const auto& file : files) list.push_back(file.second);
  return list;
}

std::size_t leftForLater(const std::vector<Waiting>& entries) {
  return static_cast<std::size_t>(
      std::count_if(entries.begin(), entries.end(), [](const Waiting& entry) { return !entry.hasFutureTime(); }));
}

bool isList(const std::wstring& text, const std::wstring& name) {
  try {
    listOf(text, name);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

}  // namespace host
}  // namespace Kelta
