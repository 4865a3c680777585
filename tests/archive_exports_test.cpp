// SPDX-License-Identifier: Apache-2.0
#include <kelsyncpair/kelsyncpair.h>

#include <cstdlib>
#include <deque>

#include "archive/ConsolePwdListener.h"
#include "archive/zip/ArchiveEngine.h"
#include "support/ArchiveSupport.h"

using namespace archive_test;
using namespace Kelta::archive;
using Kelta::zip::ArchiveFailure;
using Kelta::zip::PasswordAnswer;
using Kelta::zip::PasswordRequest;

namespace {

/// Types the keys it is given and keeps what was shown.
struct Script {
  std::deque<int> keys;
  std::string shown;
  bool present = true;
};

class ScriptedTerminal : public PromptTerminal {
public:
  explicit ScriptedTerminal(Script& script) : script_(script) {}
  bool available() override { return script_.present; }
  int readKey() override {
    if (script_.keys.empty()) return -1;
    const int key = script_.keys.front();
    script_.keys.pop_front();
    return key;
  }
  void print(const std::string& text) override { script_.shown += text; }

private:
  Script& script_;
};

TerminalOpener terminalOf(Script& script) {
  return [&script] { return std::make_unique<ScriptedTerminal>(script); };
}

std::deque<int> keysOf(const std::string& text) { return std::deque<int>(text.begin(), text.end()); }

}  // namespace

TEST(ConsolePwdListener, EditsTheLine) {
  const struct {
    std::deque<int> keys;
    PasswordAnswer answer;
    std::string password, shown;
  } cases[] = {
      {keysOf("abc\r"), PasswordAnswer::given, "abc", "***\n"},
      {keysOf("ab\bc\n"), PasswordAnswer::given, "ac", "**\b \b*\n"},
      {keysOf("\b\ba\r"), PasswordAnswer::given, "a", "*\n"},
      {{0xE9, 0x1F511, '\r'}, PasswordAnswer::given, "\xC3\xA9\xF0\x9F\x94\x91", "**\n"},
      {keysOf("abc\x1B"), PasswordAnswer::cancelled, "", "***\n"},
      {keysOf("abc"), PasswordAnswer::cancelled, "", "***\n"},
      {keysOf("\r"), PasswordAnswer::none, "", "\n"},
      {keysOf(std::string(300, 'x') + "\r"), PasswordAnswer::given, std::string(261, 'x'),
       std::string(261, '*') + "\n"},
  };
  for (const auto& row : cases) {
    Script script;
    script.keys = row.keys;
    ConsolePwdListener listener("", terminalOf(script));
    Kelta::zip::SecretText password;
    EXPECT_EQ(row.answer, listener.password({"file.txt", PasswordRequest::kMayPrompt}, password));
    EXPECT_EQ("Need password for file.txt\nPassword:" + row.shown, script.shown);
    EXPECT_EQ(row.password, password.text());
  }
}

TEST(ConsolePwdListener, PromptsOnlyWhereItMay) {
  Script script;
  script.keys = keysOf("typed\r");
  Kelta::zip::SecretText password;
  ConsolePwdListener stored("stored", terminalOf(script));
  EXPECT_EQ(PasswordAnswer::given, stored.password({"x", PasswordRequest::kMayPrompt}, password));
  EXPECT_EQ("stored", password.text());
  ConsolePwdListener none("", terminalOf(script));
  EXPECT_EQ(PasswordAnswer::none, none.password({"x", 0}, password));
  script.present = false;
  EXPECT_EQ(PasswordAnswer::none, none.password({"x", PasswordRequest::kMayPrompt}, password));
  EXPECT_EQ("", script.shown);
}

TEST(ConsolePwdListener, AsksOnceForAllEntriesAndAgainAfterAWrongPassword) {
  const TempFolder folder;
  writeFile(folder / "plain", "text");
  Kelta::zip::ArchiveEngine engine;
  ConsolePwdListener stored("right");
  engine.setPasswordListener(&stored);
  Kelta::zip::EntryOptions encrypted;
  encrypted.setEncryption(0x6610, 256, 0x4101);
  for (const char* name : {"one", "two"}) engine.addFile(folder / "plain", name, encrypted);
  engine.writeArchive(folder / "a.zip");
  const auto unpacked = [&](const char* typed, std::string& shown) {
    Script script;
    script.keys = keysOf(typed);
    ConsolePwdListener asking("", terminalOf(script));
    const int failure = failureOf([&] { unpack(folder / "a.zip", folder / "out", asking); });
    shown = script.shown;
    return failure;
  };
  std::string shown;
  EXPECT_EQ(code(ArchiveFailure::wrongPassword), unpacked("a\rb\rc\rright\r", shown));
  EXPECT_EQ(code(ArchiveFailure::cancelled), unpacked("\x1B", shown));
  EXPECT_EQ(Tree(), treeOf(folder / "out"));
  EXPECT_EQ(0, unpacked("wrong\rwronger\rright\r", shown));
  EXPECT_EQ("Need password for one\nPassword:*****\nRetry[1]:*******\nRetry[2]:*****\n", shown);
  EXPECT_EQ((Tree{{"one", "text"}, {"two", "text"}}), treeOf(folder / "out"));
}

