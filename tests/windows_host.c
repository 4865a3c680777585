/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A host that finds the library and its functions by name, as hosts without an import library do:
 *     windows_host DLL MODE FOLDER      (FOLDER is emptied first)
 * keep: a pair of devices, then no FreeLibrary; reload: with FreeLibrary, twice in one process;
 * threads: on threads that end before and after FreeLibrary.
 * What the functions do is tested elsewhere; here it is that they are found, called rightly, and let go of everything.
 */
#include <kelsyncpair/kelsyncpair.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

#define FUNCTIONS(X)                                                                 \
  X(kelsync_pair**, kelsync_init, (kelsync_pair**))                                  \
  X(void, kelsync_delete, (kelsync_pair*))                                           \
  X(int, kelsync_ok, (kelsync_pair*))                                                \
  X(void, freeme, (void*))                                                           \
  X(void, kelsync_set_source_folder, (kelsync_pair*, const wchar_t*))                \
  X(void, kelsync_set_dest_folder, (kelsync_pair*, const wchar_t*))                  \
  X(void, kelsync_set_temp_folder, (kelsync_pair*, const wchar_t*))                  \
  X(void, kelsync_set_state_path, (kelsync_pair*, const wchar_t*))                   \
  X(void, kelsync_set_log_folder, (kelsync_pair*, const wchar_t*))                   \
  X(void, kelsync_set_assetkey, (kelsync_pair*, const wchar_t*, const wchar_t*))     \
  X(void, kelsync_cb_register_keynotfound, (kelsync_pair*, kelsync_keynotfound_cb))  \
  X(void, kelsync_cb_register_progress, (kelsync_pair*, kelsync_progress_cb, void*)) \
  X(void, kelsync_init_state, (kelsync_pair*))                                       \
  X(void, kelsync_sync_cycle, (kelsync_pair*))                                       \
  X(uint32_t, kelsync_get_notifications_JSON, (kelsync_pair*, wchar_t**))            \
  X(int, get_zip_meta_w, (const wchar_t*, const wchar_t*, const wchar_t*, char**))   \
  X(int, log4cplus_logger_exists, (const wchar_t*))                                  \
  X(int, log4cplus_logger_force_log, (const wchar_t*, int, const wchar_t*, ...))     \
  X(int, log4cplus_add_callback_appender, (const wchar_t*, LogCallback, void*))

typedef void(__cdecl* LogCallback)(void* cookie, const wchar_t* message, const wchar_t* logger, int level,
                                   const wchar_t* thread, const wchar_t* thread2, unsigned long long seconds,
                                   unsigned long microseconds, const wchar_t* file, const wchar_t* function, int line);

#define MEMBER(result, name, arguments) result(__cdecl* name) arguments;
static struct {
  HMODULE module;
  FUNCTIONS(MEMBER)
} lib;

static int failures = 0;

#define CHECK(condition) check((condition) != 0, #condition, __LINE__)
static int check(int holds, const char* condition, int line) {
  if (holds) return 1;
  fprintf(stderr, "line %d: not so: %s (system error %lu)\n", line, condition, GetLastError());
  ++failures;
  return 0;
}

static void find(const char* name, void* target) {
  const FARPROC found = GetProcAddress(lib.module, name);
  if (found == NULL) fprintf(stderr, "%s is not exported\n", name);
  CHECK(found != NULL);
  memcpy(target, &found, sizeof found);
}

static int load(const wchar_t* name) {
  lib.module = LoadLibraryW(name);
  if (!CHECK(lib.module != NULL)) return 0;
#define FIND(result, name, arguments) find(#name, &lib.name);
  FUNCTIONS(FIND)
  return failures == 0;
}

static void unload(const wchar_t* name) {
  CHECK(FreeLibrary(lib.module));
  CHECK(GetModuleHandleW(name) == NULL); /* nothing holds it any longer */
}

/* --- Files ---------------------------------------------------------------------------------------------------- */

enum { PATH_ROOM = 600 };
typedef struct {
  wchar_t text[PATH_ROOM];
} Path;

