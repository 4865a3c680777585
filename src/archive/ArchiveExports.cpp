// SPDX-License-Identifier: Apache-2.0
#include <kelsyncpair/kelsyncpair.h>
#include <openssl/crypto.h>

#include <cstdio>
#include <type_traits>

#include "archive/Archive.h"
#include "archive/ConsolePwdListener.h"
#include "archive/zip/ArchiveEngine.h"
#include "archive/zip/EntryName.h"
#include "base/GenericPath.h"
#include "base/HostBlock.h"
#include "platform/Text.h"

namespace fs = boost::filesystem;
using Kelta::archive::ConsolePwdListener;
using Kelta::archive::PackRequest;
using Kelta::zip::ArchiveEngine;
using Kelta::zip::ArchiveError;
using Kelta::zip::ArchiveFailure;
using Kelta::zip::SecretText;

namespace {

constexpr bool same(ArchiveFailure failure, kelsync_archive_result result) {
  return static_cast<int>(failure) == static_cast<int>(result);
}
static_assert(same(ArchiveFailure::badArgument, KELSYNC_ARCHIVE_BAD_ARGUMENT), "result codes");
static_assert(same(ArchiveFailure::cannotRead, KELSYNC_ARCHIVE_CANNOT_READ), "result codes");
static_assert(same(ArchiveFailure::cannotWrite, KELSYNC_ARCHIVE_CANNOT_WRITE), "result codes");
static_assert(same(ArchiveFailure::notAnArchive, KELSYNC_ARCHIVE_NOT_AN_ARCHIVE), "result codes");
static_assert(same(ArchiveFailure::damaged, KELSYNC_ARCHIVE_DAMAGED), "result codes");
static_assert(same(ArchiveFailure::wrongPassword, KELSYNC_ARCHIVE_WRONG_PASSWORD), "result codes");
static_assert(same(ArchiveFailure::unsupported, KELSYNC_ARCHIVE_UNSUPPORTED), "result codes");
static_assert(same(ArchiveFailure::noEntry, KELSYNC_ARCHIVE_NO_ENTRY), "result codes");
static_assert(same(ArchiveFailure::unsafeName, KELSYNC_ARCHIVE_UNSAFE_NAME), "result codes");
static_assert(same(ArchiveFailure::cancelled, KELSYNC_ARCHIVE_CANCELLED), "result codes");
static_assert(same(ArchiveFailure::internal, KELSYNC_ARCHIVE_INTERNAL), "result codes");
static_assert(same(ArchiveFailure::changed, KELSYNC_ARCHIVE_CHANGED), "result codes");

/// Runs one export; whatever is thrown becomes a result.
template <class Operation>
int resultOf(Operation operation) noexcept {
  try {
    operation();
    return KELSYNC_ARCHIVE_OK;
  } catch (const ArchiveError& error) {
    return error.code();
  } catch (...) {
    return KELSYNC_ARCHIVE_INTERNAL;
  }
}

[[noreturn]] void badArgument() { throw ArchiveError(ArchiveFailure::badArgument, "a bad argument"); }

/// A required text, wide or narrow; paths may have either separator.
std::wstring textOf(const wchar_t* text) {
  if (text == nullptr || *text == 0) badArgument();
  return text;
}

std::wstring textOf(const char* text) {
  std::wstring wide;
  if (text == nullptr || *text == 0 || !Kelta::platform::wideFromNarrow(text, wide)) badArgument();
  return wide;
}

template <class Char>
fs::path pathOf(const Char* text) {
  return Kelta::platform::pathOf(Kelta::genericForm(textOf(text)));
}

/// Where an operation gets its password: from the host, or from the console when the host gives null.
class HostPassword {
public:
  explicit HostPassword(const char* password) : password_(password == nullptr ? "" : password), ask_(!password) {}
  explicit HostPassword(const wchar_t* password) : ask_(password == nullptr) {
    if (ask_) return;
    std::wstring wide(password);
    std::string narrow = Kelta::platform::utf8(wide);
    password_.assign(narrow);
    if (narrow.empty()) return;
    OPENSSL_cleanse(&wide[0], wide.size() * sizeof(wchar_t));
    OPENSSL_cleanse(&narrow[0], narrow.size());
  }

  void requireNotEmpty() const {
    if (!ask_ && password_.empty()) badArgument();
  }
  /// Without a password and without asking, the listener has none to give.
  ConsolePwdListener listener() const {
    return ask_ ? ConsolePwdListener(std::string())
                : ConsolePwdListener(password_.text(), [] { return std::make_unique<NoTerminal>(); });
  }

private:
  class NoTerminal : public Kelta::archive::PromptTerminal {
  public:
    bool available() override { return false; }
    int readKey() override { return -1; }
    void print(const std::string&) override {}
  };

