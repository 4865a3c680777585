// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CryptoSyncCopyHandler/ISyncCopyHandler.h"
#include "SyncPair0/RenameMatch.h"
#include "SyncPair0/Resolution.h"
#include "SyncPair0/SyncTypes.h"
#include "SyncPair0/Waiting.h"
#include "base/Clock.h"
#include "platform/Files.h"

namespace Kelta {

struct CloudCopy;
class StateLines;
class TempArea;

/// One pair of folders: what they looked like when they were last in sync, how they differ now, and the
/// carrying over of every difference. All methods run on the thread of the host's command.
class SyncPair {
public:
  struct ScanResult {
    int filesChanged = 0;
    int filesDeleted = 0;
    int foldersAdded = 0;
    int foldersDeleted = 0;
    int total() const { return filesChanged + filesDeleted + foldersAdded + foldersDeleted; }
    ScanResult& operator+=(const ScanResult& other);
  };

  using Progress = std::function<void(const std::wstring& operation, const std::wstring& path, std::uint64_t done,
                                      std::uint64_t total)>;

  explicit SyncPair(std::shared_ptr<Clock> clock = std::make_shared<Clock>());
  ~SyncPair();
  SyncPair(const SyncPair&) = delete;
  SyncPair& operator=(const SyncPair&) = delete;

  // Configuration -----------------------------------------------------------
  void setSyncCopyHandler(ISyncCopyHandler* sh);  ///< takes ownership
  ISyncCopyHandler* handler() { return handler_.get(); }
  void setSourceFolder(std::wstring path);
  void setDestFolder(std::wstring path);
  void setTempFolder(std::wstring path);
  void setStatePath(std::wstring stateFolder);
  void setStateFilePaths();
  const std::wstring& stateFolder() const { return stateFolder_; }
  /// The entry by its user's name for it, on the side where it is; an archive's own name where that cannot be told.
  std::wstring userPath(const std::wstring& path);
  void setProgress(Progress progress) { progress_ = std::move(progress); }
  bool ok() const { return ok_; }
  const std::shared_ptr<Clock>& clock() const { return clock_; }
  const std::shared_ptr<Interruption>& interruption() const { return interruption_; }

  // Notifications: type, message, optional JSON value -------------------------
  /// One that says the same as another in the queue is not queued again: what fails, fails in each cycle.
  void notify(const std::wstring& type, const std::wstring& message, const std::wstring& more = std::wstring());
  /// That something was done for the user is queued each time.
  void notifyDone(const std::wstring& message) { notifications_.push_back({L"SYNC", message, std::wstring()}); }
  std::wstring notificationsAsJSON() const;
  void clearNotifications();
  const Waiting& waiting() const { return waiting_; }
  /// A file of the Inside waits until the changed asset of its share is confirmed, or waits no more.
  void noteShareWaits(const std::wstring& path, bool waits);

  // State: StateFile.cpp, StateRecords.cpp, StateIndex.cpp --------------------
  void initState();
  /// Archives whose key may be here now: those that were given up are tried again from the next scan on.
  void keyArrived(const std::vector<std::wstring>& archives) { retry_.insert(archives.begin(), archives.end()); }
  void stateMissingIndex();
  void loadStateFromDisk(std::wstring stateFile, StateList& list);
  void writeStateList(StateList& list, std::wstring stateFile);
  void writeState();
  void generateDirList(StateList& list, std::wstring folder);
  /// Records the entry as it is now, or at the given time; an entry that is not there loses its record.
  void setState(StateList& list, std::wstring path);
  void setState(StateList& list, std::wstring path, std::int64_t time);
  void delState(StateList& list, std::wstring path);
  void delState(std::pair<bool, bool> sides, std::wstring src, std::wstring dest);
  bool stateInsertRecord(std::wstring path);
  bool stateRemoveRecord(std::wstring path);
  void updateStateListByParent(std::wstring fromParent, std::wstring toParent, StateList& list);
  void findSubFoldersFromState(std::wstring parent, StateList& list, std::vector<std::wstring>& out);

