/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file kelsyncpair.h
 * The public interface of kelsyncpair, the encrypting folder synchroniser.
 *
 * A *pair* keeps two folders in step: the Inside ("source"), which holds the
 * user's files in plain form, and the Outside ("destination"), usually inside
 * a cloud client's folder, which holds one encrypted archive (".kelta") for
 * each file of the Inside.
 *
 * A host drives one pair in this order:
 *
 *     kelsync_pair* h = NULL;
 *     kelsync_init(&h);                       // NULL when memory ran out
 *     kelsync_set_log_folder(h, L"…/log");
 *     kelsync_set_source_folder(h, L"…/Documents");
 *     kelsync_set_dest_folder(h, L"…/Cloud/Documents");
 *     kelsync_set_temp_folder(h, L"…/temp");
 *     kelsync_set_state_path(h, L"…/state");
 *     kelsync_set_assetkey(h, L"main", L"<64 hex digits>");
 *     kelsync_init_state(h);
 *     while (running && kelsync_ok(h)) {
 *         kelsync_sync_cycle(h);
 *         kelsync_default_sleep(h);
 *     }
 *     kelsync_delete(h);
 *
 * Text. Wide strings are NUL-terminated: UTF-16 on Windows, UTF-32 elsewhere.
 * Narrow paths are in the active code page on Windows, in UTF-8 elsewhere;
 * narrow passwords are UTF-8. Every string passed in is copied before the call
 * returns. Paths are absolute; either separator may be used.
 *
 * Memory. The library has a runtime heap of its own: every block that it hands
 * out is released through freeme() and nothing else.
 *
 * Errors. No exception crosses this interface. Engine functions report through
 * the log, through notifications and through kelsync_ok(); archive functions
 * return one of the KELSYNC_ARCHIVE_* codes. Except where it is said, a null
 * handle or a null string is ignored with a line in the log.
 *
 * Threads. The host serialises the calls on one handle. Different handles may
 * be used by different threads at the same time. The only functions that may be
 * called while another call on the same handle is running are
 * kelsync_interrupt() and kelsync_set_FNE(); the folder watcher's have a rule of their own. Callbacks run on the
 * thread that called the command and must not call commands of the same handle.
 */
#ifndef KELSYNCPAIR_KELSYNCPAIR_H
#define KELSYNCPAIR_KELSYNCPAIR_H

#include <stdint.h>
#include <wchar.h>

#if defined(_WIN32)
#define KELSYNC_CALL __cdecl
#if defined(KELSYNC_BUILDING)
#define KELSYNC_API __declspec(dllexport)
#else
#define KELSYNC_API __declspec(dllimport)
#endif
#else
#define KELSYNC_CALL
#define KELSYNC_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** One engine: a pair of folders, its state and its keys. */
typedef struct kelsync_pair kelsync_pair;

/** A list of paths: folders for the sub-scan commands, changes that a watcher saw. */
typedef struct kelsync_folder_list kelsync_folder_list;

/* ------------------------------------------------------------------ */
/* Life of an engine                                                  */
/* ------------------------------------------------------------------ */

/**
 * Creates an engine and stores its handle in `*out`; NULL is stored when
 * memory ran out. Log lines go to standard output until
 * kelsync_set_log_folder() is called.
 * @return `out`, as it was passed.
 */
KELSYNC_API kelsync_pair** KELSYNC_CALL kelsync_init(kelsync_pair** out);

/** Destroys the engine; keys are wiped. NULL is ignored. No command may be running on it. */
KELSYNC_API void KELSYNC_CALL kelsync_delete(kelsync_pair* h);

/**
 * Health of the engine.
 * @return 1, or 0 once a scan found one of the pair's folders missing (an
 * unmounted volume, say), or one that cannot be used was set: no state folder,
 * one of the pair within the other, the state or the Temp folder on the
 * Outside. A handle that reports 0 stays so: delete it, and create a new one
 * when the folder is back. A null handle gives 0.
 */
KELSYNC_API int KELSYNC_CALL kelsync_ok(kelsync_pair* h);

/**
 * Makes a running command of this handle return at its next interruption point
 * (every pause, every folder or record scanned, every buffer copied). Nothing
 * half-written stays; what was finished stays finished. Without a running
 * command the call has no effect. Callable from any thread.
 */