  SecretText password_;
  bool ask_;
};

/// Packs as "Content", or else under the file's own name.
template <class Char>
int packFile(const Char* source, const Char* target, const Char* password, const Char* metadata, bool content,
             bool compress) noexcept {
  return resultOf([&] {
    PackRequest request;
    request.source = pathOf(source);
    request.target = pathOf(target);
    if (metadata != nullptr) request.metadata = pathOf(metadata);
    request.keepSourceName = !content;
    request.compress = compress;
    const HostPassword given(password);
    given.requireNotEmpty();
    ConsolePwdListener listener = given.listener();
    Kelta::archive::pack(request, listener);
  });
}

template <class Char>
void unpackInto(const Char* archive, const fs::path& folder, const Char* password) {
  ConsolePwdListener listener = HostPassword(password).listener();
  Kelta::archive::unpack(pathOf(archive), folder, listener);
}

template <class Char>
int unpackFile(const Char* archive, const Char* folder, const Char* password) noexcept {
  return resultOf([&] { unpackInto(archive, pathOf(folder), password); });
}

template <class Char>
int readText(const Char* archive, const Char* entryName, const Char* password, char** out, bool printType) noexcept {
  return resultOf([&] {
    if (entryName == nullptr) return;
    if (out == nullptr) badArgument();
    *out = nullptr;
    const fs::path path = pathOf(archive);
    const std::string entry = Kelta::platform::utf8(textOf(entryName));
    if (printType) {
      std::printf("type: %d\n", static_cast<int>(ArchiveEngine::detectArchiveType(path)));
      std::fflush(stdout);
    }
    ConsolePwdListener listener = HostPassword(password).listener();
    *out = Kelta::hostBlock(Kelta::archive::readEntry(path, entry, listener));
    if (*out == nullptr) throw ArchiveError(ArchiveFailure::internal, "out of memory");
  });
}

}  // namespace

extern "C" {

int KELSYNC_CALL zipenc(const char* src, const char* dst, const char* password) {
  return packFile<char>(src, dst, password, nullptr, false, true);
}

int KELSYNC_CALL zipenc_w(const wchar_t* src, const wchar_t* dst, const wchar_t* password) {
  return packFile<wchar_t>(src, dst, password, nullptr, false, true);
}

int KELSYNC_CALL zipdec(const char* archive, const char* dstDir, const char* password) {
  return unpackFile(archive, dstDir, password);
}

int KELSYNC_CALL zipdec_w(const wchar_t* archive, const wchar_t* dstDir, const wchar_t* password) {
  return unpackFile(archive, dstDir, password);
}

int KELSYNC_CALL zipdec_meta(const char* archive, const char* dstDir, const char* password) {
  return unpackFile(archive, dstDir, password);
}

int KELSYNC_CALL zipenc_meta(const char* src, const char* dst, const char* password, const char* metaPath,
                             int compress) {
  return packFile(src, dst, password, metaPath, true, compress != 0);
}

int KELSYNC_CALL zipenc_meta_w(const wchar_t* src, const wchar_t* dst, const wchar_t* password, const wchar_t* metaPath,
                               int compress) {
  return packFile(src, dst, password, metaPath, true, compress != 0);
}

int KELSYNC_CALL zipdec_meta_w(const wchar_t* archive, const wchar_t* dstPath, const wchar_t* password,
                               const wchar_t* name) {
  return resultOf([&] {
    if (name == nullptr) return;
    const std::string folder = Kelta::platform::utf8(textOf(name));
    Kelta::zip::checkEntryName(folder);
    unpackInto(archive, pathOf(dstPath).parent_path() / pathOf(name), password);
  });
}

int KELSYNC_CALL get_zip_meta(const char* archive, const char* entryName, const char* password, char** out) {
  return readText(archive, entryName, password, out, true);
}

int KELSYNC_CALL get_zip_meta_w(const wchar_t* archive, const wchar_t* entryName, const wchar_t* password, char** out) {
  return readText(archive, entryName, password, out, false);
}

int KELSYNC_CALL zip_update_meta_w(const wchar_t* archive, const wchar_t* metaPath) {
  return resultOf([&] { Kelta::archive::updateMetadata(pathOf(archive), pathOf(metaPath)); });
}

}  // extern "C"
