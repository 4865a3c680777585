// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CryptoSyncCopyHandler/AssetKeys.h"
#include "CryptoSyncCopyHandler/ISyncCopyHandler.h"
#include "base/Clock.h"

namespace Kelta {

class TempArea;
struct CopyJob;
namespace zip {
class ArchiveError;
}

/// What an engine gives its handler.
struct EngineServices {
  std::shared_ptr<Clock> clock;
  std::shared_ptr<Interruption> interruption;
  /// Queues a notification for the host: type, message, extra JSON value or nothing.
  std::function<void(const std::wstring&, const std::wstring&, const std::wstring&)> notify;
};

/// Whether an asset's key opens what an archive's metadata holds for it.
enum class KeyFit { fits, doesNot, otherAsset };

/// Turns plain files of the Inside folder into encrypted archives of the Outside folder and back.
/// Used from the thread that runs the engine's commands; only the last-update value of the
/// quarantine and the name flag may be touched from others.
class CryptoSyncCopyHandler : public ISyncCopyHandler {
public:
  using KeyNotFoundCallback = std::function<std::wstring(const std::wstring& assetId)>;  ///< empty: no key

  explicit CryptoSyncCopyHandler(EngineServices services);

  // Folder roles. Stored in generic form without a trailing separator; nothing is checked.
  void setInsideFolder(std::wstring path);
  void setOutsideFolder(std::wstring path);
  void setTempFolder(std::wstring path);  ///< created if missing
  void setQuarFolder(std::wstring path);  ///< created if missing
  bool isInsideFolder(std::wstring path);
  bool isOutsideFolder(std::wstring path);
  bool isTempFolder(std::wstring path);
  bool hasExtension(boost::filesystem::path path);
  void setCompressionFlag(int flag) { compressionFlag_ = flag; }
  void setFNE(bool on);

  // ISyncCopyHandler
  std::pair<bool, std::wstring> copyFile(boost::filesystem::path src, boost::filesystem::path dest) override;
  bool sourceIsDamaged() const override { return sourceIsDamaged_; }
  void foundInSync(std::wstring path) override;
  bool copyDir(boost::filesystem::path src, boost::filesystem::path dest) override;
  std::vector<std::wstring> conflictCopy(std::wstring& src, std::wstring& dest) override;
  std::wstring handleName(std::wstring name) override;
  void deleteStatus(bool deleted, std::wstring path) override;
  bool mayRename(std::wstring from, std::wstring to) override;
  bool ignore(boost::filesystem::path path) override;
  std::pair<bool, bool> doDelete(std::wstring path) override;

  // Content
  std::pair<bool, std::wstring> copyEncrypt(boost::filesystem::path src, boost::filesystem::path dest);
  std::pair<bool, std::wstring> copyDecrypt(boost::filesystem::path src, boost::filesystem::path dest);
  /// The password under the asset key as lower-case hex; empty when that failed.
  std::string encryptArchivePassword(std::string& archivePassword, std::string& assetKey);
  /// The passwords that the installed keys open, in the metadata's order. The caller wipes them.
  std::vector<std::string> getPasswordFromMeta(boost::property_tree::ptree& meta);
  /// Puts a finished file, with its last-write time, at its place on the Inside (or in the Temp folder). Throws
  /// filesystem_error, with the place untouched, when it cannot.
  void moveInside(boost::filesystem::path from, std::wstring to);
  void writeFile(std::wstring path, char* text);
  void sleepWithCheck(int interval, long ms);

  // Asset keys
  void setAssetKey(const std::wstring& assetId, const std::wstring& key);
  void removeAssetKey(const std::wstring& assetId);
  void clearAssets();
  /// False when archives of that asset lie on the Outside and the installed key opens none of the first few.
  bool verifyAssetKey(const std::wstring& assetId);
  std::string getAssetForPath(const boost::filesystem::path& path);
  /// The metadata entry as a tree. False, with a log line, when there is none or it is damaged. Throws filesystem_error
  /// when the archive could not be read: that tells nothing about what is in it.
  bool getZipMetaJSON(const boost::filesystem::path& archive, boost::property_tree::ptree& meta);
  void registerKeyNotFound(KeyNotFoundCallback callback);

  // Quarantine
  boost::filesystem::path genQuarantineRecordPath(boost::filesystem::path path);
  void recordQuarantine(boost::filesystem::path path, std::wstring message, std::wstring errorId);
  void ifQuarantinedClear(boost::filesystem::path path);
  bool clearQuarantineRecord(std::wstring record);
  std::wstring getQuarantineAsJSON();
  int quarantineLastUpdate();
  /// The name for a quarantined file; a name that has the marker stays as it is.
  std::wstring quarName(std::wstring name);

