// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <functional>
#include <string>
#include <thread>

#include "platform/AtomicFile.h"
#include "platform/Console.h"
#include "platform/Files.h"
#include "platform/Random.h"
#include "platform/Text.h"
#include "support/Content.h"
#include "support/System.h"
#include "support/TempFolder.h"

namespace {

namespace fs = boost::filesystem;
using namespace Kelta::platform;
using Kelta::test::readFile;
using Kelta::test::RecycleBin;
using Kelta::test::TempFolder;

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::size_t countIn(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(PosixFiles, LocksOfOthersAreSeen) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "content");
  const fs::path path = temp / "file";
  const int holder = open(path.c_str(), O_RDWR);
  for (const int type : {F_WRLCK, F_RDLCK, F_UNLCK}) {
    struct flock lock {};
    lock.l_type = static_cast<short>(type);
    lock.l_start = 3;
    lock.l_len = 1;
    ASSERT_EQ(fcntl(holder, F_OFD_SETLK, &lock), 0) << "as another process's: it belongs to the open file";
    EXPECT_EQ(isLocked(path), type == F_WRLCK);
  }
  ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(isLocked(path));
  ASSERT_EQ(flock(holder, LOCK_SH | LOCK_NB), 0);
  EXPECT_FALSE(isLocked(path));
  close(holder);
  // A pipe nobody writes to would hold up whoever opens it to read.
  ASSERT_EQ(mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(isLocked(temp / "pipe") || isOpenForWriting(temp / "pipe"));
  EXPECT_THROW(File(temp / "pipe", File::Mode::read), fs::filesystem_error);
}

TEST(PosixFiles, WritersOfAnyKindAreSeenUntilTheyAreGone) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "content");
  const fs::path path = temp / "file";
  for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR | O_APPEND}) {
    const int holder = open(path.c_str(), flags);
    EXPECT_EQ(isOpenForWriting(path), flags != O_RDONLY) << flags;
    close(holder);
    EXPECT_FALSE(isOpenForWriting(path));
  }
  const int mapped = open(path.c_str(), O_RDWR);
  void* const map = mmap(nullptr, 1, PROT_WRITE, MAP_SHARED, mapped, 0);
  close(mapped);
  EXPECT_TRUE(isOpenForWriting(path)) << "mapped";
  munmap(map, 1);
  EXPECT_FALSE(isOpenForWriting(path));
}

std::atomic<int> signalsSeen{0};

// A host may use any signal itself: none comes of a look at a file, and none that waits for the host is taken.
TEST(PosixFiles, ALookForWritersTakesAndSendsNoSignals) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "content");
  const fs::path path = temp / "file";
  constexpr std::array<int, 2> kSignals{SIGURG, SIGIO};
  sigset_t set;
  sigset_t former;
  sigemptyset(&set);
  for (const int number : kSignals) {
    sigaddset(&set, number);
    signal(number, [](int) { ++signalsSeen; });
  }
  std::atomic<bool> done{false};
  std::thread writer([&] {
    while (!done) close(open(path.c_str(), O_WRONLY));
  });
  for (int look = 0; look < 3000; ++look) isOpenForWriting(path);
  done = true;
  writer.join();
  EXPECT_EQ(signalsSeen, 0);
  pthread_sigmask(SIG_BLOCK, &set, &former);
  for (const int number : kSignals) pthread_kill(pthread_self(), number);
  EXPECT_FALSE(isOpenForWriting(path));
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  EXPECT_EQ(signalsSeen, 2) << "those that waited";
  for (const int number : kSignals) signal(number, SIG_DFL);
}

TEST(PosixFiles, EntriesAreToldApartWithoutFollowingLinks) {
  const TempFolder temp;
  writeWholeFile(temp / "file", "12345");
  fs::create_symlink(temp / "file", temp / "link");
  fs::create_symlink(temp / "loop", temp / "loop");
  EXPECT_EQ(stampOf(temp / "link").kind, Kind::symlink);
  EXPECT_EQ(stampOf(temp / "loop/below").kind, Kind::unknown);
  EXPECT_EQ(stampOf(temp / std::string(300, 'n')).kind, Kind::unknown);
  EXPECT_EQ(stampOf("/dev/null").kind, Kind::other);
  const FileStamp before = stampOf(temp / "file");
  ASSERT_TRUE(setLastWriteTime(temp / "link", 1000000007));
  EXPECT_TRUE(stampOf(temp / "file").sameContent(before));
  EXPECT_EQ(stampOf(temp / "link").nanoseconds, 1000000007);
  EXPECT_FALSE(samePath(L"/a", L"/A"));
  EXPECT_FALSE(liesBelow(L"/A/b", L"/a"));
}

