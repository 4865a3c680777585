/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A host that finds the library and its functions by name, as hosts without an import library do:
 *     windows_host DLL MODE FOLDER      (FOLDER is emptied first)
 * unload, keep: a pair of devices, then with or without FreeLibrary; reload: the same twice in one process;
 * threads: on threads that end before and after FreeLibrary, and interruption; log: the log4cplus of the library.
 */
#include <kelsyncpair/kelsyncpair.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

#define FUNCTIONS(X)                                                                 \
  X(kelsync_pair**, kelsync_init, (kelsync_pair**))                                  \
  X(void, kelsync_delete, (kelsync_pair*))                                           \
  X(int, kelsync_ok, (kelsync_pair*))                                                \
  X(void, kelsync_interrupt, (kelsync_pair*))                                        \
  X(void, freeme, (void*))                                                           \
  X(void, kelsync_set_source_folder, (kelsync_pair*, const wchar_t*))                \
  X(void, kelsync_set_dest_folder, (kelsync_pair*, const wchar_t*))                  \
  X(void, kelsync_set_temp_folder, (kelsync_pair*, const wchar_t*))                  \
  X(void, kelsync_set_state_path, (kelsync_pair*, const wchar_t*))                   \
  X(void, kelsync_set_log_folder, (kelsync_pair*, const wchar_t*))                   \
  X(void, kelsync_set_compression_flag, (kelsync_pair*, int))                        \
  X(void, kelsync_set_assetkey, (kelsync_pair*, const wchar_t*, const wchar_t*))     \
  X(void, kelsync_cb_register_keynotfound, (kelsync_pair*, kelsync_keynotfound_cb))  \
  X(void, kelsync_cb_register_progress, (kelsync_pair*, kelsync_progress_cb, void*)) \
  X(void, kelsync_init_state, (kelsync_pair*))                                       \
  X(void, kelsync_sync_cycle, (kelsync_pair*))                                       \
  X(uint32_t, kelsync_get_notifications_JSON, (kelsync_pair*, wchar_t**))            \
  X(uint32_t, kelsync_quarantine_get_JSON, (kelsync_pair*, wchar_t**))               \
  X(int, get_zip_meta, (const char*, const char*, const char*, char**))              \
  X(int, get_zip_meta_w, (const wchar_t*, const wchar_t*, const wchar_t*, char**))   \
  X(int, log4cplus_str_configure, (const wchar_t*))                                  \
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
  path.text[0] = 0;
  if (wcslen(folder) + wcslen(name) + 2 > PATH_ROOM) return path;
  wcscpy(path.text, folder);
  wcscat(path.text, L"\\");
  wcscat(path.text, name);
  return path;
}

static Path withSlashes(Path path) {
  for (wchar_t* at = path.text; *at; ++at)
    if (*at == L'\\') *at = L'/';
  return path;
}

static void makeFolder(const wchar_t* path) { CHECK(CreateDirectoryW(path, NULL)); }

static void writeFile(const wchar_t* path, const char* content) {
  DWORD written = 0;
  const HANDLE file = CreateFileW(path, GENERIC_WRITE, 0, NULL, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, NULL);
  if (!CHECK(file != INVALID_HANDLE_VALUE)) return;
  CHECK(WriteFile(file, content, (DWORD)strlen(content), &written, NULL));
  CloseHandle(file);
}

/* The content, and the last-write time in seconds. */
static unsigned long long readFile(const wchar_t* path, char* content, DWORD room) {
  DWORD length = 0;
  FILETIME time = {0, 0};
  const HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
  content[0] = 0;
  if (!CHECK(file != INVALID_HANDLE_VALUE)) return 0;
  CHECK(ReadFile(file, content, room - 1, &length, NULL));
  CHECK(GetFileTime(file, NULL, NULL, &time));
  CloseHandle(file);
  content[length] = 0;
  return ((unsigned long long)time.dwHighDateTime << 32 | time.dwLowDateTime) / 10000000;
}

static int isThere(const wchar_t* path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

/* `path` begins with \\?\, so that long ones go as well. */
static int removeTree(const wchar_t* path) {
  WIN32_FIND_DATAW entry;
  const HANDLE search = FindFirstFileW(below(path, L"*").text, &entry);
  int done = 1;
  if (search == INVALID_HANDLE_VALUE) return !isThere(path);
  do {
    const Path child = below(path, entry.cFileName);
    if (wcscmp(entry.cFileName, L".") == 0 || wcscmp(entry.cFileName, L"..") == 0) continue;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      done = removeTree(child.text) && done;
    } else {
      SetFileAttributesW(child.text, FILE_ATTRIBUTE_NORMAL);
      done = DeleteFileW(child.text) && done;
    }
  } while (FindNextFileW(search, &entry));
  FindClose(search);
  return RemoveDirectoryW(path) && done;
}

