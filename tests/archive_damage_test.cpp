// SPDX-License-Identifier: Apache-2.0
#include <zlib.h>

#include "archive/zip/ArchiveEngine.h"
#include "archive/zip/EntryName.h"
#include "platform/Files.h"
#include "support/ArchiveSupport.h"
#include "support/System.h"

using namespace archive_test;
using namespace Kelta::archive;
using namespace Kelta::zip;

namespace {

std::string textOf(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

/// A stored, unencrypted entry and its data.
struct Part {
  Entry central;
  Entry local;
  std::string data;
};

Part partOf(const std::string& name, const std::string& data) {
  Part part;
  part.central.name = name;
  part.central.method = kStored;
  part.central.size = part.central.compressedSize = data.size();
  part.central.crc = static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const unsigned char*>(data.data()), static_cast<uInt>(data.size())));
  part.local = part.central;
  part.data = data;
  return part;
}

/// An archive of these parts, whatever their headers say; offsets are filled in.
std::string archiveOf(const std::vector<Part>& parts) {
  std::string archive;
  std::string directory;
  for (Part part : parts) {
    part.central.headerOffset = archive.size();
    directory += textOf(centralRecord(part.central));
    archive += textOf(localHeader(part.local, false)) + part.data;
  }
  const std::size_t offset = archive.size();
  return archive + directory + textOf(endRecords(parts.size(), offset, directory.size()));
}

/// What unpacking these bytes fails with; nothing may be left in the target folder then.
int unpackFailure(const TempFolder& folder, const std::string& archive, const std::string& password = kPassword) {
  fs::remove_all(folder / "out");
  writeFile(folder / "x.zip", archive);
  const int failure = failureOf([&] { unpack(folder / "x.zip", folder / "out", password); });
  EXPECT_TRUE(failure == 0 || treeOf(folder / "out").empty());
  return failure;
}

void expectFailure(ArchiveFailure failure, const std::string& archive, const std::string& what) {
  const TempFolder folder;
  EXPECT_EQ(code(failure), unpackFailure(folder, archive)) << what;
}

/// An archive of our own, and what is in it.
std::string packed(const TempFolder& folder, bool compress, unsigned flags) {
  writeFile(folder / "plain", bytesOf(96, true));
  writeFile(folder / "meta.json", "{\"a\":\"metadata\"}");
  PackRequest made = request(folder / "plain", folder / "a.zip", folder / "meta.json");
  made.compress = compress;
  made.encryptionFlags = static_cast<std::uint16_t>(flags);
  pack(made);
  return readFile(made.target);
}

void replace(std::string& archive, std::size_t at, std::uint64_t value, int bytes) {
  Bytes field;
  append(field, value, bytes);
  archive.replace(at, field.size(), textOf(field));
}

/// Another number somewhere in an archive, and what that must fail with.
struct Change {
  const char* what;
  std::size_t at;
  std::uint64_t value;
  int bytes;
  ArchiveFailure failure;
};

template <std::size_t count>
void expectFailures(const std::string& whole, std::size_t start, const Change (&changes)[count]) {
  for (const Change& change : changes) {
    std::string archive = whole;
    replace(archive, start + change.at, change.value, change.bytes);
    expectFailure(change.failure, archive, change.what);
  }
}

}  // namespace

TEST(ArchiveDamage, TruncationAnywhereIsAnError) {
  const TempFolder folder;
  const std::string whole = packed(folder, true, 0x4101);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_NE(0, unpackFailure(folder, whole.substr(0, length))) << length;
    const std::string before = readFile(folder / "x.zip");
    EXPECT_NE(0, failureOf([&] { updateMetadata(folder / "x.zip", folder / "meta.json"); })) << length;
    EXPECT_EQ(before, readFile(folder / "x.zip"));
  }
}

