/* SPDX-License-Identifier: Apache-2.0 */
/* hold_file_windows PATH alone|writer|reader: has the file open, says "held", and lets go when its input ends. */
#include <stdio.h>
#include <string.h>
#include <windows.h>

int main(int argc, char** argv) {
  HANDLE file;
  DWORD access = GENERIC_READ;
  DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE;
  if (argc != 3) return 2;
  if (strcmp(argv[2], "alone") == 0) share = 0;
  if (strcmp(argv[2], "writer") == 0) access = GENERIC_WRITE, share |= FILE_SHARE_DELETE;
  file = CreateFileA(argv[1], access, share, NULL, OPEN_EXISTING, 0, NULL);
  if (file == INVALID_HANDLE_VALUE) return 1;
  puts("held");
  fflush(stdout);
  while (getchar() != EOF) continue;
  CloseHandle(file);
  return 0;
}