static int removeAll(const wchar_t* folder) {
  wchar_t path[PATH_ROOM] = L"\\\\?\\";
  return removeTree(wcscat(path, folder));
}

/* --- Two devices ---------------------------------------------------------------------------------------------- */

static const wchar_t* const key = L"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

static const struct {
  const wchar_t* name;
  const char* content;
} files[] = {{L"plain.txt", "some plain content"},
             {L"Gr\u00fc\u00dfe \u6728.txt", "beyond ASCII"},
             {L"folder\\\U0001F600 \U00010348.txt", "beyond the basic plane"},
             {L"empty", ""}};
enum { FILE_COUNT = sizeof files / sizeof files[0] };

static int keysAsked = 0;
static const wchar_t* __cdecl giveKey(const wchar_t* assetId) {
  CHECK(wcscmp(assetId, L"main") == 0);
  ++keysAsked;
  return key;
}

typedef struct {
  unsigned long long dealtWith;
  HANDLE atFirst; /* where set: reports the first entry, then waits for `goOn` */
  HANDLE goOn;
} Progress;

static void __cdecl noteProgress(void* context, const wchar_t* operation, const wchar_t* path, uint64_t done,
                                 uint64_t total) {
  Progress* const progress = (Progress*)context;
  CHECK(*operation && *path && done <= total && done == progress->dealtWith + 1);
  progress->dealtWith = done;
  if (done != 1 || progress->atFirst == NULL) return;
  SetEvent(progress->atFirst);
  WaitForSingleObject(progress->goOn, INFINITE);
}

/* A new pair below `base`, whose folders are made where they are missing. */
static kelsync_pair* newPair(const wchar_t* base, const wchar_t* inside, const wchar_t* work, Progress* progress) {
  kelsync_pair* pair = NULL;
  CHECK(lib.kelsync_init(&pair) == &pair && pair != NULL);
  CreateDirectoryW(below(base, inside).text, NULL);
  CreateDirectoryW(below(base, L"out").text, NULL);
  makeFolder(below(base, work).text);
  lib.kelsync_set_source_folder(pair, below(base, inside).text);
  lib.kelsync_set_dest_folder(pair, withSlashes(below(base, L"out")).text);
  lib.kelsync_set_temp_folder(pair, below(below(base, work).text, L"temp").text);
  lib.kelsync_set_state_path(pair, below(below(base, work).text, L"state").text);
  lib.kelsync_cb_register_progress(pair, noteProgress, progress);
  return pair;
}

static void checkList(kelsync_pair* pair, uint32_t(__cdecl* get)(kelsync_pair*, wchar_t**), const wchar_t* name,
                      const wchar_t* expected) {
  wchar_t* text = NULL;
  const uint32_t length = get(pair, &text);
  if (!CHECK(text != NULL)) return;
  CHECK(wcslen(text) == length);
  CHECK(wcsncmp(text, L"{\"", 2) == 0 && wcsstr(text, name) == text + 2);
  CHECK(wcsstr(text, expected) != NULL);
  lib.freeme(text);
}

static void checkMetadata(const wchar_t* archive) {
  char narrow[PATH_ROOM];
  char* text = NULL;
  CHECK(lib.get_zip_meta_w(archive, L"__KELASSET_.json", NULL, &text) == KELSYNC_ARCHIVE_OK);
  CHECK(text != NULL && strstr(text, "\"main\"") != NULL);
  lib.freeme(text);
  text = NULL;
  CHECK(WideCharToMultiByte(CP_ACP, 0, archive, -1, narrow, PATH_ROOM, NULL, NULL) > 0);
  CHECK(lib.get_zip_meta(narrow, "__KELASSET_.json", NULL, &text) == KELSYNC_ARCHIVE_OK && text != NULL);
  lib.freeme(text);
}

