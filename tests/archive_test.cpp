// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>

#include "archive/zip/ArchiveEngine.h"
#include "support/ArchiveSupport.h"

using namespace archive_test;
using namespace Kelta::archive;
using Kelta::zip::ArchiveEngine;
using Kelta::zip::ArchiveFailure;
using Kelta::zip::ArchiveReader;

namespace {

const fs::path kFixtures = fs::path(KELSYNC_FIXTURES) / "archives";

std::string quoted(const fs::path& path) { return "\"" + Kelta::platform::utf8(path) + "\""; }

/// Runs a command with its output in a file of the folder.
bool run(const TempFolder& folder, const std::string& command) {
  return std::system((command + " > " + quoted(folder / "7zz.log") + " 2>&1").c_str()) == 0;
}

#define NEEDS_7ZZ(folder) \
  if (!run(folder, "7zz i")) GTEST_SKIP() << "7zz is not installed: NOT checked against another zip program"

/// Packs, checks that the content cannot be seen, unpacks, compares.
void roundTrip(const TempFolder& folder, const std::string& content, bool compress, unsigned flags) {
  SCOPED_TRACE(std::to_string(content.size()) + " bytes, compress " + std::to_string(compress) + ", flags " +
               std::to_string(flags));
  writeFile(folder / "plain", content);
  PackRequest pack_ = request(folder / "plain", folder / "a.zip");
  pack_.compress = compress;
  pack_.encryptionFlags = static_cast<std::uint16_t>(flags);
  std::uint64_t packed = 0;
  pack(pack_, [&](std::uint64_t bytes) { packed = bytes; });
  EXPECT_EQ(content.size(), packed);
  const std::string sample = content.substr(0, 32);
  EXPECT_TRUE(sample.size() < 32 || readFile(pack_.target).find(sample) == std::string::npos);
  EXPECT_EQ(code(ArchiveFailure::wrongPassword), failureOf([&] { unpack(pack_.target, folder / "wrong", "another"); }));
  EXPECT_EQ(Tree(), treeOf(folder / "wrong"));
  std::uint64_t unpacked = 0;
  unpack(pack_.target, folder / "out", kPassword, [&](std::uint64_t bytes) { unpacked = bytes; });
  EXPECT_EQ(content.size(), unpacked);
  EXPECT_EQ((Tree{{"Content", content}}), treeOf(folder / "out"));
}

}  // namespace

TEST(Archive, RoundTripsEverySizeMethodAndFlag) {
  const TempFolder folder;
  for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 4095U, 65535U, 65536U, 65537U, 131072U, 300001U})
    for (const bool compressible : {true, false})
      for (const bool compress : {true, false}) roundTrip(folder, bytesOf(size, compressible), compress, 0x4101);
  for (const unsigned flags : {0x0001U, 0x0101U, 0x4001U})
    for (const bool compress : {true, false}) roundTrip(folder, bytesOf(70000, true), compress, flags);
}

TEST(Archive, HeadersCarryTheMarksOfTheFormat) {
  const TempFolder folder;
  writeFile(folder / "plain", "text");
  writeFile(folder / "meta.json", "{}");
  for (const bool compress : {true, false}) {
    PackRequest made = request(folder / "plain", folder / "a.zip", folder / "meta.json");
    made.compress = compress;
    pack(made);
    ArchiveReader reader(made.target);
    ASSERT_EQ(2U, reader.entries().size());
    const Kelta::zip::Entry& content = reader.entries()[0];
    EXPECT_EQ(compress ? 8 : 0, content.method);
    EXPECT_EQ(0x0041, content.flags & 0x0041);
    EXPECT_EQ(61, content.versionNeeded);
    EXPECT_TRUE(content.marks == (Kelta::zip::StrongMarks{0x6610, 256, 0x4101}));
    EXPECT_EQ(0U, (content.compressedSize - 2 - 16 - 4 - 8 - 2 - 40 - 4 - 2) % 16);
    EXPECT_EQ(compress ? 8 : 0, reader.entries()[1].method);
    EXPECT_EQ(0, reader.entries()[1].flags & 0x0041);
    made.target = folder / "b.zip";
    pack(made);
    EXPECT_NE(readFile(folder / "a.zip").substr(60, 100), readFile(made.target).substr(60, 100))
        << "the same content, the same archive";
  }
  writeFile(folder / "\xC3\xA4", "text");
  PackRequest named = request(folder / "\xC3\xA4", folder / "c.zip");
  named.keepSourceName = true;
  pack(named);
  EXPECT_EQ(0x0800, ArchiveReader(named.target).entries()[0].flags & 0x0800) << "a name in UTF-8";
}