KELSYNC_API void KELSYNC_CALL kelsync_interrupt(kelsync_pair* h);

/** Releases a block that the library handed out. NULL is ignored. */
KELSYNC_API void KELSYNC_CALL freeme(void* p);

/* ------------------------------------------------------------------ */
/* Configuration, before kelsync_init_state()                         */
/* ------------------------------------------------------------------ */

/** Sets the Inside folder: the user's plain files. It must exist when a cycle runs. */
KELSYNC_API void KELSYNC_CALL kelsync_set_source_folder(kelsync_pair* h, const wchar_t* path);

/** Sets the Outside folder: the encrypted archives. It must exist when a cycle runs. */
KELSYNC_API void KELSYNC_CALL kelsync_set_dest_folder(kelsync_pair* h, const wchar_t* path);

/**
 * Sets the folder for intermediate files; it is created if missing. It should
 * lie on a local disk of the user's own, since decrypted content passes through it,
 * and in neither folder of the pair.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_temp_folder(kelsync_pair* h, const wchar_t* path);

/**
 * Sets the folder of the state files and, below it, of the quarantine records, both created if missing. One per pair.
 * The records can be listed and cleared from then on, also without kelsync_init_state().
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_state_path(kelsync_pair* h, const wchar_t* folder);

/**
 * Sends the log of the whole process to "syncpair.log" in `folder`, which must
 * exist and be writable; otherwise the log goes where it went before. "log.properties" in that folder, if there,
 * configures log4cplus first; without it the level is INFO, or DEBUG when the
 * environment variable SYNCPAIRTRACE is set. Not to be called by two threads at once.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_log_folder(kelsync_pair* h, const wchar_t* folder);

/** Whether archives are compressed (Deflate, level 9): 0 stores, any other value compresses. Default 0. */
KELSYNC_API void KELSYNC_CALL kelsync_set_compression_flag(kelsync_pair* h, int flag);

/**
 * Whether archives that are written from now on get encrypted names (non-zero) or plain ones, "x.kelta" for "x".
 * Default 0. Both are read whatever the flag says, so that devices may change at different times. A file that is
 * encrypted again takes the new form and loses the old one; kelsync_FNE_reset() turns all over at once. Folder names
 * are never encrypted. Callable from any thread, also while a command is running.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_FNE(kelsync_pair* h, int flag);

/* ------------------------------------------------------------------ */
/* Keys                                                               */
/* ------------------------------------------------------------------ */

/*
 * Shares. A folder of the pair that holds a file ".sid" is a share: its files, and those of the folders below, are
 * encrypted under the asset that the first line of that file names (UTF-8), not under the default one. The marker may
 * lie on either side; where both have one, that of the Outside counts, and unless both name the same asset nothing in
 * the share is encrypted. It is never synchronised, and read again before every file that is encrypted. While a marker
 * holds no usable id, or cannot be read, nothing in its share is encrypted. Which asset a folder was last used with is
 * remembered in the state folder; a marker that changes it, comes or goes is told with an "ERROR" notification before
 * anything is encrypted for the other asset. A file that is moved from one share to another is encrypted anew; one that
 * merely lies in a folder whose marker changes is so with its next change.
 */

/**
 * Installs the key of an asset (a key domain), replacing an earlier one. The
 * asset that is installed first is the default one, under which files are encrypted.
 * @param assetId 1 to 255 characters without quotes, backslashes and controls.
 * @param key 64 hex digits; or 43 or 44 characters of base64 (32 bytes); any
 *   other text is a pass phrase, hashed once with SHA-256 and without salt:
 *   it must be long and random to be worth anything.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_assetkey(kelsync_pair* h, const wchar_t* assetId, const wchar_t* key);

/**
 * Changes the key of an asset: installs the new one, and wraps the password of every archive of that asset on the
 * Outside anew under it. Contents stay byte for byte, and archives keep their last-write time, so that no device copies
 * anything. Blocks; progress is told as "rewrap". Call it after kelsync_init_state() and on one device only; the others
 * need the new key as soon as the first archives reach them, and the old one until the last have.
 *
 * Each archive is replaced in one step, so that it opens with the old or the new key at every moment. Whatever ends the
 * call early, it goes on where it was when it is repeated, and has nothing to do once all archives are done.
 *
 * What the host does: keep both keys durably before the first call, and the old one until a call has returned 1. After
 * a restart in between, install the old key with kelsync_set_assetkey() and call this again with the new one. (With the
 * new key installed, archives that are still under the old one are unreadable, unless the keynotfound callback hands
 * the old key out when it is asked for this asset.) Until then the old key stays usable for reading in this handle.
 * @return 1 when every archive of the asset is under the new key. 0, with an "ERROR" notification, when some archive
 *   could not be read or replaced, or opens with neither key; 0 also for null arguments, an id or a key that cannot be
 *   used, when the Outside is missing, and after kelsync_interrupt().
 */