TEST(ArchiveDamage, AFlippedBitIsAnErrorOrDoesNotMatter) {
  const TempFolder folder;
  for (const bool compress : {true, false}) {
    const std::string whole = packed(folder, compress, 0x4101);
    const Tree right{{"Content", readFile(folder / "plain")}, {"meta.json", readFile(folder / "meta.json")}};
    int harmless = 0;
    for (std::size_t at = 0; at < whole.size(); ++at)
      for (const int mask : {0x01, 0x08, 0x80}) {
        std::string archive = whole;
        archive[at] = static_cast<char>(archive[at] ^ mask);
        writeFile(folder / "x.zip", archive);
        fs::remove_all(folder / "out");
        const int failure = failureOf([&] { unpack(folder / "x.zip", folder / "out", kPassword); });
        const Tree tree = treeOf(folder / "out");
        if (failure == 0) {
          ++harmless;
          EXPECT_EQ(right, tree) << at;
        }
        // The first entry may be complete when the second one is damaged.
        for (const auto& file : tree)
          EXPECT_EQ(right.count(file.first) ? right.at(file.first) : "?", file.second) << at;
      }
    // Version, time and attributes do not matter: at most 8 bytes of a local header and 16 of a central one.
    EXPECT_LE(harmless, 3 * 2 * (8 + 16));
  }
}

TEST(ArchiveDamage, BytesBeforeBetweenOrBehindAreAnError) {
  const TempFolder folder;
  const std::string whole = packed(folder, true, 0x4101);
  expectFailure(ArchiveFailure::notAnArchive, "", "empty");
  expectFailure(ArchiveFailure::notAnArchive, std::string(100, 'x'), "no archive");
  expectFailure(ArchiveFailure::damaged, whole + "x", "a byte behind");
  expectFailure(ArchiveFailure::damaged, "x" + whole, "a byte in front");
  Part first = partOf("a", "first");
  first.data += "hidden";
  expectFailure(ArchiveFailure::damaged, archiveOf({first, partOf("b", "x")}), "bytes between");
  Part deflated = partOf("a", "text");
  deflated.data = std::string("\x01\x04\x00\xFB\xFF", 5) + "text" + "hidden";  // a block that is only stored
  for (Entry* entry : {&deflated.local, &deflated.central}) {
    entry->method = kDeflated;
    entry->compressedSize = deflated.data.size();
  }
  expectFailure(ArchiveFailure::damaged, archiveOf({deflated}), "bytes behind the compressed data");
}

TEST(ArchiveDamage, UnsafeNamesAreRefusedBeforeAnythingIsWritten) {
  std::vector<std::string> names{"", std::string("a\0b", 3)};
  for (const char* name :
       {"/etc/x", "../x", "a/../../x", "a/..", ".",         "C:x",           "C:/x",        "a:stream",
        "..\\x",  "a\\b", "a\nb",      "NUL",  "a/con.txt", "com1.tar.gz",   "LPT\xC2\xB2", "aux .",
        "CONIN$", "a//b", "a.",        "a ",   ".. /x",     "//server/share"})
    names.emplace_back(name);
  for (const std::string& name : names)
    expectFailure(ArchiveFailure::unsafeName, archiveOf({partOf("good", "content"), partOf(name, "x")}), name);
  const bool everyName = Kelta::platform::canStandAsName(L"?");  // these are refused only where they cannot stand
  for (const char* name : {"a?b", "x/a|b", "q\"q", "s*/f", "<f>"})
    if (!everyName) expectFailure(ArchiveFailure::unsafeName, archiveOf({partOf(name, "x")}), name);
  for (const char* name :
       {"a", "a/b/c.txt", "folder/", ".hidden", "a..b", "console", "com", "com10", "lpt.x", "nulls", "\xE6\x97\xA5"})
    EXPECT_NO_THROW(checkEntryName(name)) << name;
}