static void firstDevice(const wchar_t* base) {
  Progress progress = {0, NULL, NULL};
  wchar_t longName[251];
  kelsync_pair* const pair = newPair(base, L"in", L"work", &progress);
  makeFolder(below(base, L"in\\folder").text);
  for (int i = 0; i < FILE_COUNT; ++i) writeFile(below(below(base, L"in").text, files[i].name).text, files[i].content);
  for (int i = 0; i < 250; ++i) longName[i] = L'n';
  longName[250] = 0;
  writeFile(below(below(below(L"\\\\?", base).text, L"in\\folder").text, longName).text, "too long a path");
  writeFile(below(base, L"out\\bad.txt.kelta").text, "no archive");

  lib.kelsync_set_compression_flag(pair, 1);
  lib.kelsync_set_assetkey(pair, L"main", key);
  lib.kelsync_init_state(pair);
  lib.kelsync_sync_cycle(pair);
  CHECK(lib.kelsync_ok(pair) == 1);
  CHECK(progress.dealtWith == FILE_COUNT + 2); /* the folder and the bad archive as well */
  for (int i = 0; i < FILE_COUNT; ++i) {
    const Path archive = below(below(base, L"out").text, files[i].name);
    CHECK(isThere(wcscat((wchar_t*)archive.text, L".kelta")));
  }
  checkMetadata(below(base, L"out\\plain.txt.kelta").text);
  checkList(pair, lib.kelsync_get_notifications_JSON, L"notifications", L"bad.txt");
  checkList(pair, lib.kelsync_quarantine_get_JSON, L"quarantined", L"path-issue");
  lib.kelsync_delete(pair);
}

static void secondDevice(const wchar_t* base) {
  Progress progress = {0, NULL, NULL};
  kelsync_pair* const pair = newPair(base, L"in2", L"work2", &progress);
  const int askedBefore = keysAsked;
  lib.kelsync_cb_register_keynotfound(pair, giveKey);
  lib.kelsync_init_state(pair);
  lib.kelsync_sync_cycle(pair);
  CHECK(lib.kelsync_ok(pair) == 1);
  CHECK(keysAsked > askedBefore);
  for (int i = 0; i < FILE_COUNT; ++i) {
    char content[2][100];
    const unsigned long long sent = readFile(below(below(base, L"in").text, files[i].name).text, content[0], 100);
    const unsigned long long arrived = readFile(below(below(base, L"in2").text, files[i].name).text, content[1], 100);
    CHECK(strcmp(content[1], files[i].content) == 0 && arrived == sent);
  }
  lib.kelsync_delete(pair);
}

/* The log goes below `base` as well: where it can be removed at the end, the library has let go of it. */
static void twoDevices(const wchar_t* base) {
  kelsync_pair* pair = NULL;
  makeFolder(base);
  makeFolder(below(base, L"log").text);
  lib.kelsync_init(&pair);
  lib.kelsync_set_log_folder(pair, below(base, L"log").text);
  firstDevice(base);
  secondDevice(base);
  lib.kelsync_delete(pair);
  CHECK(isThere(below(base, L"log\\syncpair.log").text));
}

/* --- Threads -------------------------------------------------------------------------------------------------- */

typedef struct {
  const wchar_t* base;
  HANDLE used; /* set when the thread has used the library... */
  HANDLE end;  /* ...and what it then waits for, where set */
} User;

static DWORD WINAPI useOnThread(void* argument) {
  const User* const user = (const User*)argument;
  twoDevices(user->base);
  SetEvent(user->used);
  if (user->end != NULL) WaitForSingleObject(user->end, INFINITE);
  return 77;
}

static void join(HANDLE thread, DWORD expected) {
  DWORD code = 0;
  CHECK(WaitForSingleObject(thread, 60000) == WAIT_OBJECT_0);
  CHECK(GetExitCodeThread(thread, &code) && code == expected);
  CloseHandle(thread);
}

static HANDLE newEvent(void) { return CreateEventW(NULL, TRUE, FALSE, NULL); }

static DWORD WINAPI cycleOnThread(void* pair) {
  lib.kelsync_sync_cycle((kelsync_pair*)pair);
  return 78;
}

/* What was under way is finished or gone, the rest is for the next cycle. */
static void interruptOneThatWorks(const wchar_t* base) {
  Progress progress = {0, newEvent(), newEvent()};
  HANDLE thread = NULL;
  makeFolder(base);
  kelsync_pair* const pair = newPair(base, L"in", L"work", &progress);
  writeFile(below(base, L"in\\a.txt").text, "first");
  writeFile(below(base, L"in\\b.txt").text, "second");
  lib.kelsync_set_assetkey(pair, L"main", key);
  lib.kelsync_init_state(pair);
  thread = CreateThread(NULL, 0, cycleOnThread, pair, 0, NULL);
  CHECK(WaitForSingleObject(progress.atFirst, 60000) == WAIT_OBJECT_0);
  lib.kelsync_interrupt(pair);
  SetEvent(progress.goOn);
  join(thread, 78);
  CHECK(isThere(below(base, L"out\\a.txt.kelta").text));
  CHECK(!isThere(below(base, L"out\\b.txt.kelta").text));
  progress.dealtWith = 0;
  lib.kelsync_sync_cycle(pair);
  CHECK(isThere(below(base, L"out\\b.txt.kelta").text));
  CHECK(lib.kelsync_ok(pair) == 1);
  lib.kelsync_delete(pair);
}

