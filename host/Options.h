// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Kelta {
namespace host {

/// One option that a command knows.
struct OptionRule {
  std::wstring name;    ///< with its dashes: "--inside"
  std::wstring letter;  ///< the short form, "-q"; empty when there is none
  bool takesValue;
};

/// A command's arguments, taken apart: "--name value", "--name=value", "-x value", operands; "--" ends the options.
/// A value that begins with "--" is only taken from the form with "=", so that a forgotten value is noticed.
class Options {
public:
  /// Throws Failure (usage) for an unknown option, an option given twice, and a value that is missing or too much.
  Options(const std::vector<std::wstring>& arguments, const std::vector<OptionRule>& rules);

  bool has(const std::wstring& name) const { return values_.count(name) != 0; }
  /// Empty when the option was not given.
  std::wstring value(const std::wstring& name) const;
  /// Throws Failure (usage) when the option was not given.
  std::wstring required(const std::wstring& name) const;
  /// The one operand that the command takes; throws Failure (usage), naming it `what`, when there is none or more.
  std::wstring onlyOperand(const std::wstring& what) const;
  const std::vector<std::wstring>& operands() const { return operands_; }
  /// Throws Failure (usage) when there is any operand.
  void refuseOperands() const;

private:
  void store(const OptionRule& rule, const std::wstring& value);

  std::map<std::wstring, std::wstring> values_;
  std::vector<std::wstring> operands_;
};

}  // namespace host
}  // namespace Kelta