TEST(PosixFiles, RightsFollowTheFileThatIsReplaced) {
  const TempFolder temp;
  const mode_t mask = umask(027);
  writeWholeFile(temp / "new", "x");
  writeWholeFile(temp / "secret", "x", true);
  chmod((temp / "new").c_str(), 0604);
  writeWholeFile(temp / "other", "x");
  umask(mask);
  EXPECT_EQ(modeOf(temp / "other"), 0640u);
  EXPECT_EQ(modeOf(temp / "secret"), 0600u);
  AtomicFile output(temp / "new");
  EXPECT_EQ(modeOf(output.temporary()), 0600u);
  output.commit();
  EXPECT_EQ(modeOf(temp / "new"), 0604u);
  fs::create_directory(temp / "folder");
  chmod((temp / "folder").c_str(), 0755);
  EXPECT_TRUE(restrictToOwner(temp / "folder"));
  EXPECT_EQ(modeOf(temp / "folder"), 0700u);
  EXPECT_TRUE(restrictToOwner(temp / "other"));
  EXPECT_EQ(modeOf(temp / "other"), 0600u);
  EXPECT_FALSE(restrictToOwner(temp / "none"));
  // Another name for the file, planted in the fresh one's place, does not open it to others.
  fs::create_symlink(temp / "secret", temp / "planted");
  giveNormalRights(temp / "planted", temp / "new");
  fs::create_hard_link(temp / "secret", temp / "second name");
  giveNormalRights(temp / "second name", temp / "new");
  chmod((temp / "new").c_str(), 0644);
  fs::create_symlink(temp / "new", temp / "to new");
  EXPECT_FALSE(restrictToOwner(temp / "to new"));
  EXPECT_EQ(modeOf(temp / "secret"), 0600u);
  EXPECT_EQ(modeOf(temp / "new"), 0644u);
  // A link at the target's place is replaced, and what it points to left alone.
  fs::create_symlink(temp / "secret", temp / "link");
  writeWholeFile(temp / "link", "y");
  EXPECT_EQ(stampOf(temp / "link").kind, Kind::file);
  EXPECT_EQ(readFile(temp / "secret"), "x");
}

// Whoever may write to the folder puts something in the place of the temporary file.
TEST(PosixFiles, AnAtomicFileIsNotMistakenForAnother) {
  const TempFolder temp;
  const fs::path secret = temp / "secret";
  writeWholeFile(secret, "secret", true);
  const std::function<void(const fs::path&)> plants[] = {
      [&](const fs::path& place) { fs::create_symlink(secret, place); },
      [&](const fs::path& place) { fs::create_hard_link(secret, place); },
      [](const fs::path& place) { writeWholeFile(place, "foreign"); }};
  for (const auto& plant : plants) {
    writeWholeFile(temp / "target", "old");
    fs::path place;
    {
      AtomicFile output(temp / "target");
      place = output.temporary();
      fs::rename(place, temp / "stolen");
      plant(place);
      EXPECT_THROW(output.commit(), fs::filesystem_error);
      EXPECT_EQ(readFile(temp / "target"), "old");
    }
    EXPECT_EQ(readFile(secret), "secret");
    EXPECT_EQ(modeOf(secret), 0600u);
    EXPECT_EQ(stampOf(place).kind, Kind::missing);
    fs::remove(temp / "stolen");
  }
}

