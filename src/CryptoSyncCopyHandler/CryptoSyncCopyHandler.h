// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CryptoSyncCopyHandler/ArchiveList.h"
#include "CryptoSyncCopyHandler/ArchiveMeta.h"
#include "CryptoSyncCopyHandler/AssetKeys.h"
#include "CryptoSyncCopyHandler/ISyncCopyHandler.h"
#include "CryptoSyncCopyHandler/ShareMemory.h"
#include "CryptoSyncCopyHandler/Shares.h"
#include "base/Clock.h"
#include "platform/OpenFolder.h"

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
  /// Queues a notification for the host, once as long as it says the same: type, message, extra JSON value or nothing.
  std::function<void(const std::wstring&, const std::wstring&, const std::wstring&)> notify;
  /// Tells the archives that could not be opened before a key was installed: they are worth another try. May be
  /// called in the middle of a command.
  std::function<void(const std::vector<std::wstring>&)> keyArrived = {};
  /// A file of the Inside waits until the changed asset of its share is confirmed, or waits no more.
  std::function<void(const std::wstring& path, bool waits)> shareWaits = {};
  /// Queues, each time, that something was done for the user.
  std::function<void(const std::wstring& message)> notifyDone = {};
};

/// Whether an asset's key opens what an archive's metadata holds for it.
enum class KeyFit { fits, doesNot, otherAsset };

/// What an archive's name is, and the plain name it stands for where that can be told.
enum class NameForm {
  plain,            ///< "x.kelta"
  encrypted,        ///< verified
  copyOfEncrypted,  ///< an encrypted name to which something was added, by a cloud client, say
  unreadable,       ///< looks encrypted, but is damaged or of another key
  noKey,            ///< looks encrypted, and the key is missing
  noName,           ///< stands for what is no name of a file: "..", say
  none,             ///< no archive's name
};
struct NameReading {
  NameForm form;
  std::wstring plain;  ///< empty when there is none
};

/// Turns plain files of the Inside folder into encrypted archives of the Outside folder and back.
/// Used from the thread that runs the engine's commands; only the last-update value of the
/// quarantine and the name flag may be touched from others.
class CryptoSyncCopyHandler : public ISyncCopyHandler {
public:
  using KeyNotFoundCallback = std::function<std::wstring(const std::wstring& assetId)>;  ///< empty: no key

  explicit CryptoSyncCopyHandler(EngineServices services);
  ~CryptoSyncCopyHandler() override;

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
  void setFNE(bool on);  ///< from any thread

  // ISyncCopyHandler
  std::pair<bool, std::wstring> copyFile(boost::filesystem::path src, boost::filesystem::path dest) override;
  bool copyDir(boost::filesystem::path src, boost::filesystem::path dest) override;
  std::vector<std::wstring> conflictCopy(std::wstring& src, std::wstring& dest) override;
  std::wstring handleName(std::wstring name) override;
  void deleteStatus(bool deleted, std::wstring path) override;
  bool mayRename(std::wstring from, std::wstring to) override;
  bool ignore(boost::filesystem::path path) override;
  std::pair<bool, bool> doDelete(std::wstring path) override;
  CopyOutcome copyGuarded(boost::filesystem::path src, boost::filesystem::path dest, const CopyGuard* guard) override;
  void noteRenamed(std::wstring from, std::wstring to, bool isFolder) override;
  DeletionOutcome deleteGuarded(std::wstring path, const platform::FileStamp& judged) override;
  void foundInSync(std::wstring path) override;
  std::vector<std::wstring> archiveNames(std::wstring path) override;
  void beginOperation() override;
  bool keepAsItIs(std::wstring archive) override;
  std::string outsideMark() override;

  // Names. Each takes a full path, or a last component alone, and gives a last component.
  std::wstring transformName(const std::wstring& path);    ///< plain → archive's, by the flag; empty: no key
  std::wstring untransformName(const std::wstring& path);  ///< archive's, either form → plain; empty: unreadable
  std::wstring encryptFilename(const std::wstring& path);  ///< plain → archive's, encrypted; empty: no key
  std::wstring decryptFilename(const std::wstring& path);  ///< archive's, encrypted → plain; empty: none, or damaged
  NameReading readName(const std::wstring& path);
  using Renamed = std::function<void(const std::wstring& from, const std::wstring& to)>;
  /// Brings the names of all archives in line with the flag, by renames alone. False when some keep theirs: unreadable,
  /// too long, in use, or another file has the name.
  bool resetStateFNE(const Renamed& renamed);