  /// Removes what earlier runs left in the Temp folder.
  void sweepTempFolder();

private:
  bool isUnder(const char* function, const std::wstring& folder, const std::wstring& path);
  bool storeFolder(std::wstring& role, const std::wstring& path);
  void notifySync(const std::wstring& message);
  Clock& clock() { return *services_.clock; }
  Interruption& interruption() { return *services_.interruption; }

  // FileNames.cpp
  bool namesAreEncrypted();
  std::wstring withMappedName(const std::wstring& path);

  // AssetKeys.cpp, ArchiveMeta.cpp
  bool askForKey(const std::string& assetId);
  bool askForKeys(const boost::property_tree::ptree& meta);
  bool passwordFrom(const std::string& assetId, const std::string& hexPass, std::string& password);

  // Copy.cpp
  bool targetFits(const CopyJob& job);
  bool takeStamps(CopyJob& job, const std::wstring& sourceRoot);
  bool unchanged(const CopyJob& job);
  bool archiveFailed(const zip::ArchiveError& error, const boost::filesystem::path& archive);
  void copySucceeded(const CopyJob& job, const wchar_t* verb);
  void logActivity(const char* operation, const std::wstring& path);

  // CopyEncrypt.cpp
  KeyFit tryKey(const std::string& id, const boost::filesystem::path& archive);
  KeyFit keyFits(const std::string& assetId, const boost::property_tree::ptree& meta);
  bool mayEncrypt(const CopyJob& job);
  bool keyAvailable(const std::string& assetId);
  bool replacesUnread(const CopyJob& job);
  bool packSource(const CopyJob& job, const std::string& assetId, const TempArea& area,
                  const boost::filesystem::path& archive);

  // CopyDecrypt.cpp
  bool mayDecrypt(const CopyJob& job);
  bool openArchive(const CopyJob& job, std::vector<std::string>& passwords, bool& givenUp);
  bool giveUpWithoutKey(const CopyJob& job);
  bool unpackSource(const CopyJob& job, const std::vector<std::string>& passwords,
                    const boost::filesystem::path& folder);

  // ConflictCopy.cpp
  struct Conflict;
  bool nameConflict(Conflict& conflict);
  bool planConflict(Conflict& conflict);
  bool moveAside(const Conflict& conflict);
  bool fillPlace(const Conflict& conflict, const boost::filesystem::path& decrypted);
  void shareConflictCopy(const Conflict& conflict);

  // Placement.cpp
  bool place(const boost::filesystem::path& from, const CopyJob& job);
  bool placeInside(const boost::filesystem::path& from, const CopyJob& job);
  bool placeAcrossVolumes(const boost::filesystem::path& from, const CopyJob& job);
  bool targetUnchanged(const CopyJob& job);
  bool targetTaken(const CopyJob& job);

  // Deletion.cpp
  struct Deletion;
  bool planDeletion(const std::wstring& path, Deletion& deletion);
  bool isGone(const Deletion& deletion);
  bool deleteEntry(Deletion& deletion);
  bool deleteWithRetries(Deletion& deletion);
  bool WinRecycleFile(const boost::filesystem::path& file);
  bool emptyFolder(const boost::filesystem::path& folder, std::size_t& removed);

  // Quarantine.cpp
  bool hasPathIssue(const boost::filesystem::path& path, std::wstring& message);
  /// Records a path issue and tells the host, with `name` or the path's own name. False when a record was there
  /// already: it then stays as it is.
  bool quarantineOnce(const boost::filesystem::path& path, const std::wstring& message,
                      std::wstring name = std::wstring());
  bool quarantineFolderExists();
  void quarantineChanged();
  bool recordAsJSON(const boost::filesystem::path& record, std::wstring& json);

  EngineServices services_;
  boost::mutex fneLock_;
  std::map<std::wstring, std::int64_t> decryptFailures_;  ///< Outside path → first failure for lack of a key
  bool fne_ = false;                                      ///< under fneLock_
  bool fneReported_ = false;                              ///< the host was told that names cannot be encrypted
  AssetKeys keys_;
  KeyNotFoundCallback keyNotFound_;
  std::wstring insideFolder_;
  std::wstring outsideFolder_;
  std::wstring tempFolder_;
  std::wstring quarFolder_;
  int compressionFlag_ = 0;
  bool sourceIsDamaged_ = false;           ///< of the last copy
  std::int64_t quarantineLastUpdate_ = 0;  ///< under fneLock_, the handler's one mutex
};

}  // namespace Kelta
