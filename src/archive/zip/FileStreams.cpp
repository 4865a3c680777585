// SPDX-License-Identifier: Apache-2.0
#include "archive/zip/FileStreams.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>

#include "platform/Folders.h"
#include "platform/Text.h"

namespace Kelta {
namespace zip {

namespace fs = boost::filesystem;

namespace {

/// Runs one file operation; its failure becomes an ArchiveError of that kind.
template <class Operation>
auto asArchiveError(ArchiveFailure failure, Operation operation) -> decltype(operation()) {
  try {
    return operation();
  } catch (const fs::filesystem_error& error) {
    throw ArchiveError(failure, platform::utf8(error.path1()) + ": " + error.code().message(), error.code());
  }
}

/// Nothing but an ordinary file is opened: a pipe would block, a device has no size.
platform::File openForReading(const fs::path& path) {
  return asArchiveError(ArchiveFailure::cannotRead, [&] {
    if (platform::kindBehindLinks(path) != platform::Kind::file)
      throw ArchiveError(ArchiveFailure::cannotRead, platform::utf8(path) + ": not an ordinary file");
    return platform::File(path, platform::File::Mode::read);
  });
}

}  // namespace

InputFile::InputFile(const fs::path& path) : file_(openForReading(path)) {
  stamp_ = asArchiveError(ArchiveFailure::cannotRead, [&] { return file_.stamp(); });
}

bool InputFile::changed() {
  return asArchiveError(ArchiveFailure::cannotRead, [&] { return !file_.stamp().sameContent(stamp_); });
}

bool InputFile::standsUnchangedAt(const fs::path& path) const { return platform::stampOf(path).sameContent(stamp_); }

std::size_t InputFile::readAt(std::uint64_t position, unsigned char* data, std::size_t size) {
  return asArchiveError(ArchiveFailure::cannotRead, [&] {
    file_.seek(position);
    return file_.read(data, size);
  });
}

void InputFile::readExactly(std::uint64_t position, unsigned char* data, std::size_t size) {
  if (readAt(position, data, size) != size) throw ArchiveError(ArchiveFailure::damaged, "the archive is cut short");
}

RangeSource::RangeSource(InputFile& file, std::uint64_t position, std::uint64_t size)
    : file_(file), position_(position), left_(size) {}

std::size_t RangeSource::read(unsigned char* data, std::size_t size) {
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left_, size));
  if (wanted == 0) return 0;
  file_.readExactly(position_, data, wanted);
  position_ += wanted;
  left_ -= wanted;
  return wanted;
}

namespace {

/// A folder in the way is told before anything is written.
const fs::path& checkedTarget(const fs::path& target) {
  if (platform::kindBehindLinks(target) == platform::Kind::folder)
    throw ArchiveError(ArchiveFailure::cannotWrite, platform::utf8(target) + ": a folder stands in its place");
  return target;
}

}  // namespace

OutputFile::OutputFile(const platform::Spot& target) try : file_(target.folder, target.name) {
} catch (const fs::filesystem_error& error) {
  throw ArchiveError(ArchiveFailure::cannotWrite, platform::utf8(target.path()) + ": " + error.code().message(),
                     error.code());
}

OutputFile::OutputFile(const fs::path& target) try : file_(checkedTarget(target)) {
} catch (const fs::filesystem_error& error) {
  throw ArchiveError(ArchiveFailure::cannotWrite, platform::utf8(target) + ": " + error.code().message(), error.code());
}

void OutputFile::write(const unsigned char* data, std::size_t size) {
  asArchiveError(ArchiveFailure::cannotWrite, [&] { file_.file().write(data, size); });
  position_ += size;
}

void OutputFile::patch(std::uint64_t at, const Bytes& data) {
  asArchiveError(ArchiveFailure::cannotWrite, [&] {
    file_.file().seek(at);
    file_.file().write(data.data(), data.size());
    file_.file().seek(position_);
  });
}

void OutputFile::setLastWriteTime(std::int64_t nanoseconds) {
  if (file_.file().setLastWriteTime(nanoseconds)) return;
  throw ArchiveError(ArchiveFailure::cannotWrite, platform::utf8(file_.temporary()) + ": its time cannot be set");
}

void OutputFile::flushToDisk() {
  asArchiveError(ArchiveFailure::cannotWrite, [&] { file_.file().flushToDisk(); });
}

bool OutputFile::commitBy(const platform::Replacement& replace) {
  return asArchiveError(ArchiveFailure::cannotWrite, [&] { return file_.commitBy(replace); });
}

void OutputFile::commit() {
  asArchiveError(ArchiveFailure::cannotWrite, [&] { file_.commit(); });
}

}  // namespace zip
}  // namespace Kelta