  // Content
  std::pair<bool, std::wstring> copyEncrypt(boost::filesystem::path src, boost::filesystem::path dest);
  std::pair<bool, std::wstring> copyDecrypt(boost::filesystem::path src, boost::filesystem::path dest);
  /// One file from and to anywhere: "encrypt" or "decrypt" when it is done, else "no-key" or "failed". The archive's
  /// name gets ".kelta" where it has not; its asset is that of its place in the pair, or else of the source's. Nothing
  /// plain is written to the Outside and no archive to the Inside.
  std::wstring encryptSingle(boost::filesystem::path src, boost::filesystem::path dest);
  std::wstring decryptSingle(boost::filesystem::path src, boost::filesystem::path dest);
  /// The password under the asset key as lower-case hex; empty when that failed.
  std::string encryptArchivePassword(std::string& archivePassword, std::string& assetKey);
  /// The passwords that the installed keys unwrap, in the metadata's order. The caller wipes them.
  std::vector<std::string> getPasswordFromMeta(boost::property_tree::ptree& meta,
                                               PasswordForm form = PasswordForm::ofPair);
  /// Puts a finished file, with its last-write time, at its place on the Inside (or in the Temp folder). Throws
  /// filesystem_error, with the place untouched, when it cannot.
  void moveInside(boost::filesystem::path from, std::wstring to);
  void writeFile(std::wstring path, char* text);
  void sleepWithCheck(int interval, long ms);

  // Asset keys
  void setAssetKey(const std::wstring& assetId, const std::wstring& key);
  /// Is told of each archive that an operation over the whole Outside has dealt with.
  using ArchiveProgress = std::function<void(const std::wstring& outcome, const std::wstring& path, std::uint64_t done,
                                             std::uint64_t total)>;
  /// Installs a new key for the asset and wraps the password of each of its archives anew under it: outcomes "rewrap",
  /// "kept" for archives of other assets, and "failed". Encrypted names are renewed afterwards. Until all are done, in
  /// this call or in a later one, the former key is kept for reading. False, with the host told, when some archive is
  /// left under another key or name.
  bool changeAssetKey(const std::wstring& assetId, const std::wstring& newKey, const ArchiveProgress& progress,
                      const Renamed& renamed = {});
  /// Tries every archive of the Outside without decrypting any content: outcomes "verify", "no-key" and "damaged".
  /// True when all of them open.
  bool verifyArchives(const ArchiveProgress& progress);
  void removeAssetKey(const std::wstring& assetId);
  void clearAssets();
  /// False when archives of that asset lie on the Outside and the installed key opens none of the first few.
  bool verifyAssetKey(const std::wstring& assetId);
  /// The metadata entry as a tree. False, with a log line, when there is none or it is damaged. Throws filesystem_error
  /// when the archive could not be read: that tells nothing about what is in it.
  bool getZipMetaJSON(const boost::filesystem::path& archive, boost::property_tree::ptree& meta);
  void registerKeyNotFound(KeyNotFoundCallback callback);

  // Shares: Shares.cpp. Paths are full ones of either side and need not exist. What was found for a folder holds until
  // beginOperation().
  /// The asset whose key a file of that path is encrypted under: that of the nearest share above it, else the default
  /// one. Empty when there is none, or when the share's marker cannot be read: then nothing may be encrypted there.
  std::string getAssetForPath(const boost::filesystem::path& path);
  /// Whether the folder itself is the root of a share, whatever its marker says. Always looks at the disk.
  bool isKeltaShare(std::wstring folder);
  /// Where it is remembered which asset the files of each folder were last encrypted for. Without it that is forgotten
  /// with the handler.
  void setStateFolder(const std::wstring& folder);
  /// On: what a changed marker makes another asset's is not encrypted until confirmShare(). Off: it is only told.
  void setChangedSharesWait(bool wait) { changedSharesWait_ = wait; }
  /// The share that `folder`, a full path of either side, belongs to is to be encrypted for the asset from now on.
  /// False when its markers do not name that asset now.
  bool confirmShare(std::wstring folder, const std::wstring& assetId);
  /// The root of the nearest share at or above the path, as a full path on the path's side; empty when there is none.
  std::wstring findShareRoot(std::wstring path);

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
  std::wstring shownName(const boost::filesystem::path& path);
  void sweepPairEntry(const std::wstring& path);
  Clock& clock() { return *services_.clock; }
  Interruption& interruption() { return *services_.interruption; }

  // FileNames.cpp
  bool namesAreEncrypted();
  std::wstring withMappedName(const std::wstring& path);
  std::wstring archiveOf(const std::wstring& plainPath);
  NameReading readNameItself(const std::wstring& path);
  NameReading readStem(const std::wstring& path, const std::wstring& stem);
  std::string assetOfName(const std::wstring& path);
  const std::string* keyForName(const std::string& assetId);
  static std::wstring encryptedUnder(const std::string& keyText, const std::wstring& name);
  std::size_t readEncrypted(const std::wstring& path, const std::wstring& stem, std::wstring& plain);
  bool hasNameIssue(const std::wstring& path, std::wstring& message, std::wstring& errorId);

