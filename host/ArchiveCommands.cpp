// SPDX-License-Identifier: Apache-2.0
#include <kelsyncpair/kelsyncpair.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "ArchiveFiles.h"
#include "Commands.h"
#include "Options.h"
#include "PairFolders.h"
#include "Prompt.h"
#include "Terminal.h"
#include "platform/Console.h"
#include "platform/Text.h"
#include "platform/Utf8.h"

namespace Kelta {
namespace host {
namespace {

const wchar_t* const kMetadataEntry = L"__KELASSET_.json";

/// The same for a file that becomes an entry beside the content.
std::wstring metadataFile(const std::wstring& text) {
  const std::wstring path = inputFile(text);
  if (platform::pathOf(path).filename() == "Content") {
    throw Failure{Exit::usage, printable(path) + L": the name Content is kept for the encrypted file itself"};
  }
  return path;
}

/// The absolute path of an archive that is to be made.
std::wstring newArchive(const std::wstring& text) {
  const std::wstring path = pathArgument(text);
  if (exists(path)) throw Failure{Exit::failed, printable(path) + L": exists already; nothing was packed"};
  const std::wstring folder = genericOf(platform::pathOf(path).parent_path());
  if (!isFolder(folder)) throw Failure{Exit::failed, printable(folder) + L": is no folder to write to"};
  return path;
}

class Block {
public:
  ~Block() { freeme(text_); }
  Block() = default;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  char** out() { return &text_; }
  const char* text() const { return text_ == nullptr ? "" : text_; }

private:
  char* text_ = nullptr;
};

/// Reads an entry that may need no password: one is only asked for when it does.
int readEntry(const std::wstring& archive, const std::wstring& entry, Block& block) {
  Secret password;
  passwordFromEnvironment(password);
  const int result = get_zip_meta_w(archive.c_str(), entry.c_str(), password.c_str(), block.out());
  if (result != KELSYNC_ARCHIVE_WRONG_PASSWORD || !password.text().empty()) return result;
  password = archivePassword(false);
  return get_zip_meta_w(archive.c_str(), entry.c_str(), password.c_str(), block.out());
}

/// Text goes out as it is, except that a terminal is not handed its control characters.
void printText(const char* text) {
  if (!platform::outputIsTerminal()) {
    std::fwrite(text, 1, std::strlen(text), stdout);
    std::fflush(stdout);
    return;
  }
  const std::wstring wide = platform::readableFromUtf8(text);
  std::size_t start = 0;
  for (std::size_t end = wide.find(L'\n'); end != std::wstring::npos; end = wide.find(L'\n', start)) {
    say(printable(wide.substr(start, end - start)));
    start = end + 1;
  }
  if (start < wide.size()) say(printable(wide.substr(start)));
}

}  // namespace

Exit packCommand(const Arguments& arguments) {
  const Options options(
      arguments,
      {{L"--output", L"-o", true}, {L"--meta", L"", true}, {L"--compress", L"", false}, {L"--store", L"", false}});
  const std::wstring operand = options.onlyOperand(L"the file to pack");
  const std::wstring output = options.required(L"--output");
  if (options.has(L"--compress") && options.has(L"--store")) {
    throw Failure{Exit::usage, L"--compress and --store exclude each other"};
  }
  const std::wstring file = inputFile(operand);
  const std::wstring archive = newArchive(output);
  const std::wstring meta = options.has(L"--meta") ? metadataFile(options.value(L"--meta")) : std::wstring();
  const Secret password = archivePassword(true);
  const bool asContent = options.has(L"--meta") || options.has(L"--store");
  if (!asContent) {
    requireSuccess(zipenc_w(file.c_str(), archive.c_str(), password.c_str()), file, archive);
    return Exit::done;
  }
  requireSuccess(zipenc_meta_w(file.c_str(), archive.c_str(), password.c_str(), meta.empty() ? nullptr : meta.c_str(),
                               options.has(L"--store") ? 0 : 1),
                 file, archive);
  return Exit::done;
}

Exit unpackCommand(const Arguments& arguments) {
  const Options options(arguments, {{L"--output", L"-o", true}});
  const std::wstring operand = options.onlyOperand(L"the archive to unpack");
  const std::wstring folder = pathArgument(options.required(L"--output"));
  const std::wstring archive = inputFile(operand);
  if (exists(folder) && !isFolder(folder)) throw Failure{Exit::failed, printable(folder) + L": is no folder"};
  const Secret password = archivePassword(false);
  requireSuccess(zipdec_w(archive.c_str(), folder.c_str(), password.c_str()), archive, folder);
  return Exit::done;
}

Exit metaCommand(const Arguments& arguments) {
  const Options options(arguments, {{L"--entry", L"", true}});
  const std::wstring archive = inputFile(options.onlyOperand(L"the archive"));
  Block block;
  requireSuccess(readEntry(archive, options.has(L"--entry") ? options.value(L"--entry") : kMetadataEntry, block),
                 archive);
  printText(block.text());
  return Exit::done;
}

Exit setMetaCommand(const Arguments& arguments) {
  const Options options(arguments, {{L"--meta", L"", true}});
  const std::wstring operand = options.onlyOperand(L"the archive");
  const std::wstring meta = options.required(L"--meta");
  const std::wstring archive = inputFile(operand);
  requireSuccess(zip_update_meta_w(archive.c_str(), metadataFile(meta).c_str()), archive);
  return Exit::done;
}

}  // namespace host
}  // namespace Kelta
