/*
 * Connects to the service manager, lists the AI models, and updates the first one.
 *
 * KORVANE_DEVICE and KORVANE_APP_ID name the device and this application.
 */
#include <korvane_host.h>
#include <korvane_svcmgr.h>
#include <stdio.h>
#include <stdlib.h>

static int exit_status = EXIT_FAILURE;

/* Every answer comes in a callback, and every callback comes from inside the main loop. */
static void finish(int status) {
  exit_status = status;
  korvane_host_main_loop_quit();
}

static int succeeded(int error, const char *what) {
  if (error == SVCMGR_ERROR_NONE) return 1;
  fprintf(stderr, "%s: error %d\n", what, error);
  finish(EXIT_FAILURE);
  return 0;
}

/* Called for every report of the update; each report is ours to destroy. */
static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *user_data) {
  int state = 0, percentage = 0;
  (void)user_data;
  if (progress != NULL) {
    korvane_svcmgr_ai_progress_get_state(progress, &state);
    korvane_svcmgr_ai_progress_get_percentage(progress, &percentage);
    korvane_svcmgr_ai_progress_destroy(progress);
  } else if (result == SVCMGR_ERROR_NONE) {
    result = SVCMGR_ERROR_OUT_OF_MEMORY;
  }
  if (!succeeded(result, "update")) return;
  printf("%d %%\n", percentage);
  if (state == SVCMGR_AI_STATE_COMPLETED) finish(EXIT_SUCCESS);
  if (state == SVCMGR_AI_STATE_FAILED) succeeded(SVCMGR_ERROR_INVALID_OPERATION, "update");
}

/* Texts from the library are copies, released with free(). Not every model has a title. */
static void print_model(korvane_svcmgr_ai_model_info_h model) {
  char *id = NULL, *title = NULL;
  korvane_svcmgr_ai_model_info_get_id(model, &id);
  korvane_svcmgr_ai_model_info_get_title(model, &title);
  printf("%s: %s\n", id != NULL ? id : "(no ID)", title != NULL ? title : "(no title)");
  free(id);
  free(title);
}

/* Asks for an update of one model. The request copies what it needs of the list. */
static void update(korvane_svcmgr_ai_model_info_h model) {
  korvane_svcmgr_ai_model_list_h wanted = NULL;
  if (!succeeded(korvane_svcmgr_ai_model_list_create(&wanted), "list")) return;
  if (succeeded(korvane_svcmgr_ai_model_list_add(wanted, model), "list"))
    succeeded(korvane_svcmgr_ai_request_to_update(wanted, on_progress, NULL), "update");
  korvane_svcmgr_ai_model_list_destroy(wanted);
}

/* The list is ours to destroy, and so is every model taken from it. */
static void on_models(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
  int size = 0;
  (void)user_data;
  if (succeeded(result, "models") &&
      succeeded(korvane_svcmgr_ai_model_list_get_size(list, &size), "models") && size == 0)
    finish(EXIT_SUCCESS); /* nothing to update */
  for (int i = 0; i < size; ++i) {
    korvane_svcmgr_ai_model_info_h model = NULL;
    if (!succeeded(korvane_svcmgr_ai_model_list_get(list, i, &model), "models")) break;
    print_model(model);
    if (i == 0) update(model);
    korvane_svcmgr_ai_model_info_destroy(model);
  }
  if (list != NULL) korvane_svcmgr_ai_model_list_destroy(list);
}

/* A connection that is rejected or lost ends this program; the library would reconnect by itself.
 */
static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data) {
  (void)user_data;
  if (!succeeded(result, "connection")) return;
  if (state == SVCMGR_CONNECTION_CONNECTED)
    succeeded(korvane_svcmgr_ai_request_usable_model_list(on_models, NULL), "models");
  else
    succeeded(SVCMGR_ERROR_NOT_CONNECTED, "connection");
}

int main(void) {
  if (!succeeded(korvane_svcmgr_connect(on_connection, NULL), "connect")) return EXIT_FAILURE;
  succeeded(korvane_host_main_loop_run(), "main loop");
  korvane_svcmgr_disconnect();
  return exit_status;
}
