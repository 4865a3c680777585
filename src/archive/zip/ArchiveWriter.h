// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "archive/zip/EntryOptions.h"
#include "archive/zip/Records.h"

namespace Kelta {
namespace zip {

/// Called after every buffer, with its size. May throw to stop the operation.
using BufferDone = std::function<void(std::size_t)>;

/// Writes entries one after the other, then the directory. The output must outlive it; nothing is committed here.
class ArchiveWriter {
public:
  explicit ArchiveWriter(OutputFile& out) : out_(out) {}

  /// Packs a whole file; `password` is used when the options encrypt. A source that changes meanwhile
  /// throws "changed".
  void add(const std::string& name, InputFile& source, const EntryOptions& options, const std::string& password,
           const BufferDone& done);
  /// Copies an entry of another archive, headers and data, byte for byte. Entries are copied in the order of their
  /// offsets and before any is added, so that no offset grows.
  void copy(InputFile& archive, const Entry& entry, const BufferDone& done);
  /// Writes the directory and the end record.
  void finish();

private:
  void pump(InputFile& source, Entry& entry, ByteSink& first, const BufferDone& done);
  void append(const Bytes& centralRecord);

  OutputFile& out_;
  Bytes directory_;
  std::uint64_t entries_ = 0;
};

}  // namespace zip
}  // namespace Kelta