  // NameReset.cpp
  static bool nameFits(const std::wstring& path);
  bool forEachArchive(const std::function<bool(const std::wstring& path)>& action);
  bool resetName(const std::wstring& path, const Renamed& renamed);
  bool renameArchive(const std::wstring& path, const std::wstring& name, const Renamed& renamed);
  bool renewNames(const Renamed& renamed);

  // ArchiveList.cpp
  ArchiveList listArchives();
  bool isBeyondScans(const boost::filesystem::path& entry, platform::Kind kind);
  bool isNamedAsArchive(const boost::filesystem::path& entry);

  // Shares.cpp
  std::string assetNow(const boost::filesystem::path& path);

  // ShareChanges.cpp
  struct ShareChange;
  const std::string& shownAsset(const std::string& id) const;
  std::wstring insidePath(const std::wstring& folder) const;
  bool marksAgree(const Share& share);
  void tellError(const std::wstring& message);
  bool settleChange(const ShareChange& change, const std::wstring& source);
  void takeOver(const Share& share, const std::wstring& base);
  bool isOfItsFolder(const std::wstring& folder, const SealedArchive& archive, const std::string& password);
  bool mayOpenHere(CopyJob& job, const SealedArchive& archive, const std::string& password);
  void noteShareUse(const boost::filesystem::path& path);
  /// Whether something may be encrypted for the asset that the shares give the path now. What changed is told before.
  /// `source`: the file that waits while it may not, if any.
  bool mayUseShareOf(const boost::filesystem::path& path, const std::wstring& source);

  // AssetKeys.cpp, ArchiveMeta.cpp
  void tryAgainWith(const std::string& assetId);
  std::wstring answerOf(const std::string& assetId);
  bool askForKey(const std::string& assetId);
  bool askForKeys(const boost::property_tree::ptree& meta);
  bool readSealed(const boost::filesystem::path& path, SealedArchive& archive);
  bool unseal(SealedArchive& archive, std::string& password);
  bool passwordOf(SealedArchive& archive, std::string& password);
  bool passwordUnder(const std::string& assetKey, const std::string& hexPass, PasswordForm form, std::string& password,
                     bool told = false);

  // Rewrap.cpp, KeyCheck.cpp
  enum class Rewrapped { done, already, notOurs, failed };
  struct KeyChange;
  Rewrapped rewrap(const KeyChange& change, const boost::filesystem::path& archive);
  Rewrapped rewrapGuarded(const KeyChange& change, const boost::filesystem::path& archive);
  void askForFormer(const KeyChange& change);
  std::size_t rewrapAll(const KeyChange& change, const ArchiveList& list, const ArchiveProgress& progress);
  std::wstring verifyArchive(const boost::filesystem::path& archive);

  // Copy.cpp
  bool copyJob(CopyJob& job, const boost::filesystem::path& src, const boost::filesystem::path& dest);
  bool encryptJob(CopyJob& job, const boost::filesystem::path& src, const boost::filesystem::path& dest);
  bool decryptJob(CopyJob& job, const boost::filesystem::path& src, const boost::filesystem::path& dest);
  bool targetFits(const CopyJob& job);
  bool isAsJudged(const CopyJob& job);
  bool takeStamps(CopyJob& job, const std::wstring& sourceRoot);
  bool unchanged(const CopyJob& job);
  bool archiveFailed(const zip::ArchiveError& error, const boost::filesystem::path& archive);
  void copySucceeded(const CopyJob& job, const wchar_t* verb);
  void logActivity(const char* operation, const std::wstring& path);

  // CopyEncrypt.cpp
  KeyFit tryKey(const std::string& id, const boost::filesystem::path& archive);
  bool wraps(const SealedArchive& archive, const std::string& assetId, const std::string& password);
  KeyFit keyFits(const std::string& assetId, const SealedArchive& archive);
  bool mayEncrypt(const CopyJob& job);
  bool encryptTo(CopyJob& job, const boost::filesystem::path& shared, const std::wstring& plainTarget);
  bool keyAvailable(const std::string& assetId);
  bool replacesUnread(const CopyJob& job, const std::wstring& plainTarget);
  bool mayGo(const std::wstring& archive);
  std::wstring nameToKeep(const std::wstring& archive);  // KeepAsItIs.cpp
  bool packSource(const CopyJob& job, const std::string& assetId, const TempArea& area,
                  const boost::filesystem::path& archive);

