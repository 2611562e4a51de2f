/* The public header in a C program, and calls through it. */
#include <stdlib.h>
#include <string.h>

#include "korvane_svcmgr.h"

#if KORVANE_SVCMGR_VERSION < KORVANE_SVCMGR_MAKE_VERSION(0, 999, 999)
#error "a greater major number makes a later version"
#endif

_Static_assert(SVCMGR_ERROR_NOT_SUPPORTED == (int)0xC0000002, "error code");
_Static_assert(sizeof(korvane_svcmgr_ai_state_e) == sizeof(int), "as wide as int");

static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data) {
  *(int *)user_data = result + (int)state;
}

int main(void) {
  int heard = -1;
  char *name = NULL;
  korvane_svcmgr_agent_list_h list = NULL;
  const bool passed = strcmp(KORVANE_SVCMGR_VERSION_TEXT, BUILT_VERSION) == 0 &&
                      korvane_svcmgr_connect(on_connection, &heard) == SVCMGR_ERROR_NONE &&
                      korvane_svcmgr_agent_list_create(&list) == SVCMGR_ERROR_NONE &&
                      korvane_svcmgr_agent_list_add(list, "agent") == SVCMGR_ERROR_NONE &&
                      korvane_svcmgr_agent_list_get(list, 0, &name) == SVCMGR_ERROR_NONE &&
                      korvane_svcmgr_request_update() == SVCMGR_ERROR_NOT_CONNECTED &&
                      korvane_svcmgr_agent_list_destroy(list) == SVCMGR_ERROR_NONE;
  free(name);
  return passed ? EXIT_SUCCESS : EXIT_FAILURE;
}