KELSYNC_API int KELSYNC_CALL kelsync_change_assetkey(kelsync_pair* h, const wchar_t* assetId, const wchar_t* newKey);

/** Forgets and wipes the key of one asset. An unknown id is ignored. */
KELSYNC_API void KELSYNC_CALL kelsync_remove_assetkey(kelsync_pair* h, const wchar_t* assetId);

/** Forgets and wipes all keys. */
KELSYNC_API void KELSYNC_CALL kelsync_clear_assets(kelsync_pair* h);

/**
 * Tries the installed key of an asset on archives of the Outside (a handful, without decrypting any content). Call it
 * before the first cycle: with a wrong key, existing files would merely fail, but new ones would be locked away from
 * every other device.
 * @return 0 when there are archives of that asset and the key opens none of those tried (also for null
 *   arguments); 1 otherwise, in particular when there is nothing to try.
 */
KELSYNC_API int KELSYNC_CALL kelsync_verify_assetkey(kelsync_pair* h, const wchar_t* assetId);

/**
 * What becomes of a folder whose marker, where files of it were encrypted before, makes them another asset's: with 0,
 * the default, that is told and they are encrypted for the other asset with their next change. With 1 they wait for
 * kelsync_share_confirm(), and kelsync_get_waiting_JSON() lists those that have changed as "share-unconfirmed". Anybody
 * who can write to the Outside can put a marker there. New shares, and folders of which no file was encrypted yet, do
 * not wait. The same for archives that another key than that of their folder opens: with 0 the first one in a folder is
 * told ("ERROR") and they are decrypted, with 1 they fail and stay as they are (a device that is new to a folder which
 * was made a share later takes what is still under the former key with 0). Other values are taken as 0.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_share_policy(kelsync_pair* h, int policy);

/**
 * Confirms that the share which holds `folder`, a full path of either side, is to be encrypted for `assetId` from now
 * on (a folder that is no share any more: for the default asset). Files that wait go with the next cycle. Call it after
 * kelsync_set_state_path(), between commands.
 * @return 1 when it was confirmed; 0 when the markers there name another asset, or two, and for a folder outside of the
 *   pair or null arguments.
 */
KELSYNC_API int KELSYNC_CALL kelsync_share_confirm(kelsync_pair* h, const wchar_t* folder, const wchar_t* assetId);

/**
 * Brings the names of all archives on the Outside in line with the flag of kelsync_set_FNE(). They are renamed, not
 * written again, and the state follows; other devices see renames, whatever their own flag says. Call it after
 * kelsync_init_state(), with the keys installed. Ended early, it may be called again.
 * @return 1 when all are in line; 0 when some keep their names (damaged, no key, too long, in use, or the file has a
 *   second archive, which the next cycle settles), or when it was interrupted.
 */
KELSYNC_API int KELSYNC_CALL kelsync_FNE_reset(kelsync_pair* h);

/**
 * The encrypted name of an archive, and back. `path` is a full path on either side of the pair, or a last component
 * alone, which then belongs to the default asset; nothing needs to be there. fn_encrypt() takes a plain name and does
 * not ask for the flag; fn_decrypt() takes an archive's name, encrypted or plain. May be called by callbacks.
 * @param out receives the last component alone in a block for freeme(): empty when the key is missing, or when the
 *   name is damaged or of another key; NULL when memory ran out.
 * @return the length in wide characters, without the terminator.
 */