  // Scanning: ScanSettle.cpp, ScanUpdates.cpp, ScanDeletes.cpp, ScanSubset.cpp -
  /// A missing root clears ok(), is told to the host once, and leaves the state as it is.
  void scanSrcChanges();
  void scanDestChanges();
  /// These throw RootMissing.
  ScanResult scanForUpdates(std::wstring syncFolder, StateList& stateList, SyncList& syncList, int checkInterval);
  ScanResult scanForUpdatesRecurse(std::wstring syncFolder, StateList& stateList, SyncList& syncList,
                                   int checkInterval);
  ScanResult scanForDeletes(std::wstring syncFolder, StateList& stateList, SyncList& syncList, int checkInterval);
  void subScanForChanges(std::vector<std::wstring> folderList);
  /// The same a moment later, so that what is under way shows as what it is.
  void subScanAgain(const std::vector<std::wstring>& folderList);
  void subScanForUpdates(std::vector<std::wstring> folderList);
  void subScanForDeletes(std::vector<std::wstring> folderList);
  ScanResult scanForUpdates(std::vector<std::wstring> folderList);
  ScanResult scanForDeletes(std::wstring syncFolder, StateList& stateList, SyncList& syncList, int checkInterval,
                            std::map<std::wstring, bool> folderList);
  std::int64_t mtime(std::wstring path);
  std::wstring generateFileHash(std::wstring path);
  bool isFileLocked(std::wstring path);
  bool isSrcFolder(std::wstring path);
  bool isPairRoot(std::wstring checkPath);

  // Folder identifiers: FolderId.cpp -------------------------------------------
  /// The identifier kept in the folder's ".rid"; empty when there is none.
  std::wstring getFolderRenameId(const std::wstring& folder);
  /// Keeps a valid identifier, else makes one. False when it could not be written.
  bool setFolderRenameId(const std::wstring& folder);

  // Renames: RenameHashes.cpp, Renames.cpp, RenameFolder.cpp, RenameFile.cpp ------
  /// What the scans put aside; an empty hash is none.
  void putRenameHashAdd(const std::wstring& path, const std::wstring& hash, bool isFolder);
  void putRenameHashDel(const std::wstring& path, const std::wstring& hash, bool isFolder);
  /// Carries out on the other side what was renamed on the side with this root, since both were scanned last: such
  /// entries leave the sync lists, all else stays. Throws RootMissing.
  void resolveRename(std::wstring folder);
  /// Renames within one side, replacing nothing. False when that cannot be done in one step.
  bool moveFile(std::wstring src, std::wstring dest);

  // Resolution: Resolve.cpp, ResolveCarry.cpp, Copy.cpp ------------------------
  void syncChanges();
  void resolveSync(std::wstring folder1, SyncList& syncList1, StateList& state1, std::wstring folder2,
                   SyncList& syncList2, StateList& state2);
  /// One copy through the handler, tried up to `retries` times. `written` receives the path of the copy, empty when
  /// the handler took the entry for settled without writing one.
  bool doCopy(std::wstring srcFile, std::wstring destFile, int retries, std::wstring* written = nullptr);
  /// What two changes of equal time are to each other.
  enum class Comparison {
    same,  ///< of one content, now recorded as in sync; or the archive waits for its key: nothing is to be done
    different,
    unknown,  ///< they could not be compared, or changed meanwhile
  };
  Comparison isFileConflictCopy(const std::wstring& key, const SyncObject& src, const SyncObject& dest,
                                bool fromInside);
  void touch(std::wstring path, std::int64_t timestamp);

  // Names: NameForms.cpp, Spares.cpp ---------------------------------------------
  /// Runs a renaming of archives, which tells of each; the records follow, and the state is written at the end.
  using Renamed = std::function<void(const std::wstring& from, const std::wstring& to)>;
  bool renameArchives(const std::function<bool(const Renamed&)>& rename);
  /// Runs a change of keys, which tells of each archive it has dealt with, and of each that it renames; the same holds.
  bool rewrapArchives(const std::function<bool(const Progress&, const Renamed&)>& change);

  // The whole Outside: WholeSide.cpp ---------------------------------------------
  /// Throws RootMissing unless the folder is the one that the state knows.
  void requireIntactRoot(bool inside) { requireIntactRoot(side(inside)); }
  /// Removes what is in sync from one side, and its records from both, so that nothing of it shows as a deletion. What
  /// is not as recorded on both sides stays, with its records. False when anything known is left, or no state was
  /// loaded.
  bool removeAllFiles(bool inside);
  void tell(const std::wstring& operation, const std::wstring& path, std::uint64_t done, std::uint64_t total);

  // Cycle: Pace.cpp --------------------------------------------------------------
  void syncCycle();
  void subResolve();
  void endCycle();
  void defaultSleep(int& seconds);
  /// How much of the pauses within a scan is kept, in percent, 0 to 100. What has changed within the last half second
  /// is given time to settle all the same.
  void setPace(int percent);
  void sleepWithCheck(int interval, long ms);

