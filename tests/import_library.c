/* SPDX-License-Identifier: Apache-2.0 */
/* A program that an import library links to the library. It needs no C runtime. */
#include <kelsyncpair/kelsyncpair.h>
#include <stddef.h>

int main(void) {
  kelsync_pair* pair = NULL;
  const int made = kelsync_init(&pair) == &pair && kelsync_ok(pair) == 1;
  kelsync_delete(pair);
  return made ? 0 : 1;
}