KELSYNC_API uint32_t KELSYNC_CALL fn_encrypt(kelsync_pair* h, const wchar_t* path, wchar_t** out);
KELSYNC_API uint32_t KELSYNC_CALL fn_decrypt(kelsync_pair* h, const wchar_t* path, wchar_t** out);

/**
 * Tries the installed keys on every archive of the Outside, without decrypting any content: whether the wrapped
 * password opens, and whether that opens the archive. Progress tells each archive as "verify", "no-key" or "damaged".
 * @return 1 when all of them open, otherwise 0.
 */
KELSYNC_API int KELSYNC_CALL kelsync_verify_archives(kelsync_pair* h);

/**
 * Called when an archive or a file needs the key of an asset that is not
 * installed; at most once per asset and operation (a scan, a resolution, a
 * change of keys, a single file), on the thread of the running command, with no lock held. It may install keys with
 * kelsync_set_assetkey().
 * @return the key, or NULL. The text stays the host's and must be valid until the next call.
 */
typedef const wchar_t*(KELSYNC_CALL* kelsync_keynotfound_cb)(const wchar_t* assetId);

/** Registers the callback above; NULL takes it back. */
KELSYNC_API void KELSYNC_CALL kelsync_cb_register_keynotfound(kelsync_pair* h, kelsync_keynotfound_cb cb);

/**
 * Tells the host about each entry that a running command has dealt with.
 * @param context what was registered.
 * @param operation "encrypt", "decrypt", "folder", "rename", "delete", "conflict" for a
 *   file that changed on both sides at the same time, or "failed" for an entry
 *   that could not be carried over this time, "changing" for a file that is left
 *   for later because it is being written to (told once until it rests); "rewrap" for an archive that is
 *   under the changed key now, "kept" for one of another asset; "verify" for one
 *   that opens, "no-key" and "damaged" for one that does not.
 * @param path the entry that was written, deleted, or that failed, for "conflict"
 *   the conflict copy on the Inside: by the user's own name, below the side where it is. Of a file on the Outside that
 *   is not the archive's name (".kelta" is missing, and it is never encrypted), unless only that can be told, for want
 *   of the key. Valid during the call.
 * @param done entries dealt with so far in this cycle or operation, this one included.
 * @param total entries that it knows it has to deal with; at least `done`.
 */
typedef void(KELSYNC_CALL* kelsync_progress_cb)(void* context, const wchar_t* operation, const wchar_t* path,
                                                uint64_t done, uint64_t total);

/** Registers the callback above; NULL takes it back. */
KELSYNC_API void KELSYNC_CALL kelsync_cb_register_progress(kelsync_pair* h, kelsync_progress_cb cb, void* context);

/* ------------------------------------------------------------------ */
/* Cycles                                                             */
/* ------------------------------------------------------------------ */

/**
 * Loads the state of both sides, or builds it on the first start, or when it
 * cannot be read, from what both sides agree on (then nothing is deleted, and
 * the files that could not be read are kept as "….unread1"), and removes what
 * an earlier run left in the Temp folder.
 * Call it once, after the configuration and before the first cycle.
 */
KELSYNC_API void KELSYNC_CALL kelsync_init_state(kelsync_pair* h);

/**
 * One whole cycle: scan the Inside, scan the Outside, carry every change over,
 * write the state. Blocks until it is done: scans wait until a side has settled
 * and pause regularly. Ends early when a folder of the pair is missing (see kelsync_ok()).
 */
KELSYNC_API void KELSYNC_CALL kelsync_sync_cycle(kelsync_pair* h);

/**
 * How much of the pauses within scans is kept, in percent: 100, the default, keeps them all; 0 leaves out those that
 * only spare the disk, and waits for a tree to settle only when something in it changed within the last half second.
 * For a user who waits at a screen. Other values are taken as the nearest of 0 to 100. The pauses between two cycles
 * (kelsync_default_sleep()) and between two tries of a copy stay. Not to be called while a command is running.
 */
KELSYNC_API void KELSYNC_CALL kelsync_set_pace(kelsync_pair* h, int percent);

