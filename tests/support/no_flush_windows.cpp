// SPDX-License-Identifier: Apache-2.0
// Stands in the import table of the test program: a flush takes longer than making, writing and removing a small file,
// and the tests cut no power.
#include <windows.h>

#ifdef _WIN64
#define IMPORTED_FLUSH "__imp_FlushFileBuffers"
#else
#define IMPORTED_FLUSH "__imp__FlushFileBuffers@4"
#endif

namespace {

BOOL WINAPI flushNothing(HANDLE) { return TRUE; }

}  // namespace

extern "C" {
extern decltype(&FlushFileBuffers) const importedFlush __asm__(IMPORTED_FLUSH);
decltype(&FlushFileBuffers) const importedFlush = &flushNothing;
}