TEST(ArchiveDamage, NamesThatWouldCollideAreRefused) {
  const std::map<const char*, const char*> pairs{
      {"a", "a"},
      {"Readme", "README"},
      {"\xC3\xA4", "\xC3\x84"},  // ä
      {"\xC5\xBE", "\xC5\xBD"},  // ž
      {"\xD0\xB6", "\xD0\x96"},  // ж
      {"\xCF\x89", "\xCE\xA9"},  // ω
  };
  for (const auto& pair : pairs)
    expectFailure(ArchiveFailure::damaged, archiveOf({partOf(pair.first, "x"), partOf(pair.second, "y")}), pair.first);
  const TempFolder folder;
  EXPECT_EQ(0, unpackFailure(folder, archiveOf({partOf("\xC3\x97", "x"), partOf("\xC3\xB7", "y")})));  // × and ÷
}

TEST(ArchiveDamage, ExtractionFollowsNoLinkOutOfItsFolder) {
  const TempFolder folder;
  fs::create_directories(folder / "out");
  fs::create_directories(folder / "outside");
  if (!Kelta::test::makeLink(folder / "outside", folder / "out/link")) GTEST_SKIP() << "no symbolic links here";
  writeFile(folder / "x.zip", archiveOf({partOf("link/x", "content")}));
  EXPECT_EQ(code(ArchiveFailure::cannotWrite), failureOf([&] { unpack(folder / "x.zip", folder / "out", ""); }));
  EXPECT_EQ(Tree(), treeOf(folder / "outside"));
}

TEST(ArchiveDamage, HeadersThatContradictEachOtherAreRefused) {
  constexpr ArchiveFailure damaged = ArchiveFailure::damaged;
  constexpr ArchiveFailure unsupported = ArchiveFailure::unsupported;
  const struct {
    const char* what;
    ArchiveFailure failure;
    void (*change)(Entry& local, Entry& central);
  } cases[] = {
      {"other name", damaged, [](Entry& local, Entry&) { local.name = "other"; }},
      {"other method", damaged, [](Entry& local, Entry&) { local.method = kDeflated; }},
      {"other flags", damaged, [](Entry& local, Entry&) { local.flags = kUtf8Flag; }},
      {"other CRC", damaged, [](Entry& local, Entry&) { local.crc ^= 1; }},
      {"other size", damaged, [](Entry& local, Entry&) { local.size += 1; }},
      {"no ZIP64 field", damaged, [](Entry& local, Entry&) { local.size = kFull32; }},
      {"wrong CRC", damaged, [](Entry& local, Entry& central) { local.crc = central.crc ^= 1; }},
      {"huge sizes", damaged,
       [](Entry&, Entry& central) { central.size = central.compressedSize = std::uint64_t(1) << 62; }},
      {"sizes that wrap", damaged, [](Entry&, Entry& central) { central.compressedSize = ~std::uint64_t(0); }},
      {"two sizes", damaged, [](Entry& local, Entry& central) { local.size = central.size = 3; }},
      {"a folder with content", damaged, [](Entry& local, Entry& central) { local.name = central.name = "a/"; }},
      {"old encryption", unsupported,
       [](Entry& local, Entry& central) { local.flags = central.flags = kEncryptedFlag; }},
      {"strong encryption without its record", damaged,
       [](Entry& local, Entry& central) { local.flags = central.flags = kEncryptedFlag | kStrongFlag; }},
      {"another method", unsupported, [](Entry& local, Entry& central) { local.method = central.method = 99; }},
      {"a newer version", unsupported, [](Entry&, Entry& central) { central.versionNeeded = 90; }},
      {"no UTF-8", unsupported, [](Entry& local, Entry& central) { local.name = central.name = "\xFF"; }},
      {"no descriptor", damaged, [](Entry& local, Entry& central) { local.flags = central.flags = kDescriptorFlag; }},
  };
  for (const auto& row : cases) {
    Part part = partOf("entry", "some data");
    row.change(part.local, part.central);
    expectFailure(row.failure, archiveOf({part}), row.what);
  }
}