// A folder that others may write to: it is moved away, and a link to another one put in its place.
TEST(PosixFiles, AFolderThatIsHeldIsNotMistakenForAnother) {
  const TempFolder temp;
  for (const char* name : {"root/in/deep", "elsewhere/deep"}) fs::create_directories(temp / name);
  for (const char* name : {"root/in/deep/f", "root/in/deep/g", "elsewhere/deep/f"}) writeWholeFile(temp / name, name);
  const OpenFolder root(temp / "root");
  const OpenFolder deep = root.folder("in").folder("deep");
  AtomicFile output(deep, "g");
  const EntryId file = deep.look("f").id;
  fs::rename(temp / "root/in", temp / "away");
  fs::create_symlink(temp / "elsewhere", temp / "root/in");
  EXPECT_EQ(readFile(deep.path() / "f"), "elsewhere/deep/f") << "by its path";
  EXPECT_THROW(root.folder("in"), fs::filesystem_error);
  output.commit();
  EXPECT_TRUE(deep.removeFile("f", file));
  deep.open("new", File::Mode::createNew);
  EXPECT_TRUE(deep.move("new", deep.look("new").id, deep.makeFolder("below"), "new"));
  EXPECT_EQ(countIn(temp / "elsewhere/deep"), 1u);
  EXPECT_EQ(readFile(temp / "elsewhere/deep/f"), "elsewhere/deep/f");
  EXPECT_EQ(readFile(temp / "away/deep/g"), "");
  EXPECT_TRUE(fs::exists(temp / "away/deep/below/new"));
  EXPECT_FALSE(fs::exists(temp / "away/deep/f"));
}