TEST(Archive, MetadataIsReadWithoutThePasswordAndContentIsNot) {
  const TempFolder folder;
  writeFile(folder / "plain", "secret");
  writeFile(folder / "meta.json", "{\"a\":1}");
  const PackRequest made = request(folder / "plain", folder / "a.zip", folder / "meta.json");
  pack(made);
  EXPECT_EQ("{\"a\":1}", readEntry(made.target, "meta.json", ""));
  EXPECT_EQ("secret", readEntry(made.target, kContentEntry, kPassword));
  EXPECT_EQ(code(ArchiveFailure::wrongPassword), failureOf([&] { readEntry(made.target, kContentEntry, ""); }));
  EXPECT_EQ(code(ArchiveFailure::noEntry), failureOf([&] { readEntry(made.target, "META.json", ""); }));
  writeFile(folder / "large", std::string(16 * 1024 * 1024 + 1, 'x'));
  pack(request(folder / "plain", folder / "b.zip", folder / "large"));
  EXPECT_EQ(code(ArchiveFailure::unsupported), failureOf([&] { readEntry(folder / "b.zip", "large", ""); }));
}

TEST(Archive, UpdateChangesTheMetadataOnly) {
  const TempFolder folder;
  writeFile(folder / "plain", bytesOf(100000, false));
  pack(request(folder / "plain", folder / "a.zip"));
  const auto contentEnd = static_cast<std::size_t>(ArchiveReader(folder / "a.zip").entries()[0].endOffset);
  const std::string content = readFile(folder / "a.zip").substr(0, contentEnd);
  fs::create_directory(folder / "other");
  for (const char* name : {"meta.json", "other/META.json", "meta.json"}) {  // added, replaced, replaced
    writeFile(folder / name, std::string("text of ") + name + bytesOf(5000, false));
    updateMetadata(folder / "a.zip", folder / name);
    EXPECT_EQ(content, readFile(folder / "a.zip").substr(0, contentEnd));
    const std::string entry = Kelta::platform::utf8(fs::path(name).filename());
    EXPECT_EQ(readFile(folder / name), readEntry(folder / "a.zip", entry, ""));
    EXPECT_EQ(2U, ArchiveReader(folder / "a.zip").entries().size());
  }
  unpack(folder / "a.zip", folder / "out", kPassword);
  EXPECT_EQ(readFile(folder / "plain"), readFile(folder / "out/Content"));

  // What stands behind the metadata moves.
  ArchiveEngine engine;
  for (const char* name : {"meta.json", "plain"}) engine.addFile(folder / name, name, Kelta::zip::EntryOptions());
  engine.writeArchive(folder / "b.zip");
  writeFile(folder / "meta.json", "new");
  updateMetadata(folder / "b.zip", folder / "meta.json");
  unpack(folder / "b.zip", folder / "to", "");
  EXPECT_EQ((Tree{{"meta.json", "new"}, {"plain", readFile(folder / "plain")}}), treeOf(folder / "to"));
}