TEST(ArchiveExports, PackReadUpdateAndUnpackInBothForms) {
  const TempFolder folder;
  writeFile(folder / "plain.txt", "text");
  writeFile(folder / "meta.json", "{}");
  const auto wide = [&](const char* name) { return Kelta::platform::wideOf(folder / name); };
  const auto narrow = [&](const char* name) { return Kelta::platform::utf8(folder / name); };
  ASSERT_EQ(0, zipenc(narrow("plain.txt").c_str(), narrow("a.zip").c_str(), "p\xC3\xA9"));
  ASSERT_EQ(0, zipdec_w(wide("a.zip").c_str(), wide("out1").c_str(), L"p\u00E9"));
  EXPECT_EQ((Tree{{"plain.txt", "text"}}), treeOf(folder / "out1"));
  ASSERT_EQ(0, zipenc_meta_w(wide("plain.txt").c_str(), wide("b.zip").c_str(), L"p", nullptr, 0));
  ASSERT_EQ(0, zip_update_meta_w(wide("b.zip").c_str(), wide("meta.json").c_str()));
  char* text = nullptr;
  testing::internal::CaptureStdout();
  ASSERT_EQ(0, get_zip_meta(narrow("b.zip").c_str(), "meta.json", nullptr, &text));
  EXPECT_EQ("type: 1\n", testing::internal::GetCapturedStdout());
  EXPECT_STREQ("{}", text);
  std::free(text);
  ASSERT_EQ(0, zipdec_meta_w(wide("b.zip").c_str(), wide("aside").c_str(), L"p", L"box"));
  EXPECT_EQ((Tree{{"Content", "text"}, {"meta.json", "{}"}}), treeOf(folder / "box"));
  ASSERT_EQ(0, zipdec_meta(narrow("b.zip").c_str(), narrow("out2").c_str(), "p"));
  EXPECT_EQ(treeOf(folder / "box"), treeOf(folder / "out2"));
}

TEST(ArchiveExports, ResultsTellWhatWentWrong) {
  const TempFolder folder;
  writeFile(folder / "plain.txt", "text");
  const std::wstring plain = Kelta::platform::wideOf(folder / "plain.txt");
  const std::wstring archive = Kelta::platform::wideOf(folder / "a.zip");
  const std::wstring out = Kelta::platform::wideOf(folder / "out");
  ASSERT_EQ(0, zipenc_w(plain.c_str(), archive.c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_BAD_ARGUMENT, zipenc_w(nullptr, archive.c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_BAD_ARGUMENT, zipenc_w(plain.c_str(), L"", L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_BAD_ARGUMENT, zipenc_w(plain.c_str(), archive.c_str(), L""));
  std::wstring ignored;  // most code pages of Windows know every byte
  if (!Kelta::platform::wideFromNarrow("a\xFF", ignored)) {
    EXPECT_EQ(KELSYNC_ARCHIVE_BAD_ARGUMENT, zipdec("a\xFF", "b", "p"));
  }
  EXPECT_EQ(KELSYNC_ARCHIVE_CANNOT_READ, zip_update_meta_w(archive.c_str(), (out + L"/none").c_str()));
  EXPECT_EQ(KELSYNC_ARCHIVE_CANNOT_WRITE, zipdec_w(archive.c_str(), plain.c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_CANNOT_WRITE,
            zipenc_w(plain.c_str(), Kelta::platform::wideOf(folder.path()).c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_NOT_AN_ARCHIVE, zipdec_w(plain.c_str(), out.c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_WRONG_PASSWORD, zipdec_w(archive.c_str(), out.c_str(), L"q"));
  EXPECT_EQ(KELSYNC_ARCHIVE_WRONG_PASSWORD, zipdec_w(archive.c_str(), out.c_str(), L""));
  EXPECT_EQ(KELSYNC_ARCHIVE_UNSAFE_NAME, zipenc_w((out + L"/aux.txt").c_str(), archive.c_str(), L"p"));
  EXPECT_EQ(KELSYNC_ARCHIVE_UNSAFE_NAME, zipdec_meta_w(archive.c_str(), out.c_str(), L"p", L"../up"));
  char mark = 'x';
  char* text = &mark;
  EXPECT_EQ(0, get_zip_meta_w(archive.c_str(), nullptr, nullptr, &text));
  EXPECT_EQ(&mark, text);
  EXPECT_EQ(KELSYNC_ARCHIVE_NO_ENTRY, get_zip_meta_w(archive.c_str(), L"none", nullptr, &text));
  EXPECT_EQ(nullptr, text);
  EXPECT_EQ(0, zipdec_meta_w(archive.c_str(), out.c_str(), L"p", nullptr));
  EXPECT_EQ(1U, treeOf(folder.path()).count("a.zip"));
  EXPECT_EQ(2U, treeOf(folder.path()).size());
}