/** The steps of a cycle one by one; end such a sequence with kelsync_sync_end(). */
KELSYNC_API void KELSYNC_CALL kelsync_scan_src_changes(kelsync_pair* h);
KELSYNC_API void KELSYNC_CALL kelsync_scan_dest_changes(kelsync_pair* h);
KELSYNC_API void KELSYNC_CALL kelsync_sync_changes(kelsync_pair* h);
KELSYNC_API void KELSYNC_CALL kelsync_write_state(kelsync_pair* h);
KELSYNC_API void KELSYNC_CALL kelsync_sync_end(kelsync_pair* h);

/**
 * Sleeps between two cycles: 10 seconds while the state was written less than
 * 300 seconds ago, otherwise 0 to 50 seconds by the age of the engine.
 */
KELSYNC_API void KELSYNC_CALL kelsync_default_sleep(kelsync_pair* h);

/** @return the seconds that kelsync_default_sleep() would sleep now. Does not sleep. */
KELSYNC_API int KELSYNC_CALL kelsync_default_sleep_tell(kelsync_pair* h);

/** Stores a new, empty folder list in `*out` (NULL when memory ran out). */
KELSYNC_API void KELSYNC_CALL kelsync_vw_new(kelsync_folder_list** out);

/** Appends a copy of `path`, a folder of either side. */
KELSYNC_API void KELSYNC_CALL kelsync_vw_add(kelsync_folder_list* list, const wchar_t* path);

/** @return how many paths the list holds; 0 for NULL. */
KELSYNC_API uint32_t KELSYNC_CALL kelsync_vw_count(kelsync_folder_list* list);

/** @return a path of the list, valid until the list is changed or freed; NULL when there is none of that index. */
KELSYNC_API const wchar_t* KELSYNC_CALL kelsync_vw_get(kelsync_folder_list* list, uint32_t index);

/** Frees a list that no command consumed. NULL is ignored. */
KELSYNC_API void KELSYNC_CALL kelsync_vw_delete(kelsync_folder_list* list);

/** Scans only the listed folders, and frees the list. NULL scans nothing. */
KELSYNC_API void KELSYNC_CALL kelsync_sub_scan(kelsync_pair* h, kelsync_folder_list* list);

/** Looks for additions and updates in the listed folders; frees the list when `freeList` is 1. */
KELSYNC_API void KELSYNC_CALL kelsync_sub_scan_updates(kelsync_pair* h, kelsync_folder_list* list, int freeList);

/** Looks for deletions in the listed folders; frees the list when `freeList` is 1. */
KELSYNC_API void KELSYNC_CALL kelsync_sub_scan_deletes(kelsync_pair* h, kelsync_folder_list* list, int freeList);

/** Scans the listed folders twice, a moment apart, carries the changes over, and frees the list. */
KELSYNC_API void KELSYNC_CALL kelsync_sub_scan_resolve(kelsync_pair* h, kelsync_folder_list* list);

/** Carries over what the sub-scans found. */
KELSYNC_API void KELSYNC_CALL kelsync_sub_resolve(kelsync_pair* h);

/**
 * Makes or refreshes (removes) the state record of one path and writes that side's state file. The path is spelled as
 * the folder that was set and the names below it, with either separator, and names what a scan would take. Call it
 * after kelsync_init_state().
 * @return 1 when it was done; 0, with nothing changed, when it was not: no state is loaded, another spelling, a folder
 *   of the pair itself, a marker, a foreign file, nothing there (no record).
 */
KELSYNC_API int KELSYNC_CALL kelsync_state_insert_record(kelsync_pair* h, const wchar_t* path);
KELSYNC_API int KELSYNC_CALL kelsync_state_remove_record(kelsync_pair* h, const wchar_t* path);

/**
 * Removes from one side every entry that the state knows to be in sync, and its records from both sides. What changed
 * since, has no counterpart or is not known, stays, as do the two folders themselves and the markers. Nothing of this
 * shows as a deletion afterwards: a later cycle brings everything back from the other side. Files of the Inside go to
 * the recycle bin.
 *
 * Mind the other devices: archives that vanish from the Outside are deletions to them, and they move their own files to
 * their recycle bins, unless a cycle here has put new archives in place before they look.
 *
 * Call it after kelsync_init_state(); before, it removes nothing and returns 0.
 * @param side 0: the Inside; 1: the Outside.
 * @return 1 when nothing that was known is left there, otherwise 0.
 */