  StateList srcStateList;
  StateList destStateList;
  SyncList srcSyncList;
  SyncList destSyncList;

private:
  /// One side of the pair, by its role.
  struct Side {
    bool inside;
    const std::wstring& root;
    StateList& state;
    SyncList& list;
  };
  Side side(bool inside);
  Side sideOf(const std::wstring& path);

  // Keys and paths
  bool ownSpelling(const std::wstring& path, std::wstring& own);
  std::wstring keyOf(const Side& side, const std::wstring& path, bool isFolder);
  std::wstring pathFor(const Side& side, const std::wstring& key, bool isFolder);
  static bool recordedAsFolder(bool inside, const std::wstring& path, const StateRecord& record);

  // NameForms.cpp, Spares.cpp
  using Archives = std::map<std::wstring, platform::FileStamp>;
  /// An archive beside the one that counts for its key.
  struct Spare {
    platform::FileStamp stamp;
    bool known;  ///< it was recorded as it is
  };
  std::vector<std::wstring> archivePaths(const std::wstring& key);
  std::wstring archiveFor(const std::wstring& key);
  Archives archivesThere(const std::wstring& key);
  void takeOverRecord(const std::wstring& key, const std::wstring& from, const std::wstring& to,
                      const platform::FileStamp& stamp);
  void mergeAnew(const std::wstring& key, const platform::FileStamp& archive);
  bool countsForKey(const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp);
  void removeSpare(const std::wstring& path, const platform::FileStamp& stamp);
  bool keepUnseen(const std::wstring& key, const std::wstring& source, const std::wstring& counted,
                  const Archives& archives);
  void dropOtherArchives(const std::wstring& key, const std::wstring& written, const Archives& before);
  void carryArchiveBack(const Side& from, const Side& to, const std::wstring& key, const Archives& archives);
  void settleSpare(const std::wstring& key, const std::wstring& path, const Spare& spare);
  void settleSpares();

  // Roots.cpp
  std::wstring markerOf(const Side& side) const;
  std::string rootIdOf(const Side& side) const;
  std::wstring rootIdFile() const;
  void loadRootIds();
  void rememberRootIds();
  bool rootPresent(const Side& side) const;
  bool isMarked(const Side& side) const;
  enum class RootFolder { same, unclear, other };
  RootFolder folderOf(const Side& side) const;
  bool lacksFiles(const Side& side, std::ptrdiff_t share) const;
  bool rootLost(const Side& side) const;
  bool outsideWasReplaced();
  // These name their caller in the log.
  void requireRoots(const char* method = __builtin_FUNCTION());
  void requireIntactRoot(const Side& side, const char* method = __builtin_FUNCTION());
  [[noreturn]] void refuse(const std::wstring& reason);
  void requireUsableFolders();
  void markOutside();
  void placeMarkers();
  bool dropMarkerCopy(const Side& side, const boost::filesystem::path& entry);
  [[noreturn]] void reportRootMissing(const char* method);

  // State
  bool readOwnFile(const std::wstring& file, const std::function<void(StateLines&)>& read);
  void keepAside(const std::wstring& file);
  void readRecords(StateLines& lines, const std::wstring& stateFile, StateList& list);
  StateRecord makeRecord(const std::wstring& path, std::int64_t time);
  StateList::const_iterator counterpartIn(const StateList& outside, const std::wstring& key, bool isFolder);
  bool rebuildNeeded();
  void tellIfNotWhole();
  bool keepUnsettled(const StateList::value_type& src, const StateList::value_type& dest, const StateList& oldSrc,
                     const StateList& oldDest);
  void dropUnpairedRecords();
  void dropRetriedRecords();
  void sweepStateFolder();
  bool mayBeRecorded(const Side& side, const std::wstring& path);
  bool editState(const std::wstring& path, bool insert);
  void refreshFolderId(const std::wstring& path, StateRecord& record);

