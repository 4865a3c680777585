// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <thread>

#include "Commands.h"
#include "PairSetup.h"
#include "PairWatch.h"
#include "PairsFile.h"
#include "StatusBoard.h"
#include "Stop.h"
#include "Terminal.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "platform/Utf8.h"

namespace Kelta {
namespace host {
namespace {

using Setups = std::vector<std::unique_ptr<PairSetup>>;

void addSetup(Setups& setups, const Options& options) {
  auto setup = std::make_unique<PairSetup>(options);
  for (const auto& other : setups) {
    if (platform::samePath(other->work().state(), setup->work().state())) {
      throw Failure{Exit::usage, L"two pairs have the same work folder: " + printable(setup->work().state())};
    }
    const PairFolders& folders = other->folders();
    if (platform::samePath(folders.inside, setup->folders().inside) &&
        platform::samePath(folders.outside, setup->folders().outside)) {
      throw Failure{Exit::usage, L"a pair is named twice: " + printable(folders.inside)};
    }
  }
  setups.push_back(std::move(setup));
}

Setups setupsOf(const Options& options) {
  Setups setups;
  if (!options.has(L"--pairs")) {
    addSetup(setups, options);
    return setups;
  }
  for (const OptionRule& rule : pairRules()) {
    if (options.has(rule.name)) throw Failure{Exit::usage, rule.name + L" goes into the lines of the --pairs file"};
  }
  options.refuseOperands();
  for (const auto& arguments : readPairs(options.value(L"--pairs"))) addSetup(setups, Options(arguments, pairRules()));
  return setups;
}

/// The folder by which a pair is known: its Inside, or its Outside when other pairs have the same Inside.
std::wstring folderOf(const Setups& setups, const PairFolders& pair) {
  const auto sameInside = [&](const std::unique_ptr<PairSetup>& other) {
    return platform::samePath(other->folders().inside, pair.inside);
  };
  return std::count_if(setups.begin(), setups.end(), sameInside) > 1 ? pair.outside : pair.inside;
}

/// The last `count` names of a path.
std::wstring endOf(const std::wstring& path, std::size_t count) {
  std::size_t start = path.size();
  while (count-- > 0 && start != std::wstring::npos && start > 0) start = path.rfind(L'/', start - 1);
  return start == std::wstring::npos ? path : path.substr(start + 1);
}

/// As short as tells them apart.
std::vector<std::wstring> namesOf(const Setups& setups) {
  std::vector<std::wstring> folders;
  for (const auto& setup : setups) folders.push_back(folderOf(setups, setup->folders()));
  std::vector<std::wstring> names;
  for (const std::wstring& folder : folders) {
    std::size_t count = 1;
    const auto looksAlike = [&](const std::wstring& other) {
      return other != folder && endOf(other, count) == endOf(folder, count);
    };
    while (std::any_of(folders.begin(), folders.end(), looksAlike)) ++count;
    names.push_back(endOf(folder, count));
  }
  return names;
}

/// Serves one pair to the end; what the command returns for it.
Exit serve(PairWatch& watch, StatusBoard& board, std::size_t number) {
  try {
    watch.run();
    return Exit::done;
  } catch (const Failure& failure) {
    board.complainAbout(number, failure.message);
    board.setState(number, StatusBoard::State::ended);
    return failure.code;
  } catch (const std::exception& error) {
    board.complainAbout(number, printable(platform::readableFromUtf8(error.what())));
    board.setState(number, StatusBoard::State::ended);
    return Exit::failed;
  }
}

}  // namespace

Exit watchCommand(const Arguments& arguments) {
  const Options options(arguments, rulesWith({{L"--pairs", L"", true}}));
  const Setups setups = setupsOf(options);
  for (const auto& setup : setups) setup->open();
  for (const auto& setup : setups) setup->prepare();
  Stop::listen();
  StatusBoard board(namesOf(setups), options.has(L"--quiet"));
  std::vector<Exit> results(setups.size(), Exit::done);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < setups.size(); ++i) {
    board.tell(i, L"watching " + printable(setups[i]->folders().inside) + L", key: " + setups[i]->keySource());
    threads.emplace_back([&, i] {
      PairWatch watch(*setups[i], board, i, setups[0]->work().log());
      results[i] = serve(watch, board, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  board.close();
  for (const Exit result : results) {
    if (result != Exit::done) return result;
  }
  return Exit::done;
}

}  // namespace host
}  // namespace Kelta