KELSYNC_API int KELSYNC_CALL kelsync_remove_all_files(kelsync_pair* h, int side);

/* ------------------------------------------------------------------ */
/* Single files                                                       */
/* ------------------------------------------------------------------ */

/**
 * Encrypts the file `src` into the archive `dst`, or decrypts the archive `src` into the file `dst`, with the installed
 * keys. Neither need lie in a folder of the pair; a Temp folder must be set. `dst` is replaced in one step and gets the
 * last-write time of `src`; its folder must exist unless it lies in the pair. The archive's name gets ".kelta" where it
 * has not; it is made for the asset of its own place on the Outside, or else of that of `src` on the Inside, or else
 * for the default one. Nothing plain is written to the Outside, no archive to the Inside, and no archive is replaced
 * that the installed keys do not open. Progress tells "encrypt", "decrypt", "no-key" or "failed".
 * @return 1 when it was done, otherwise 0; nothing is left half-written.
 */
KELSYNC_API int KELSYNC_CALL single_encrypt(kelsync_pair* h, const wchar_t* src, const wchar_t* dst);
KELSYNC_API int KELSYNC_CALL single_decrypt(kelsync_pair* h, const wchar_t* src, const wchar_t* dst);

/* ------------------------------------------------------------------ */
/* Notifications and quarantine                                       */
/* ------------------------------------------------------------------ */

/**
 * Hands out what the engine has to tell, oldest first, as JSON:
 * {"notifications":[{"type":"SYNC","message":"…"},…]}, type "SYNC" or "ERROR".
 * Messages name the user's files, as they are called on the Inside. Reading does not empty the queue. What was done is
 * queued each time; what failed is not queued again while the same is in the queue.
 * @param out receives a block for freeme(); NULL when memory ran out.
 * @return the length in wide characters, without the terminator.
 */
KELSYNC_API uint32_t KELSYNC_CALL kelsync_get_notifications_JSON(kelsync_pair* h, wchar_t** out);

/** Empties the queue. */
KELSYNC_API void KELSYNC_CALL kelsync_clear_notifications(kelsync_pair* h);

/**
 * Hands out the entries that are left for later although nothing is wrong with them, as JSON:
 * {"waiting":[{"path":"…","reason":"changing","seconds":4},…]}. Reasons: "changing" for a file that is being written to
 * (it is tried again when it rests, at growing distances of 1 to 60 seconds), "in-use" for one whose new version cannot
 * be put in place while a program has it open, "future-time" for one whose last-write time lies more than a day ahead,
 * "share-unconfirmed" for a share whose changed asset the host has not confirmed. `seconds` says when it is tried
 * again; 0: in the next cycle. Call it between commands.
 * @param out receives a block for freeme(); NULL when memory ran out.
 * @return the length in wide characters, without the terminator.
 */
KELSYNC_API uint32_t KELSYNC_CALL kelsync_get_waiting_JSON(kelsync_pair* h, wchar_t** out);

/**
 * Hands out the list of paths that are not synchronised, as JSON:
 * {"quarantined":[{"record_file":"…","errorid":"…","message":"…","timestamp":"…","quarantine_path":"…"},…]}.
 * errorid is "path-issue" or "no-key"; timestamp is UTC, ISO 8601.
 * @param out receives a block for freeme(); NULL when memory ran out.
 * @return the length in wide characters, without the terminator.
 */
KELSYNC_API uint32_t KELSYNC_CALL kelsync_quarantine_get_JSON(kelsync_pair* h, wchar_t** out);

/** @return the seconds since the epoch of the latest change of that list; 0 when there was none. */
KELSYNC_API int KELSYNC_CALL kelsync_quarantine_get_last_update(kelsync_pair* h);

/** Removes one record; `record` is a record_file of the list. */
KELSYNC_API void KELSYNC_CALL kelsync_quarantine_clear_rec(kelsync_pair* h, const wchar_t* record);

/* ------------------------------------------------------------------ */
/* Folder watcher                                                     */
/* ------------------------------------------------------------------ */

/**
 * Tells a host that something changed below some folders, without scanning. It knows nothing of an engine. One thread
 * watches each folder with everything below it.
 *
 * Its functions may be called from any thread at any time, kelsync_fw_delete() as the last one, but not from within
 * the callback. A null handle is ignored with a line in the log; queries then give 0 or NULL.
 */