  // Scanning
  struct Walk {
    Side side;
    int checkInterval;
    const char* method;  ///< of which the log lines are
    const char* label;   ///< their prefix
    ScanResult result;
    std::uint64_t counter = 0;
    std::set<std::wstring> renamed = {};  ///< recorded folders that are found under another name
  };
  /// A pause of `ms` milliseconds within a scan, as far as the pace keeps it.
  void spareDisk(std::int64_t ms);
  long settlingPause(const SyncList& list, long ms);
  void settleSrc();
  void settleDest();
  bool listFolder(const char* method, const std::wstring& folder, std::vector<boost::filesystem::path>& entries);
  void noteUnreadable(const std::wstring& folder);
  void logIgnored(const Walk& walk, const boost::filesystem::path& entry);
  void pauseWithin(Walk& walk);
  bool wasFile(const std::wstring& key) const;
  std::vector<std::wstring> ownFolders(const std::vector<std::wstring>& folderList);
  bool isScanned(const Side& side, const std::wstring& folder);
  bool leftOut(const Walk& walk, const boost::filesystem::path& entry, std::wstring& path, platform::FileStamp& stamp);
  void noteUnread(const Side& side, const boost::filesystem::path& entry);
  bool mayHaveUnreadName(const std::wstring& path, const StateRecord& record) const;
  void noteBusy(Walk& walk, const std::wstring& path, bool changed);
  bool isCloudCopy(const Side& side, const std::wstring& path, CloudCopy& copy);
  bool isFreeForCloudCopy(const Side& side, const std::wstring& archive);
  boost::filesystem::path adopted(const Side& side, const boost::filesystem::path& entry);
  bool examineEntry(Walk& walk, const std::wstring& path, const platform::FileStamp& stamp);
  void noteFutureTime(const Side& side, const std::wstring& key, const std::wstring& path, std::int64_t time);
  bool examineRounded(Walk& walk, const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp,
                      const StateRecord& record);
  void examineKnown(Walk& walk, const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp,
                    const StateRecord& record);
  void examineNew(Walk& walk, const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp);
  void scanFolder(Walk& walk, const std::wstring& folder, std::vector<std::wstring>& folders);
  void checkRecord(Walk& walk, const std::wstring& path, const StateRecord& record);
  static bool liesBehindLink(const Side& side, const std::wstring& path);
  static bool liesBelowOtherName(const Side& side, const std::wstring& path);
  void checkRecordsBelow(Walk& walk, const std::wstring& folder);
  void noteDeletion(Walk& walk, const std::wstring& path, const StateRecord& record, bool isFolder);
  void purgeSyncListByPrefix(SyncList& list, const std::wstring& parentPath);

  // Renames
  struct RenameJob;
  void clearRenameHashes(const Side& side);
  void forgetRenameHashes(const Side& side, const std::wstring& folder);
  std::vector<RenameCandidate> renameCandidates(const Side& side, bool deleted, bool folders);
  void renewCopiedIds(bool alsoNew);
  bool renewFolderRenameId(const std::wstring& folder);
  void renewSharedId(const std::wstring& folder);
  bool resolveRenames(const Side& one);
  void saveRenames();
  std::wstring journalFile() const;
  void writeJournal(const std::wstring& line);
  void dropJournal();
  bool isJournalled(const std::vector<std::wstring>& fields);
  bool replayRename(const std::vector<std::wstring>& fields);
  void replayJournal();
  bool carryMove(const RenameJob& job);
  bool carryRename(const Side& one, const RenameMatch& match);
  bool mayCarryRename(const RenameJob& job);
  bool makeParents(const RenameJob& job);
  bool hasLeft(const RenameJob& job);
  bool isReady(const RenameJob& job);
  void finishRename(const RenameJob& job);
  bool renameFolder(const RenameJob& job);
  void followFolder(const Side& each, const RenameMatch& match, const std::wstring& from, const std::wstring& to);
  void forgetOlder(const Side& each, const std::wstring& folder);
  bool renameFile(const RenameJob& job);
  bool isKnownCounterpart(const RenameJob& job, const platform::FileStamp& stamp);
  bool hasRecordedContent(const RenameJob& job, const std::wstring& counterpart);
  bool isDoneAlready(const RenameJob& job, const StateRecord& record);
  platform::FileStamp passTimeOn(const RenameJob& job, const platform::FileStamp& moved);
  void recordRenamedFile(const RenameJob& job, bool same, const platform::FileStamp& left);

  // Resolution
  void resolveEntry(const Side& one, const Side& two, const std::wstring& key, const SyncObject& so);
  void carry(Resolution resolution, const Side& one, const Side& two, const std::wstring& key, const SyncObject& so,
             const SyncObject* so2);
  void carryCopy(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                 const SyncObject* other);
  void carryFolder(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so);
  void carryFile(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                 const SyncObject* other);
  void carryDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so,
                     const SyncObject* other);
  bool goesWithFolder(const Side& deleting, const std::wstring& key);
  void finishFolderDeletion(const Side& from, const Side& to, const std::wstring& key, const SyncObject& so);
  void deletionFailed(const std::wstring& key, const std::wstring& target, std::wstring reason);