TEST(Archive, FailedUpdateLeavesTheArchiveAsItWas) {
  const TempFolder folder;
  fs::create_directory(folder / "box");
  writeFile(folder / "plain", bytesOf(300000, false));
  writeFile(folder / "meta.json", "old");
  writeFile(folder / "content", "not metadata");
  const fs::path archive = folder / "box/a.zip";
  pack(request(folder / "plain", archive, folder / "meta.json"));
  const Tree before = treeOf(folder / "box");
  EXPECT_EQ(code(ArchiveFailure::badArgument), failureOf([&] { updateMetadata(archive, folder / "content"); }));
  EXPECT_EQ(code(ArchiveFailure::cannotRead), failureOf([&] { updateMetadata(archive, folder / "missing"); }));
  EXPECT_EQ(code(ArchiveFailure::cannotRead), failureOf([&] { updateMetadata(archive, folder / "box"); }));
  EXPECT_EQ(code(ArchiveFailure::badArgument), failureOf([&] { updateMetadata(archive, archive); }));
  EXPECT_EQ(before, treeOf(folder / "box"));
  for (int stopAt = 1; stopAt <= 6; ++stopAt) {
    ArchiveEngine engine;
    engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
    int calls = 0;
    engine.setProgress([&](std::uint64_t) {
      if (++calls == stopAt) throw std::runtime_error("stopped");
    });
    engine.addFile(folder / "meta.json", "meta.json", Kelta::zip::EntryOptions());
    EXPECT_THROW(engine.updateArchive(archive), std::runtime_error);
    EXPECT_EQ(before, treeOf(folder / "box"));
  }
}

TEST(Archive, UpdateDoesNotOverwriteAnArchiveThatChangedMeanwhile) {
  const TempFolder folder;
  writeFile(folder / "plain", bytesOf(300000, false));
  writeFile(folder / "meta.json", "mine");
  pack(request(folder / "plain", folder / "a.zip"));
  ArchiveEngine engine;
  engine.setWriteFlags(ArchiveEngine::kReplaceTarget);
  engine.setProgress([&](std::uint64_t) {
    if (fs::exists(folder / "older.zip")) return;
    fs::rename(folder / "a.zip", folder / "older.zip");
    writeFile(folder / "a.zip", "a newer one from elsewhere");
  });
  engine.addFile(folder / "meta.json", "meta.json", Kelta::zip::EntryOptions());
  EXPECT_NE(0, failureOf([&] { engine.updateArchive(folder / "a.zip"); }));
  EXPECT_EQ("a newer one from elsewhere", readFile(folder / "a.zip"));
}

TEST(Archive, FailedPackLeavesTheTargetAsItWas) {
  const TempFolder folder;
  fs::create_directory(folder / "box");
  writeFile(folder / "box/a.zip", "what was there");
  writeFile(folder / "plain", bytesOf(400000, false));
  const Tree before = treeOf(folder / "box");
  const PackRequest made = request(folder / "plain", folder / "box/a.zip");
  EXPECT_THROW(pack(made, [](std::uint64_t) { throw std::runtime_error("stopped"); }), std::runtime_error);
  const std::function<void(std::uint64_t)> changes[] = {
      [&](std::uint64_t) { fs::ofstream(made.source, std::ios::app) << bytesOf(70000, true); },
      [&](std::uint64_t) { fs::resize_file(made.source, 100000); },
      [&](std::uint64_t) {
        fs::fstream(made.source, std::ios::in | std::ios::out | std::ios::binary) << "other";
        fs::last_write_time(made.source, 1000000000);
      }};
  for (const auto& change : changes) EXPECT_EQ(code(ArchiveFailure::changed), failureOf([&] { pack(made, change); }));
  const auto expect = [&](ArchiveFailure failure, const fs::path& source, const fs::path& target) {
    EXPECT_EQ(code(failure), failureOf([&] { pack(request(source, target)); })) << source;
  };
  expect(ArchiveFailure::cannotRead, folder / "missing", made.target);
  expect(ArchiveFailure::cannotRead, folder / "box", made.target);
  expect(ArchiveFailure::badArgument, made.target, made.target);
  expect(ArchiveFailure::cannotWrite, made.source, folder / "missing/a.zip");
  PackRequest open = made;
  open.password.clear();
  EXPECT_EQ(code(ArchiveFailure::badArgument), failureOf([&] { pack(open); }));
  EXPECT_EQ(before, treeOf(folder / "box"));
}