static Path below(const wchar_t* folder, const wchar_t* name) {
  Path path;
  CHECK(wcslen(folder) + wcslen(name) + 2 <= PATH_ROOM);
  wcscat(wcscat(wcscpy(path.text, folder), L"\\"), name);
  return path;
}

static Path newFolder(const wchar_t* folder, const wchar_t* name) {
  const Path path = below(folder, name);
  CHECK(CreateDirectoryW(path.text, NULL));
  return path;
}

static int removeTree(const wchar_t* path) {
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileW(below(path, L"*").text, &entry);
  if (search == INVALID_HANDLE_VALUE) return GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES;
  do {
    const Path child = below(path, entry.cFileName);
    if (wcscmp(entry.cFileName, L".") == 0 || wcscmp(entry.cFileName, L"..") == 0) continue;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) removeTree(child.text);
    DeleteFileW(child.text);
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  return RemoveDirectoryW(path);
}

/* --- Two devices ---------------------------------------------------------------------------------------------- */

static const wchar_t* const key = L"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

static int keysAsked = 0;
static const wchar_t* __cdecl giveKey(const wchar_t* assetId) {
  CHECK(wcscmp(assetId, L"main") == 0);
  ++keysAsked;
  return key;
}

static void __cdecl noteProgress(void* context, const wchar_t* operation, const wchar_t* path, uint64_t done,
                                 uint64_t total) {
  CHECK(*operation && *path && done <= total && done == ++*(uint64_t*)context);
}

static void __cdecl countLine(void* cookie, const wchar_t* message, const wchar_t* logger, int level,
                              const wchar_t* thread, const wchar_t* thread2, unsigned long long seconds,
                              unsigned long microseconds, const wchar_t* file, const wchar_t* function, int line) {
  (void)thread, (void)thread2, (void)file, (void)function;
  CHECK(wcscmp(logger, L"SYNCPAIR") == 0 && *message && level > 0 && line > 0);
  CHECK(seconds > 1500000000 && microseconds < 1000000);
  ++*(int*)cookie;
}

/* A cycle of a pair below `base`, without a key until it is asked for one, or with it. */
static void runDevice(const wchar_t* base, const wchar_t* inside, const wchar_t* work, int withKey) {
  uint64_t progress = 0;
  wchar_t* told = NULL;
  kelsync_pair* pair = NULL;
  CHECK(lib.kelsync_init(&pair) == &pair && pair != NULL);
  lib.kelsync_set_source_folder(pair, below(base, inside).text);
  lib.kelsync_set_dest_folder(pair, below(base, L"out").text);
  lib.kelsync_set_temp_folder(pair, below(below(base, work).text, L"temp").text);
  lib.kelsync_set_state_path(pair, below(below(base, work).text, L"state").text);
  lib.kelsync_cb_register_progress(pair, noteProgress, &progress);
  lib.kelsync_cb_register_keynotfound(pair, giveKey);
  if (withKey) lib.kelsync_set_assetkey(pair, L"main", key);
  lib.kelsync_init_state(pair);
  lib.kelsync_sync_cycle(pair);
  CHECK(lib.kelsync_ok(pair) == 1 && progress == 1);
  CHECK(lib.kelsync_get_notifications_JSON(pair, &told) > 0 && told != NULL);
  CHECK(wcsstr(told, L"crypted Gr\u00fc\u00dfe.txt successfully") != NULL);
  lib.freeme(told);
  lib.kelsync_delete(pair);
}

static void twoDevices(const wchar_t* base) {
  const int askedBefore = keysAsked;
  char content[20] = "";
  char* text = NULL;
  FILE* file = _wfopen(below(newFolder(base, L"in").text, L"Gr\u00fc\u00dfe.txt").text, L"wb");
  CHECK(file != NULL && fputs("content", file) >= 0 && fclose(file) == 0);
  newFolder(base, L"out");
  newFolder(base, L"in2");
  newFolder(base, L"work");
  newFolder(base, L"work2");
  runDevice(base, L"in", L"work", 1);
  CHECK(keysAsked == askedBefore);
  runDevice(base, L"in2", L"work2", 0);
  CHECK(keysAsked > askedBefore);
  file = _wfopen(below(base, L"in2\\Gr\u00fc\u00dfe.txt").text, L"rb");
  CHECK(file != NULL && fgets(content, sizeof content, file) != NULL && fclose(file) == 0);
  CHECK(strcmp(content, "content") == 0);
  CHECK(lib.get_zip_meta_w(below(base, L"out\\Gr\u00fc\u00dfe.txt.kelta").text, L"__KELASSET_.json", NULL, &text) ==
        KELSYNC_ARCHIVE_OK);
  CHECK(text != NULL && strstr(text, "\"main\"") != NULL);
  lib.freeme(text);
}

