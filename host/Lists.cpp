// SPDX-License-Identifier: Apache-2.0
#include "Lists.h"

#include <boost/property_tree/json_parser.hpp>
#include <map>
#include <sstream>

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

}  // namespace

std::wstring Waiting::explained() const {
  static const std::map<std::wstring, std::wstring> texts = {
      {L"changing", L"it is being written to, and is carried over when it rests"},
      {L"in-use", L"a program has it open; its new version is put in place when that is closed"},
      {L"future-time", L"its last-write time lies in the future, so that later changes may go unseen until then"},
      {L"share-unconfirmed", L"its share names another key than before, which has not been confirmed"}};
  const auto text = texts.find(reason);
  return text == texts.end() ? reason : text->second;
}

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
    list.push_back({member(child.second, L"path"), member(child.second, L"reason"), std::chrono::seconds(seconds)});
  }
  return list;
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