TEST(Archive, UnpackingReplacesFilesButNeverItsOwnArchive) {
  const TempFolder folder;
  writeFile(folder / "plain", bytesOf(200000, false));
  fs::create_directory(folder / "out");
  writeFile(folder / "out/Content", "older");
  pack(request(folder / "plain", folder / "a.zip"));
  const auto stop = [](std::uint64_t) { throw std::runtime_error("stopped"); };
  EXPECT_THROW(unpack(folder / "a.zip", folder / "out", kPassword, stop), std::runtime_error);
  EXPECT_EQ((Tree{{"Content", "older"}}), treeOf(folder / "out"));
  unpack(folder / "a.zip", folder / "out", kPassword);
  EXPECT_EQ((Tree{{"Content", readFile(folder / "plain")}}), treeOf(folder / "out"));
  fs::rename(folder / "a.zip", folder / "Content");
  const std::string archive = readFile(folder / "Content");
  EXPECT_EQ(code(ArchiveFailure::cannotWrite),
            failureOf([&] { unpack(folder / "Content", folder.path(), kPassword); }));
  EXPECT_EQ(archive, readFile(folder / "Content"));
}

TEST(ArchiveInterop, AnotherProgramReadsOurs) {
  const TempFolder folder;
  NEEDS_7ZZ(folder);
  writeFile(folder / "meta.json", "{\"a\":1}");
  for (const std::size_t size : {0U, 1U, 100U, 300001U})
    for (const bool compress : {true, false})
      for (const unsigned flags : {0x0001U, 0x0101U}) {
        writeFile(folder / "plain", bytesOf(size, true));
        PackRequest made = request(folder / "plain", folder / "a.zip", folder / "meta.json");
        made.password = "simple";
        made.compress = compress;
        made.encryptionFlags = static_cast<std::uint16_t>(flags);
        pack(made);
        const std::string where = " -o" + quoted(folder / "out") + " " + quoted(made.target);
        EXPECT_FALSE(run(folder, "7zz x -y -pwrong" + where));
        EXPECT_TRUE(run(folder, "7zz x -y -psimple" + where)) << readFile(folder / "7zz.log");
        EXPECT_EQ((Tree{{"Content", bytesOf(size, true)}, {"meta.json", "{\"a\":1}"}}), treeOf(folder / "out"));
      }
}

TEST(ArchiveInterop, WeReadAnotherProgramsPlainArchives) {
  const TempFolder folder;
  NEEDS_7ZZ(folder);
  fs::create_directories(folder / "in/sub");
  writeFile(folder / "in/a.txt", bytesOf(100000, true));
  writeFile(folder / "in/sub/\xC3\xA4\xE6\x97\xA5.bin", bytesOf(70000, false));
  writeFile(folder / "in/empty", "");
  const std::string in = "cd " + quoted(folder / "in") + " && ";
  for (const char* level : {"0", "9"}) {
    fs::remove(folder / "a.zip");
    ASSERT_TRUE(run(folder, in + "7zz a -tzip -mx" + level + " ../a.zip ."));
    unpack(folder / "a.zip", folder / "out", "");
    EXPECT_EQ(treeOf(folder / "in"), treeOf(folder / "out"));
    fs::remove_all(folder / "out");
  }
  ASSERT_TRUE(
      run(folder, in + "7zz a -tzip -so dummy . 2> ../errors.log > ../stream.zip && true"));  // sizes follow the data
  unpack(folder / "stream.zip", folder / "out", "");
  EXPECT_EQ(treeOf(folder / "in"), treeOf(folder / "out"));
  ASSERT_TRUE(run(folder, in + "7zz a -tzip -pother -mem=AES256 ../other.zip a.txt"));
  EXPECT_EQ(code(ArchiveFailure::unsupported), failureOf([&] { unpack(folder / "other.zip", folder / "x", "other"); }));
}