/* The log goes below `base` as well: where it can be removed at the end, the library has let go of it. */
static void useLibrary(const wchar_t* base) {
  static int lines = 0; /* the appender stays as long as the library */
  kelsync_pair* pair = NULL;
  CHECK(CreateDirectoryW(base, NULL));
  CHECK(lib.kelsync_init(&pair) == &pair && pair != NULL);
  lib.kelsync_set_log_folder(pair, newFolder(base, L"log").text);
  CHECK(lib.log4cplus_logger_force_log(L"MINE", 20000, L"%d lines of the host's own", 1) == 0);
  CHECK(lib.log4cplus_logger_exists(L"MINE") && lib.log4cplus_logger_exists(L"SYNCPAIR"));
  CHECK(lib.log4cplus_add_callback_appender(L"SYNCPAIR", countLine, &lines) == 0);
  twoDevices(base);
  CHECK(lines > 0);
  lib.kelsync_delete(pair);
}

/* --- Threads -------------------------------------------------------------------------------------------------- */

typedef struct {
  Path base;
  HANDLE used; /* set when the thread has used the library... */
  HANDLE end;  /* ...and what it then waits for */
} User;

static DWORD WINAPI useOnThread(void* argument) {
  const User* const user = (const User*)argument;
  useLibrary(user->base.text);
  SetEvent(user->used);
  WaitForSingleObject(user->end, INFINITE);
  return 77;
}

static void join(HANDLE thread) {
  DWORD code = 0;
  CHECK(WaitForSingleObject(thread, 60000) == WAIT_OBJECT_0);
  CHECK(GetExitCodeThread(thread, &code) && code == 77);
  CloseHandle(thread);
}

static void threads(const wchar_t* dll, const wchar_t* folder) {
  User ends = {below(folder, L"one"), CreateEventW(NULL, TRUE, FALSE, NULL), CreateEventW(NULL, TRUE, TRUE, NULL)};
  User stays = {below(folder, L"two"), CreateEventW(NULL, TRUE, FALSE, NULL), CreateEventW(NULL, TRUE, FALSE, NULL)};
  join(CreateThread(NULL, 0, useOnThread, &ends, 0, NULL));
  const HANDLE staying = CreateThread(NULL, 0, useOnThread, &stays, 0, NULL);
  CHECK(WaitForSingleObject(stays.used, 60000) == WAIT_OBJECT_0);
  unload(dll);
  SetEvent(stays.end);
  join(staying);
}

static int run(const wchar_t* dll, const wchar_t* mode, const wchar_t* folder) {
  if (!load(dll)) return 1;
  if (wcscmp(mode, L"threads") == 0) {
    threads(dll, folder);
  } else {
    useLibrary(below(folder, L"one").text);
    if (wcscmp(mode, L"keep") == 0) return failures != 0;
    unload(dll);
    CHECK(removeTree(below(folder, L"one").text));
    if (load(dll)) {
      useLibrary(below(folder, L"two").text);
      unload(dll);
    }
  }
  CHECK(removeTree(folder));
  return failures != 0;
}

int wmain(int argc, wchar_t** argv) {
  wchar_t folder[PATH_ROOM];
  if (argc != 4 || !GetFullPathNameW(argv[3], PATH_ROOM, folder, NULL)) {
    fputs("usage: windows_host DLL keep|reload|threads FOLDER\n", stderr);
    return 2;
  }
  CHECK(removeTree(folder));
  CHECK(CreateDirectoryW(folder, NULL));
  return run(argv[1], argv[2], folder);
}