  // KindClash.cpp
  bool isFolderOfPair(const std::wstring& path);
  bool clashesWithFolder(const std::wstring& key, const SyncObject& so);
  bool carryFormerFile(const Side& from, const Side& to, const std::wstring& key);
  bool clearWay(const Side& from, const Side& to, const std::wstring& key, bool isFolder);
  std::wstring keyAside(const std::wstring& key, std::int64_t time, const std::wstring& file);
  bool moveArchivesAside(const std::wstring& key, const std::wstring& copy, const Archives& archives);
  bool moveFileAside(const std::wstring& key, std::wstring& copy);
  bool putFileAside(const std::wstring& key);
  void carryAside(const std::wstring& copy);
  void settleKindClash(const Side& one, const Side& two, const std::wstring& key, const SyncObject& so,
                       const SyncObject& so2);

  // Conflict.cpp, Losers.cpp
  enum class Kept {
    yes,
    no,
    unreadable,  ///< the archive was given up for want of a key
    changed,     ///< it is not what was judged
  };
  void settleTie(const std::wstring& key, const SyncObject& so, const SyncObject& so2, const Side& one);
  void tieFailed(const SyncObject& src, const SyncObject& dest);
  void makeConflictCopy(const std::wstring& key, const SyncObject& src, const SyncObject& dest);
  void recordPlaced(const std::wstring& key, const std::wstring& archive, const platform::FileStamp& seen);
  enum class Opened {
    yes,
    no,
    lacksKey,  ///< the archive was given up
    damaged,   ///< beyond recovery
  };
  Opened openArchive(const std::wstring& archive, std::unique_ptr<TempArea>& area, std::wstring& content);
  void tellLoser(const std::wstring& loser, platform::Recycled recycled, const std::wstring& copy);
  bool recycleBeside(const std::wstring& winner, const boost::filesystem::path& content,
                     const boost::filesystem::path& area);
  Kept keepInsideLoser(const std::wstring& archive, const std::wstring& loser, const platform::FileStamp& judged);
  Kept keepOutsideLoser(const std::wstring& winner, const std::wstring& archive);
  void noteGivenUp(const std::wstring& key, const std::wstring& archive, std::int64_t time);
  bool waitsForKey(const Side& from, const Side& to, const std::wstring& source, const std::wstring& target) const;

  // FileCarrier.cpp
  struct FileJob;
  enum class Judgement {
    replace,  ///< known, or nothing is there
    keep,     ///< a version that has not been carried over: it is kept before it is replaced
    leave,    ///< for the next scan
    unclear,  ///< it cannot be read
  };
  void carryFileJob(FileJob& job);
  bool lookAtSource(FileJob& job);
  bool isCopiedAlready(const FileJob& job);
  bool isPlaced(const FileJob& job, const CopyOutcome& outcome);
  /// Whether what the directory of `archive` says of its content is true of `plain`. False when that cannot be told.
  bool holdsContent(const std::wstring& archive, const std::wstring& plain);
  Judgement judgeTarget(const FileJob& job, const platform::FileStamp& stamp);
  bool prepareTarget(FileJob& job);
  bool isTimeToCome(const FileJob& job);
  bool keepLoser(FileJob& job, const platform::FileStamp& stamp);
  static std::int64_t laterTime(const FileJob& job);
  void copyJob(FileJob& job);
  void finishJob(FileJob& job, const CopyOutcome& outcome);
  void recordAsUnseen(const std::wstring& source);
  void noteChanging(const std::wstring& source);
  void retryCopies();
  void tellBusy();
  static const wchar_t* const kNoFile;
  static std::wstring reasonOf(const boost::system::error_code& error);
  CopyOutcome copyOnce(const std::wstring& srcFile, const std::wstring& destFile, const CopyGuard* guard, bool& again);
  void waitOutRunningSecond(const platform::FileStamp& stamp);
  /// Records an entry as `seen`, unless it is something else by now or is not to be trusted: then as unseen. Whether it
  /// was recorded as seen.
  bool recordAs(StateList& list, const std::wstring& path, const platform::FileStamp& seen, bool trusted = true);
  bool isReplacedUnseen(const std::wstring& path, const platform::FileStamp& stamp) const;
  void forgetOldSaves();
  /// Whether a file is what was last in sync. One that cannot be read tells nothing: it is neither changed nor known.
  enum class Known { yes, no, unclear };
  Known isAsRecorded(const Side& side, const std::wstring& path, const platform::FileStamp& stamp);
  Known holdsRecorded(const std::wstring& key, const std::wstring& archive);
  Known isKnown(const Side& side, const std::wstring& key, const std::wstring& path, const platform::FileStamp& stamp);
  bool isInSync(const std::wstring& key, const std::wstring& inside, const std::wstring& archive);
  // WholeSide.cpp
  void refreshHash(const std::wstring& archive);
  struct Removal;
  bool mayRemove(const Side& own, const std::wstring& key, const std::wstring& path, const std::wstring& counterpart);
  std::vector<Removal> planRemovals(bool inside, std::uint64_t& left);
  void forgetRemovals(const std::vector<Removal>& removals);
  bool remove(const Removal& removal, bool inside);