TEST(PosixFiles, AWriteThatFailsHalfwayLeavesTheOldContent) {
  const TempFolder temp;
  writeWholeFile(temp / "target", "old");
  struct rlimit former {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  const struct rlimit tight { 1000, former.rlim_max };
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  EXPECT_THROW(writeWholeFile(temp / "target", std::string(100000, 'n')), fs::filesystem_error);
  setrlimit(RLIMIT_FSIZE, &former);
  signal(SIGXFSZ, handler);
  EXPECT_EQ(readFile(temp / "target"), "old");
  EXPECT_EQ(countIn(temp.path()), 1u);
}

TEST(PosixRecycle, TrashKeepsEveryFileAndWhereItCameFrom) {
  const TempFolder temp;
  const RecycleBin bin(temp.path());
  const fs::path trash = temp / "data/Trash";
  fs::create_directory(temp / "in");
  fs::create_symlink("in", temp / "way");
  const std::string name = "r\xC3\xA9sum\xC3\xA9 100%.txt";
  for (const char* content : {"first", "second"}) {
    writeWholeFile(temp / "in" / name, content);
    ASSERT_TRUE(recycle(temp / "way" / name));
    ASSERT_EQ(stampOf(temp / "in" / name).kind, Kind::missing);
  }
  EXPECT_EQ(readFile(trash / "files" / name), "first");
  EXPECT_EQ(readFile(trash / "files" / (name + ".2")), "second");
  const std::string info = readFile(trash / "info" / (name + ".2.trashinfo"));
  const std::string start =
      "[Trash Info]\nPath=" + fs::canonical(temp / "in").native() + "/r%C3%A9sum%C3%A9%20100%25.txt\nDeletionDate=";
  EXPECT_EQ(info.substr(0, start.size()), start);
  EXPECT_EQ(info.size(), start.size() + 20) << info;
  EXPECT_EQ(modeOf(trash), 0700u);
  // A file in the trash without an info file is nobody's to overwrite.
  writeWholeFile(trash / "files/orphan", "kept");
  writeWholeFile(temp / "orphan", "thrown away");
  ASSERT_TRUE(recycle(temp / "orphan"));
  EXPECT_EQ(readFile(trash / "files/orphan"), "kept");
  EXPECT_EQ(readFile(trash / "files/orphan.2"), "thrown away");
  EXPECT_EQ(stampOf(trash / "info/orphan.trashinfo").kind, Kind::missing);
  std::string longName = "x";
  while (longName.size() < 253) longName += "\xC3\xA9";
  writeWholeFile(temp / longName, "long");
  ASSERT_TRUE(recycle(temp / longName));
  EXPECT_EQ(readFile(trash / "files" / longName.substr(0, 229)), "long");
  EXPECT_EQ(countIn(trash / "files"), countIn(trash / "info") + 1);
}

TEST(PosixRecycle, WithoutATrashAFileIsRemovedAndALinkIsNotFollowed) {
  const TempFolder temp;
  const RecycleBin bin(temp.path());
  for (const char* name : {"data", "file", "pointed at"}) writeWholeFile(temp / name, "x");
  EXPECT_TRUE(recycle(temp / "file"));
  EXPECT_EQ(stampOf(temp / "file").kind, Kind::missing);
  fs::remove(temp / "data");
  fs::create_symlink(temp / "pointed at", temp / "link");
  EXPECT_TRUE(recycle(temp / "link"));
  EXPECT_EQ(stampOf(temp / "link").kind, Kind::missing);
  EXPECT_EQ(readFile(temp / "pointed at"), "x");
  EXPECT_EQ(stampOf(temp / "data/Trash/files/link").kind, Kind::symlink);
}

TEST(PosixRecycle, TellsABinFromAnyOtherFolder) {
  const TempFolder temp;
  const RecycleBin bin(temp.path());
  for (const char* name : {"data/Trash", "other/Trash"}) fs::create_directories(temp / name);
  for (const char* name : {"data/Trash", "x/.Trash", "x/.Trash-1000"}) EXPECT_TRUE(isRecycleBin(temp / name)) << name;
  for (const char* name : {"other/Trash", "none/Trash", ".Trash-", ".Trash-old"})
    EXPECT_FALSE(isRecycleBin(temp / name)) << name;
}

TEST(PosixText, NamesThatAreNoUtf8AreReadableButNotExact) {
  const fs::path odd("a/\xFFz\xC3\xA9");
  std::wstring wide;
  EXPECT_FALSE(wideOf(odd, wide));
  EXPECT_EQ(wide, L"a/\uFFFDz\u00E9");
  EXPECT_EQ(utf8(odd), "a/\xEF\xBF\xBDz\xC3\xA9");
  std::string arguments[] = {"program", "r\xC3\xA9", "\xFF"};
  char* argv[] = {&arguments[0][0], &arguments[1][0], &arguments[2][0]};
  std::vector<std::wstring> decoded;
  EXPECT_TRUE(commandLine(2, argv, decoded));
  EXPECT_EQ(decoded, std::vector<std::wstring>{L"r\u00E9"});
  EXPECT_FALSE(commandLine(3, argv, decoded));
  EXPECT_FALSE(environment("KELSYNC_TEST_NOT_SET", wide));
}

std::array<int, 2> words{};
std::thread::id mainThread;

void tell(char word) {
  if (write(words[1], &word, 1) != 1) _exit(2);
}

char awaitWord() {
  char word = 0;
  return read(words[0], &word, 1) == 1 ? word : '?';
}

TEST(PosixConsole, TheFirstSignalIsHandledOnAThreadAndTheSecondEndsTheProcess) {
  ASSERT_EQ(pipe(words.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    mainThread = std::this_thread::get_id();
    onTerminate([] { tell(std::this_thread::get_id() == mainThread ? 'm' : 't'); });
    tell('r');
    for (;;) pause();
  }
  ASSERT_EQ(awaitWord(), 'r');
  kill(child, SIGINT);
  EXPECT_EQ(awaitWord(), 't');
  const std::string name = temporaryName();
  const std::string childs = name.substr(0, 19) + std::to_string(child) + name.substr(name.size() - 9);
  EXPECT_FALSE(isAbandoned(childs));
  kill(child, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
  EXPECT_TRUE(isAbandoned(childs));
  EXPECT_TRUE(processRuns(processId()) && processRuns(1));
  forgetTemporaryName(name);
  for (const int descriptor : words) close(descriptor);
}

TEST(PosixConsole, ASecretIsReadWithoutEchoAndTheModeComesBack) {
  int terminal = -1;
  const pid_t id = forkpty(&terminal, nullptr, nullptr, nullptr);
  ASSERT_GE(id, 0);
  if (id == 0) {
    std::array<struct termios, 2> modes{};
    tcgetattr(STDIN_FILENO, &modes[0]);
    {
      SecretConsole console;
      console.print(console.available() ? "?" : "!");
      std::string read;
      for (int key = 0; key != -1;) read += std::to_string(key = console.readKey()) + " ";
      console.print(read);
    }
    tcgetattr(STDIN_FILENO, &modes[1]);
    _exit(modes[0].c_lflag == modes[1].c_lflag ? 0 : 1);
  }
  std::string shown;
  char byte = 0;
  const std::string typed = "a\xC3\xA9\xF0\x9F\x98\x80\xFF\xE2\x82\r\x04";
  while (shown.find("-1 ") == std::string::npos && read(terminal, &byte, 1) == 1) {
    shown += byte;
    if (shown == "?" && write(terminal, typed.data(), typed.size()) <= 0) break;
  }
  EXPECT_EQ(shown, "?97 233 128512 65533 65533 10 -1 ");
  int status = -1;
  waitpid(id, &status, 0);
  EXPECT_EQ(status, 0);
  close(terminal);
}

}  // namespace
