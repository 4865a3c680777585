// SPDX-License-Identifier: Apache-2.0
// What the library does when it is loaded, when a thread ends, and when it goes.
#include <windows.h>
// after windows.h
#include <openssl/crypto.h>

namespace {

// By itself the OpenSSL that is linked in registers its clean-up with the process, which would call into a library that
// was unloaded meanwhile.
bool keepCleanUpHere() { return OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1; }

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID atProcessEnd) {
  if (reason == DLL_PROCESS_ATTACH) return keepCleanUpHere();
  if (reason == DLL_THREAD_DETACH) OPENSSL_thread_stop();
  if (reason == DLL_PROCESS_DETACH && !atProcessEnd) OPENSSL_cleanup();
  return TRUE;
}