  void recordBoth(const std::wstring& key, bool isFolder);
  void forgetBoth(const std::wstring& key, bool isFolder);
  void copyFailed(const Side& from, const std::wstring& key, const SyncObject& so);
  void recordFolder(const std::wstring& key);
  void refreshParent(const std::wstring& key);
  void report(const wchar_t* operation, const std::wstring& path);
  bool sameContent(const std::wstring& a, const std::wstring& b);

  std::shared_ptr<Clock> clock_;
  std::shared_ptr<Interruption> interruption_;
  Waiting waiting_;
  std::unique_ptr<ISyncCopyHandler> handler_;
  std::wstring sourceFolder_;
  std::wstring destFolder_;
  std::wstring tempFolder_;
  std::wstring stateFolder_;
  std::wstring stateFiles_[2];  ///< Inside, Outside
  std::vector<std::vector<std::wstring>> notifications_;
  std::set<std::vector<std::wstring>> queued_;  ///< those that are queued once, to find equal ones
  Progress progress_;
  RenameHashes renameAdds_[2];  ///< Inside, Outside
  RenameHashes renameDels_[2];
  std::unique_ptr<platform::File> journal_;  ///< null: no rename since the state was written
  std::set<std::wstring> renamedIn_;         ///< folders with renames that may not be on the disk yet
  std::set<std::wstring> unreadable_;        ///< folders that the host was told about in this cycle
  std::map<std::wstring, std::set<std::int64_t>> unreadNames_;  ///< folder → times of archives without a plain name
  int futureTold_ = 0;                                          ///< files whose times lie ahead, in this cycle
  /// Sources that cannot be settled, and what they and their targets were when they held the same.
  std::map<std::wstring, std::pair<platform::FileStamp, platform::FileStamp>> held_;
  std::map<std::wstring, platform::FileStamp> saved_;  ///< files of the Inside as recorded within the last minutes
  std::set<std::wstring> busy_;                        ///< changed files in use, as the scans of this cycle found them
  struct Retry {
    bool fromInside;
    std::wstring key;
    SyncObject so;
    std::unique_ptr<SyncObject> other;
  };
  std::vector<Retry> retries_;  ///< copies that failed for a reason that may pass soon
  int attempt_ = 1;             ///< of the copies of this resolution
  std::map<std::wstring, std::map<std::wstring, Spare>> spares_;  ///< key → path, as the scans of this cycle found them
  std::set<std::wstring> givenUp_;                                ///< archives whose key is missing
  std::set<std::wstring> retry_;                                  ///< of these, perhaps, it has arrived
  std::map<std::wstring, platform::FileStamp> keptLosers_;  ///< archives of which this version was recycled already
  std::wstring lookProblem_;                                ///< why a file could not be told from what is recorded
  std::wstring copyProblem_;                                ///< why the latest attempt failed, where that is known
  bool sourceIsDamaged_ = false;                            ///< the latest attempt failed for that
  std::uint64_t entriesDone_ = 0;
  bool ok_ = true;
  bool stateLoaded_ = false;
  bool stateChanged_ = false;
  bool stateDamaged_ = false;      ///< what was remembered is not all there
  std::set<std::wstring> unread_;  ///< files of the state folder that could not be read
  std::string rootIds_[2];         ///< MD5 of the markers last seen, Inside, Outside; empty: none yet
  std::string identities_[2];      ///< of the folders as last seen, Outside, Inside; empty: not known
  bool renameOccurred_ = false;
  std::int32_t successfulEvents_ = 0;
  int cycleMarker_ = 7;
  int pace_ = 100;                       ///< percent
  std::int64_t startupTime_ = 0;         ///< microseconds
  std::int64_t lastStateWriteTime_ = 0;  ///< microseconds
};

}  // namespace Kelta
