// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>
#include <map>

#include "Commands.h"
#include "Help.h"
#include "Terminal.h"
#include "platform/Console.h"
#include "platform/Libraries.h"
#include "platform/Text.h"

namespace Kelta {
namespace host {
namespace {

struct Command {
  Exit (*run)(const Arguments&);
  /// It does nothing but show: it ends, without a word, when nobody reads on ("kelsync ls | head").
  bool shows = false;
};

const std::map<std::wstring, Command> kCommands = {
    {L"sync", {syncCommand}},           {L"watch", {watchCommand}},
    {L"status", {statusCommand, true}}, {L"quarantine", {quarantineCommand}},
    {L"names", {namesCommand}},         {L"ls", {lsCommand, true}},
    {L"check", {checkCommand, true}},   {L"key", {keyCommand}},
    {L"pack", {packCommand}},           {L"unpack", {unpackCommand}},
    {L"meta", {metaCommand, true}},     {L"set-meta", {setMetaCommand}}};

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

/// "key rotate" has a help of its own.
Exit helpOnCommand(const std::wstring& name, const Arguments& arguments) {
  const std::string text = arguments.empty() ? std::string() : helpOf(name + L" " + arguments.front());
  return print(text.empty() ? helpOf(name) : text);
}

Exit help(const Arguments& arguments) {
  if (arguments.empty()) return print(generalHelp());
  const std::wstring& name = arguments.front();
  if (kCommands.count(name) == 0) throw Failure{Exit::usage, L"unknown command " + printable(name)};
  return helpOnCommand(name, Arguments(arguments.begin() + 1, arguments.end()));
}

Exit run(const std::wstring& name, const Arguments& arguments) {
  if (isHelp(name)) return print(generalHelp());
  if (name == L"--version") return print(versionText());
  if (name == L"help") return help(arguments);
  const auto command = kCommands.find(name);
  if (command == kCommands.end()) throw Failure{Exit::usage, L"unknown command " + printable(name)};
  if (asksForHelp(arguments)) return helpOnCommand(name, arguments);
  if (!command->second.shows) platform::surviveClosedPipes();
  return command->second.run(arguments);
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
  Kelta::platform::searchLibrariesSafely();
  Kelta::platform::useUtf8Output();
  return static_cast<int>(Kelta::host::checkOutput(Kelta::host::guardedRun(argc, argv)));
}