TEST(ArchiveLarge, FilesOfMoreThanFourGiBTakeZip64) {
  const TempFolder folder;
  const std::uint64_t size = (std::uint64_t(1) << 32) + 5;
  writeFile(folder / "plain", "begin");
  fs::resize_file(folder / "plain", size);  // a hole, so that it takes no room
  PackRequest made = request(folder / "plain", folder / "a.zip");
  made.encryptionFlags = 0x0101;
  made.password = "simple";
  pack(made);
  writeFile(folder / "meta.json", "{}");
  updateMetadata(made.target, folder / "meta.json");
  ArchiveReader reader(made.target);
  const Kelta::zip::Entry* entry = reader.find(kContentEntry);
  ASSERT_TRUE(entry != nullptr);
  EXPECT_EQ(size, entry->size);
  Kelta::zip::EntryReader content(reader.file(), *entry);
  ASSERT_TRUE(content.unlock("simple"));
  std::vector<unsigned char> buffer(1 << 20);
  std::uint64_t read = 0;
  for (std::size_t got; (got = content.read(buffer.data(), buffer.size())) > 0;) read += got;
  EXPECT_EQ(size, read);
  NEEDS_7ZZ(folder);
  EXPECT_TRUE(run(folder, "7zz t -psimple " + quoted(made.target))) << readFile(folder / "7zz.log");
}

TEST(ArchiveLarge, OffsetsBeyondFourGiBTakeZip64) {
  using namespace Kelta::zip;
  const TempFolder folder;
  Entry hole;
  hole.name = "hole";
  hole.method = kStored;
  hole.size = hole.compressedSize = (std::uint64_t(1) << 32) + 1000;
  Entry tail;
  tail.name = "tail";
  tail.method = kStored;
  tail.size = tail.compressedSize = 4;
  tail.crc = 0x7C37B45D;
  Bytes start = localHeader(hole, true);
  tail.headerOffset = start.size() + hole.size;
  Bytes end = localHeader(tail, false);
  append(end, "tail", 4);
  const std::uint64_t directory = tail.headerOffset + end.size();
  for (const Entry& entry : {hole, tail}) {
    const Bytes record = centralRecord(entry);
    append(end, record.data(), record.size());
  }
  const Bytes last = endRecords(2, directory, tail.headerOffset + end.size() - directory);
  append(end, last.data(), last.size());
  writeFile(folder / "a.zip", std::string(start.begin(), start.end()));
  fs::resize_file(folder / "a.zip", tail.headerOffset);
  fs::ofstream(folder / "a.zip", std::ios::binary | std::ios::app) << std::string(end.begin(), end.end());
  EXPECT_EQ("tail", readEntry(folder / "a.zip", "tail", ""));
  NEEDS_7ZZ(folder);
  EXPECT_TRUE(run(folder, "7zz t " + quoted(folder / "a.zip") + " tail")) << readFile(folder / "7zz.log");
}

TEST(ArchiveFixtures, EarlierArchivesStayReadable) {
  const TempFolder folder;
  const std::string text = "The quick brown fox jumps over the lazy dog.\n";
  for (const char* name : {"strong-4101-deflate.zip", "strong-4101-stored.zip", "strong-0101-deflate.zip",
                           "strong-0001-deflate.zip", "strong-4001-deflate.zip", "other-plain.zip"}) {
    fs::remove_all(folder / "out");
    ASSERT_EQ(0, failureOf([&] { unpack(kFixtures / name, folder / "out", "fixture \xC3\xA9"); })) << name;
    EXPECT_EQ((Tree{{"Content", text}, {"meta.json", "{\"made\":\"once\"}"}}), treeOf(folder / "out")) << name;
  }
}
