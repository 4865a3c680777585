// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <algorithm>

#include "Failure.h"
#include "Terminal.h"

namespace Kelta {
namespace host {
namespace {

[[noreturn]] void refuse(const std::wstring& message) { throw Failure{Exit::usage, message}; }

bool beginsWith(const std::wstring& text, const std::wstring& start) {
  return text.compare(0, start.size(), start) == 0;
}

bool isOption(const std::wstring& argument) { return argument.size() > 1 && argument[0] == L'-'; }

const OptionRule& ruleFor(const std::wstring& name, const std::vector<OptionRule>& rules) {
  const auto found = std::find_if(rules.begin(), rules.end(), [&](const OptionRule& rule) {
    return rule.name == name || (!rule.letter.empty() && rule.letter == name);
  });
  if (found == rules.end()) refuse(L"unknown option " + printable(name));
  return *found;
}

}  // namespace

Options::Options(const std::vector<std::wstring>& arguments, const std::vector<OptionRule>& rules) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::wstring& argument = arguments[i];
    if (argument == L"--") {
      operands_.insert(operands_.end(), arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, arguments.end());
      return;
    }
    if (!isOption(argument)) {
      operands_.push_back(argument);
      continue;
    }
    const std::size_t equals = beginsWith(argument, L"--") ? argument.find(L'=') : std::wstring::npos;
    const OptionRule& rule = ruleFor(argument.substr(0, equals), rules);
    if (equals != std::wstring::npos && !rule.takesValue) refuse(rule.name + L" takes no value");
    if (equals != std::wstring::npos || !rule.takesValue) {
      store(rule, equals == std::wstring::npos ? std::wstring() : argument.substr(equals + 1));
      continue;
    }
    if (i + 1 == arguments.size() || beginsWith(arguments[i + 1], L"--")) refuse(rule.name + L" needs a value");
    store(rule, arguments[++i]);
  }
}

void Options::store(const OptionRule& rule, const std::wstring& value) {
  if (rule.takesValue && value.empty()) refuse(rule.name + L" needs a value");
  if (!values_.emplace(rule.name, value).second) refuse(rule.name + L" is given twice");
}

std::wstring Options::value(const std::wstring& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::wstring() : found->second;
}

std::wstring Options::required(const std::wstring& name) const {
  if (!has(name)) refuse(name + L" is missing");
  return value(name);
}

std::wstring Options::onlyOperand(const std::wstring& what) const {
  if (operands_.empty() || operands_.front().empty()) refuse(what + L" is missing");
  if (operands_.size() > 1) refuse(L"one argument too many: " + printable(operands_[1]));
  return operands_.front();
}

void Options::refuseOperands() const {
  if (!operands_.empty()) refuse(L"one argument too many: " + printable(operands_.front()));
}

}  // namespace host
}  // namespace Kelta