static void threads(const wchar_t* dll, const wchar_t* folder) {
  const Path base[3] = {below(folder, L"one"), below(folder, L"two"), below(folder, L"three")};
  const User ends = {base[0].text, newEvent(), NULL};
  const User stays = {base[1].text, newEvent(), newEvent()};
  join(CreateThread(NULL, 0, useOnThread, (void*)&ends, 0, NULL), 77);
  const HANDLE staying = CreateThread(NULL, 0, useOnThread, (void*)&stays, 0, NULL);
  CHECK(WaitForSingleObject(stays.used, 60000) == WAIT_OBJECT_0);
  interruptOneThatWorks(base[2].text);
  unload(dll);
  SetEvent(stays.end);
  join(staying, 77);
}

/* --- Log ------------------------------------------------------------------------------------------------------ */

static void __cdecl countLine(void* cookie, const wchar_t* message, const wchar_t* logger, int level,
                              const wchar_t* thread, const wchar_t* thread2, unsigned long long seconds,
                              unsigned long microseconds, const wchar_t* file, const wchar_t* function, int line) {
  (void)thread, (void)thread2, (void)file, (void)function;
  CHECK(wcscmp(logger, L"SYNCPAIR") == 0 && *message && level > 0 && line > 0);
  CHECK(seconds > 1500000000 && microseconds < 1000000);
  ++*(int*)cookie;
}

static void logOfTheLibrary(const wchar_t* folder) {
  wchar_t configuration[2 * PATH_ROOM] =
      L"log4cplus.rootLogger=INFO, HOST\nlog4cplus.appender.HOST=log4cplus::FileAppender\n"
      L"log4cplus.appender.HOST.ImmediateFlush=true\nlog4cplus.appender.HOST.layout=log4cplus::PatternLayout\n"
      L"log4cplus.appender.HOST.layout.ConversionPattern=%c|%m%n\nlog4cplus.appender.HOST.File=";
  const Path file = below(folder, L"host.log");
  Progress progress = {0, NULL, NULL};
  char content[20000];
  int lines = 0;
  wcscat(wcscat(configuration, withSlashes(file).text), L"\n");
  CHECK(!lib.log4cplus_logger_exists(L"MINE"));
  CHECK(lib.log4cplus_str_configure(configuration) == 0);
  CHECK(lib.log4cplus_logger_force_log(L"MINE", 20000, L"%d lines of the host's own", 1) == 0);
  CHECK(lib.log4cplus_logger_exists(L"MINE"));
  CHECK(lib.log4cplus_add_callback_appender(L"SYNCPAIR", countLine, &lines) == 0);

  kelsync_pair* const pair = newPair(folder, L"in", L"work", &progress);
  writeFile(below(folder, L"in\\a.txt").text, "content");
  lib.kelsync_set_assetkey(pair, L"main", key);
  lib.kelsync_init_state(pair);
  lib.kelsync_sync_cycle(pair);
  lib.kelsync_delete(pair);
  CHECK(lines > 0 && lib.log4cplus_logger_exists(L"SYNCPAIR"));
  readFile(file.text, content, sizeof content);
  CHECK(strstr(content, "MINE|1 lines of the host's own") != NULL);
  CHECK(strstr(content, "SYNCPAIR|") != NULL);
}

static int run(const wchar_t* dll, const wchar_t* mode, const wchar_t* folder) {
  if (!load(dll)) return 1;
  if (wcscmp(mode, L"threads") == 0) {
    threads(dll, folder);
  } else if (wcscmp(mode, L"log") == 0) {
    logOfTheLibrary(folder);
    unload(dll);
  } else {
    twoDevices(below(folder, L"one").text);
    if (wcscmp(mode, L"keep") == 0) return failures != 0;
    unload(dll);
    CHECK(removeAll(below(folder, L"one").text));
    if (wcscmp(mode, L"reload") == 0 && load(dll)) {
      twoDevices(below(folder, L"two").text);
      unload(dll);
    }
  }
  CHECK(removeAll(folder));
  return failures != 0;
}

int wmain(int argc, wchar_t** argv) {
  wchar_t folder[PATH_ROOM];
  if (argc != 4 || !GetFullPathNameW(argv[3], PATH_ROOM, folder, NULL)) {
    fputs("usage: windows_host DLL unload|keep|reload|threads|log FOLDER\n", stderr);
    return 2;
  }
  CHECK(removeAll(folder));
  makeFolder(folder);
  return run(argv[1], argv[2], folder);
}
