// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>
#include <map>

#include "Commands.h"
#include "Help.h"
#include "Terminal.h"
#include "platform/Console.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

using Command = Exit (*)(const Arguments&);

const std::map<std::wstring, Command> kCommands = {
    {L"sync", syncCommand},     {L"status", statusCommand}, {L"quarantine", quarantineCommand}, {L"pack", packCommand},
    {L"unpack", unpackCommand}, {L"meta", metaCommand},     {L"set-meta", setMetaCommand},      {L"key", keyCommand}};

Exit print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  return Exit::done;
}

bool isHelp(const std::wstring& argument) { return argument == L"--help" || argument == L"-h"; }

bool asksForHelp(const Arguments& arguments) {
  for (const std::wstring& argument : arguments) {
    if (argument == L"--") return false;
    if (isHelp(argument)) return true;
  }
  return false;
}

Exit help(const Arguments& arguments) {
  if (arguments.empty()) return print(generalHelp());
  const std::string text = helpOf(arguments.front());
  if (text.empty()) throw Failure{Exit::usage, L"unknown command " + printable(arguments.front())};
  return print(text);
}

Exit run(const std::wstring& name, const Arguments& arguments) {
  if (isHelp(name)) return print(generalHelp());
  if (name == L"--version") return print(versionText());
  if (name == L"help") return help(arguments);
  const auto command = kCommands.find(name);
  if (command == kCommands.end()) throw Failure{Exit::usage, L"unknown command " + printable(name)};
  if (asksForHelp(arguments)) return print(helpOf(name));
  return command->second(arguments);
}

Exit runCommandLine(int argc, char** argv) {
  Arguments arguments;
  if (!platform::commandLine(argc, argv, arguments)) throw Failure{Exit::usage, L"an argument is not valid text"};
  if (arguments.empty()) throw Failure{Exit::usage, L"a command is missing"};
  const std::wstring name = arguments.front();
  arguments.erase(arguments.begin());
  return run(name, arguments);
}

Exit guardedRun(int argc, char** argv) {
  try {
    return runCommandLine(argc, argv);
  } catch (const Failure& failure) {
    complain(failure.message);
    if (failure.code == Exit::usage) std::fputs("See kelsync --help.\n", stderr);
    return failure.code;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kelsync: %s\n", error.what());
    return Exit::failed;
  }
}

/// What could not be shown (a full disk, a reader that has gone) is no success.
Exit checkOutput(Exit result) {
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (written || result != Exit::done) return result;
  complain(L"the output could not be written");
  return Exit::failed;
}

}  // namespace
}  // namespace host
}  // namespace Kelta

int main(int argc, char** argv) {
  Kelta::platform::useUtf8Output();
  Kelta::platform::surviveClosedPipes();
  return static_cast<int>(Kelta::host::checkOutput(Kelta::host::guardedRun(argc, argv)));
}