  // CopyDecrypt.cpp
  bool mayDecrypt(const CopyJob& job);
  enum class Opened { yes, noKey, unreadable };
  Opened openArchive(const CopyJob& job, SealedArchive& archive, std::string& password);
  bool decryptTo(CopyJob& job, const std::string& password);
  bool giveUpWithoutKey(CopyJob& job, const boost::property_tree::ptree& meta);
  bool unpackSource(const CopyJob& job, const std::string& password, const boost::filesystem::path& folder);

  // SingleFile.cpp
  bool spellAsPair(boost::filesystem::path& path);
  bool aimAt(CopyJob& job, const boost::filesystem::path& dest, const std::wstring& root);

  // ConflictCopy.cpp
  struct Conflict;
  bool nameConflict(Conflict& conflict);
  bool planConflict(Conflict& conflict);
  bool moveAside(const Conflict& conflict);
  bool fillPlace(const Conflict& conflict, const boost::filesystem::path& decrypted);
  void shareConflictCopy(const Conflict& conflict);

  // Placement.cpp
  bool place(const boost::filesystem::path& from, CopyJob& job);
  bool putInPlace(const platform::Spot& fresh, const platform::EntryId& id, const platform::Spot& target,
                  const CopyJob& job);
  void setTimeInPlace(const platform::Spot& target, CopyJob& job);
  bool placeInside(const boost::filesystem::path& from, CopyJob& job);
  bool placeAcrossVolumes(const platform::Spot& from, const platform::Spot& target, CopyJob& job);
  bool targetUnchanged(const CopyJob& job);
  bool targetTaken(const CopyJob& job);

  // Deletion.cpp
  struct Deletion;
  bool nameCounterpart(Deletion& deletion);
  bool planDeletion(const std::wstring& path, Deletion& deletion);
  bool isGone(const Deletion& deletion);
  bool deleteEntry(Deletion& deletion);
  bool deleteWithRetries(Deletion& deletion);
  DeletionOutcome carryDeletion(const std::wstring& path, const platform::FileStamp* judged);
  bool WinRecycleFile(const platform::Spot& file, const platform::FileStamp& judged);
  bool isSystemMadeEntry(const boost::filesystem::path& entry);
  bool emptyFolder(const platform::OpenFolder& folder, Deletion& deletion);
  bool deleteFolder(const platform::Spot& target, const platform::EntryId& id, Deletion& deletion);

  // Quarantine.cpp
  bool hasUnusablePath(const boost::filesystem::path& path, std::wstring& message);
  bool hasPathIssue(const boost::filesystem::path& path, std::wstring& message, std::wstring& errorId);
  /// Records a path and tells the host. False when a record was there already: it then stays as it is.
  bool quarantineOnce(const boost::filesystem::path& path, const std::wstring& message,
                      const std::wstring& errorId = L"path-issue");
  bool quarantineFolderExists();
  void quarantineChanged();
  std::vector<boost::filesystem::path> quarantineRecords();
  void dropStaleRecords();
  bool recordAsJSON(const boost::filesystem::path& record, std::wstring& json);

  EngineServices services_;
  boost::mutex fneLock_;
  struct DecryptFailure {
    std::int64_t first = 0;        ///< seconds
    std::set<std::string> assets;  ///< whose keys are wanted
  };
  std::map<std::wstring, DecryptFailure> decryptFailures_;  ///< Outside path → first failure for lack of a key
  bool fne_ = false;                                        ///< under fneLock_
  AssetKeys keys_;
  Shares shares_;
  ShareMemory shareMemory_;
  std::int64_t nextShareSave_ = 0;  ///< seconds
  bool changedSharesWait_ = false;
  std::set<std::wstring> toldOfShares_;
  std::set<std::wstring> waitingForShares_;  ///< files of the Inside
  std::set<std::string> asked_;              ///< assets whose key was asked for in this operation
  KeyNotFoundCallback keyNotFound_;
  std::wstring insideFolder_;
  std::wstring outsideFolder_;
  std::wstring tempFolder_;
  std::wstring quarFolder_;
  int compressionFlag_ = 0;
  std::map<std::wstring, platform::FileStamp> keptAsTheyAre_;  ///< archives of which this version is kept already
  bool encrypting_ = false;                                    ///< in the last copy
  bool sourceIsDamaged_ = false;                               ///< of the last copy
  bool endChanged_ = false;                                    ///< the same: an end was not what it had been
  // Under fneLock_, the handler's one mutex; seconds.
  std::int64_t quarantineLastUpdate_ = 0;  ///< as it was last read
  std::int64_t quarantineChangedAt_ = 0;   ///< since then; 0: not changed
};

}  // namespace Kelta