typedef struct kelsync_watcher kelsync_watcher;

/** Stores a new watcher in `*out` (NULL when memory ran out). Release it with kelsync_fw_delete(). */
KELSYNC_API void KELSYNC_CALL kelsync_fw_init(kelsync_watcher** out);

/**
 * Adds a folder to watch from the next kelsync_fw_startwatch() on. When none is added, those filters that name
 * existing folders are watched. Changes are told with this text in front.
 */
KELSYNC_API void KELSYNC_CALL kelsync_fw_add_folder(kelsync_watcher* handle, const wchar_t* path);

/**
 * Adds a filter: a change is told when a filter matches its path. A filter names an entry, and matches it and all below
 * it; one with "*" (any characters, separators too) or "?" (any one) is a pattern over the whole path. Case counts as
 * it does for files on the system. An empty filter matches nothing, and without filters nothing is told. Paths that end
 * in ".rid" never are.
 */
KELSYNC_API void KELSYNC_CALL kelsync_fw_add_filter(kelsync_watcher* handle, const wchar_t* filter);

/** Whether kelsync_fw_get_changes() gives the folders that hold the changes (non-zero) or the changed paths (0). */
KELSYNC_API void KELSYNC_CALL kelsync_fw_folders_only(kelsync_watcher* handle, int flag);

/**
 * Receives a changed path, valid during the call, once for each filter that matches. It runs on the thread that saw
 * the change, with the watcher locked: it must be short and must not call the watcher.
 */
typedef void(KELSYNC_CALL* kelsync_fw_cb)(const wchar_t* path);

/** Registers the callback above: changes go to it and are no longer gathered. NULL takes it back. */
KELSYNC_API void KELSYNC_CALL kelsync_fw_register_cb(kelsync_watcher* handle, kelsync_fw_cb cb);

/**
 * Starts watching; when it returns, changes are noticed. A folder that cannot be watched is left out without an error.
 * Folders that are watched already stay so; one that was gone and is back is watched again.
 *
 * When more happens at once than the system keeps, and when a watched folder is deleted, moved away or unmounted, the
 * watched folder itself is told as changed, whatever the filters say: anything below it may have changed. In the
 * latter case its watch ends.
 */
KELSYNC_API void KELSYNC_CALL kelsync_fw_startwatch(kelsync_watcher* handle);

/** @return 1 when changes were gathered that kelsync_fw_get_changes() has not handed out yet, otherwise 0. */
KELSYNC_API int KELSYNC_CALL kelsync_fw_change_occurred(kelsync_watcher* handle);

/**
 * @return 1 when the system refuses to watch some of the folders (on Linux each user may have so many watches, and no
 *   more), otherwise 0. A watched folder with such folders below it is told as changed about every half minute.
 */
KELSYNC_API int KELSYNC_CALL kelsync_fw_incomplete(kelsync_watcher* handle);

/**
 * Hands out what was gathered, sorted and each path once, and forgets it. With kelsync_fw_folders_only(), a watched
 * folder that is told as changed comes with every folder below it, so that the list is ready for the sub-scan commands.
 * @param out receives a list, perhaps empty, for a sub-scan command or kelsync_vw_delete(); NULL when memory ran out.
 */
KELSYNC_API void KELSYNC_CALL kelsync_fw_get_changes(kelsync_watcher* handle, kelsync_folder_list** out);

/**
 * Ends all watches. With `wait` non-zero it returns when their threads have ended, and no callback runs any more: do
 * not hold what the callback waits for. Otherwise it returns at once; a callback that is running goes on.
 */
KELSYNC_API void KELSYNC_CALL kelsync_fw_endwatch(kelsync_watcher* handle, int wait);

/** Ends all watches, waiting for them, and destroys the watcher. NULL is ignored. */
KELSYNC_API void KELSYNC_CALL kelsync_fw_delete(kelsync_watcher* handle);

/* ------------------------------------------------------------------ */
/* Single archives, without an engine                                 */
/* ------------------------------------------------------------------ */