TEST(ArchiveDamage, EndRecordsThatLieAreRefused) {
  const std::string whole = archiveOf({partOf("entry", "some data")});
  const std::size_t end = whole.size() - 22;
  const Change changes[] = {
      {"another disk", 4, 1, 2, ArchiveFailure::unsupported},
      {"two counts", 8, 2, 2, ArchiveFailure::damaged},
      {"too many entries", 8, 0x00020002, 4, ArchiveFailure::damaged},
      {"no entries", 8, 0, 4, ArchiveFailure::damaged},
      {"directory too large", 12, 0x7FFFFFFF, 4, ArchiveFailure::damaged},
      {"directory outside", 16, 0x7FFFFFFF, 4, ArchiveFailure::damaged},
      {"ZIP64 record missing", 16, kFull32, 4, ArchiveFailure::damaged},
      {"comment too long", 20, 5, 2, ArchiveFailure::damaged},
  };
  expectFailures(whole, end, changes);
  Part first = partOf("a", "data");
  std::string overlap = archiveOf({first, partOf("b", "data")});
  const std::size_t second = overlap.rfind(textOf(Bytes{0x50, 0x4B, 0x01, 0x02}));
  replace(overlap, second + 42, 0, 4);  // two entries in one place
  expectFailure(ArchiveFailure::damaged, overlap, "overlap");
}

TEST(ArchiveDamage, DecryptionHeadersThatLieAreRefused) {
  const TempFolder folder;
  const std::size_t start = 30 + 7;  // behind the local header of "Content"
  const std::size_t erd = start + 2 + 16 + 4 + 8;
  const std::size_t validation = erd + 2 + 40 + 4;
  const Change changes[] = {
      {"IV size", start, 12, 2, ArchiveFailure::damaged},
      {"header size beyond the entry", start + 18, 0xFFFFFFFF, 4, ArchiveFailure::damaged},
      {"header size beyond the entry", start + 18, 1000, 4, ArchiveFailure::damaged},
      {"header size 0", start + 18, 0, 4, ArchiveFailure::damaged},
      {"format", start + 22, 4, 2, ArchiveFailure::unsupported},
      {"algorithm", start + 24, 0x660E, 2, ArchiveFailure::unsupported},
      {"key bits", start + 26, 128, 2, ArchiveFailure::unsupported},
      {"certificates", start + 28, 0x0003, 2, ArchiveFailure::unsupported},
      {"other flags than in the directory", start + 28, 0x4001, 2, ArchiveFailure::damaged},
      {"ERD size 0", erd, 0, 2, ArchiveFailure::damaged},
      {"ERD size of no whole block", erd, 41, 2, ArchiveFailure::damaged},
      {"ERD size beyond the header", erd, 0xFFF8, 2, ArchiveFailure::damaged},
      {"ERD size beyond the header", erd, 64, 2, ArchiveFailure::damaged},
      {"recipients", erd + 42, 1, 4, ArchiveFailure::unsupported},
      {"validation size 0", validation, 0, 2, ArchiveFailure::damaged},
      {"validation size of no whole block", validation, 20, 2, ArchiveFailure::damaged},
      {"validation size beyond the entry", validation, 0xFFF0, 2, ArchiveFailure::damaged},
      {"validation data", validation + 2, 0x1234, 2, ArchiveFailure::wrongPassword},
  };
  expectFailures(packed(folder, true, 0x4101), 0, changes);
}

TEST(ArchiveDamage, DeclaredSizesBoundWhatIsWritten) {
  const TempFolder folder;
  writeFile(folder / "plain", std::string(1000000, 'x'));
  PackRequest made = request(folder / "plain", folder / "a.zip");
  pack(made);
  for (const std::uint64_t claimed : {0U, 999999U, 1000001U, 0xFFFFFFFEU}) {
    std::string archive = readFile(made.target);
    replace(archive, 22, claimed, 4);
    const std::size_t central = archive.rfind(textOf(Bytes{0x50, 0x4B, 0x01, 0x02}));
    replace(archive, central + 24, claimed, 4);
    EXPECT_EQ(code(ArchiveFailure::damaged), unpackFailure(folder, archive)) << claimed;
    std::uint64_t written = 0;
    failureOf([&] { unpack(folder / "x.zip", folder / "out", kPassword, [&](std::uint64_t n) { written = n; }); });
    EXPECT_LE(written, claimed);
  }
}