/** Results of the archive functions. After any of them but 0 no partial file is left. */
enum kelsync_archive_result {
  KELSYNC_ARCHIVE_OK = 0,
  KELSYNC_ARCHIVE_BAD_ARGUMENT = 1,   /**< a required argument is null, empty or not valid text */
  KELSYNC_ARCHIVE_CANNOT_READ = 2,    /**< an input file is missing or cannot be read */
  KELSYNC_ARCHIVE_CANNOT_WRITE = 3,   /**< an output cannot be written: rights, disk full, a folder in its place */
  KELSYNC_ARCHIVE_NOT_AN_ARCHIVE = 4, /**< no zip archive */
  KELSYNC_ARCHIVE_DAMAGED = 5,        /**< truncated or altered */
  KELSYNC_ARCHIVE_WRONG_PASSWORD = 6, /**< wrong password, or none was given */
  KELSYNC_ARCHIVE_UNSUPPORTED = 7,    /**< a zip archive of a kind that is not read here */
  KELSYNC_ARCHIVE_NO_ENTRY = 8,       /**< the archive has no entry of that name */
  KELSYNC_ARCHIVE_UNSAFE_NAME = 9,    /**< an entry's name would leave the target folder */
  KELSYNC_ARCHIVE_CANCELLED = 10,     /**< the password prompt was cancelled */
  KELSYNC_ARCHIVE_INTERNAL = 11,      /**< out of memory or another fault inside */
  KELSYNC_ARCHIVE_CHANGED = 12        /**< a file was written to while it was read */
};

/**
 * Packs the file `src` into the new archive `dst` under its own name (Deflate,
 * AES-256), replacing an archive that is there. A null password is asked for on the console.
 */
KELSYNC_API int KELSYNC_CALL zipenc(const char* src, const char* dst, const char* password);
KELSYNC_API int KELSYNC_CALL zipenc_w(const wchar_t* src, const wchar_t* dst, const wchar_t* password);

/** Extracts every entry into the folder `dstDir`, which is created if missing; files there are replaced. */
KELSYNC_API int KELSYNC_CALL zipdec(const char* archive, const char* dstDir, const char* password);
KELSYNC_API int KELSYNC_CALL zipdec_w(const wchar_t* archive, const wchar_t* dstDir, const wchar_t* password);

/** A second name of zipdec(). */
KELSYNC_API int KELSYNC_CALL zipdec_meta(const char* archive, const char* dstDir, const char* password);

/**
 * Packs `src` as the encrypted entry "Content" and, unless `metaPath` is NULL,
 * that file as an unencrypted entry under its own name. `compress` 0 stores both, otherwise Deflate.
 */
KELSYNC_API int KELSYNC_CALL zipenc_meta(const char* src, const char* dst, const char* password, const char* metaPath,
                                         int compress);
KELSYNC_API int KELSYNC_CALL zipenc_meta_w(const wchar_t* src, const wchar_t* dst, const wchar_t* password,
                                           const wchar_t* metaPath, int compress);

/**
 * Extracts every entry into the folder `name` beside `dstPath` (in the folder
 * that holds it). With `name` NULL nothing is extracted and 0 returned.
 */
KELSYNC_API int KELSYNC_CALL zipdec_meta_w(const wchar_t* archive, const wchar_t* dstPath, const wchar_t* password,
                                           const wchar_t* name);

/**
 * Reads one entry whole, usually the metadata, into a zero-terminated block for freeme().
 * With `entryName` NULL nothing is read, 0 returned and `*out` left alone; after a failure `*out` is NULL.
 * The narrow form also prints "type: N" to standard output.
 */
KELSYNC_API int KELSYNC_CALL get_zip_meta(const char* archive, const char* entryName, const char* password, char** out);
KELSYNC_API int KELSYNC_CALL get_zip_meta_w(const wchar_t* archive, const wchar_t* entryName, const wchar_t* password,
                                            char** out);

/**
 * Puts the file `metaPath` into an existing archive as its metadata entry, in
 * place of one of the same name. Other entries are copied byte for byte; no
 * password is needed. The archive is replaced in one step: a crash leaves the old or the new one.
 */
KELSYNC_API int KELSYNC_CALL zip_update_meta_w(const wchar_t* archive, const wchar_t* metaPath);

#ifdef __cplusplus
}
#endif

#endif
