/*
 * Lists the AI models that the application can use, updates the first one to its newest version,
 * and lists them again.
 */
#include <korvane_host.h>
#include <korvane_svcmgr.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The time limit for each answer and for each report of an update. A service manager that was
   restarted does not answer earlier requests. */
static const int kLongestWaitMs = 60000;

/* The user data of every callback. */
typedef struct {
  bool updated; /* the first model has been updated */
  bool finished;
  int status;
} Job;

static void finish(Job *job, int status) {
  job->finished = true;
  job->status = status;
}

/* Ends the job unless error is SVCMGR_ERROR_NONE. */
static bool check(Job *job, int error, const char *what) {
  if (error == SVCMGR_ERROR_NONE) return true;
  fprintf(stderr, "%s: %s\n", what, korvane_svcmgr_error_text(error));
  finish(job, EXIT_FAILURE);
  return false;
}

static void on_models(int result, korvane_svcmgr_ai_model_list_h models, void *user_data);

/* Called for every report of the update; each report is ours to destroy. */
static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *user_data) {
  Job *job = user_data;
  int state = 0, percentage = 0;
  if (check(job, result, "update") &&
      check(job, korvane_svcmgr_ai_progress_get_state(progress, &state), "progress") &&
      check(job, korvane_svcmgr_ai_progress_get_percentage(progress, &percentage), "progress")) {
    printf("%d %%\n", percentage);
    fflush(stdout);
    job->updated = state == SVCMGR_AI_STATE_COMPLETED;
    if (job->updated)
      check(job, korvane_svcmgr_ai_request_usable_model_list(on_models, job), "list of models");
    if (state == SVCMGR_AI_STATE_FAILED) check(job, SVCMGR_ERROR_INVALID_OPERATION, "update");
  }
  if (progress != NULL) korvane_svcmgr_ai_progress_destroy(progress);
}

/*
 * A model without a version requests the newest one. The model in the list cannot be used: it has
 * the installed version, and an update to that version changes nothing.
 */
static void update_to_newest(Job *job, const char *id) {
  korvane_svcmgr_ai_model_info_h model = NULL;
  korvane_svcmgr_ai_model_list_h wanted = NULL;
  int error = korvane_svcmgr_ai_model_info_create(&model);
  if (error == SVCMGR_ERROR_NONE) error = korvane_svcmgr_ai_model_info_set_id(model, id);
  if (error == SVCMGR_ERROR_NONE) error = korvane_svcmgr_ai_model_list_create(&wanted);
  if (error == SVCMGR_ERROR_NONE) error = korvane_svcmgr_ai_model_list_add(wanted, model);
  if (error == SVCMGR_ERROR_NONE)
    error = korvane_svcmgr_ai_request_to_update(wanted, on_progress, job);
  check(job, error, "request of the update");
  /* The list and the request hold copies. */
  if (wanted != NULL) korvane_svcmgr_ai_model_list_destroy(wanted);
  if (model != NULL) korvane_svcmgr_ai_model_info_destroy(model);
}

/* Prints one entry of the list. Entry and texts are copies that are ours to release. */
static void show_model(Job *job, korvane_svcmgr_ai_model_list_h models, int index) {
  korvane_svcmgr_ai_model_info_h model = NULL;
  char *id = NULL, *version = NULL;
  if (check(job, korvane_svcmgr_ai_model_list_get(models, index, &model), "model") &&
      check(job, korvane_svcmgr_ai_model_info_get_id(model, &id), "ID of a model") &&
      check(job, korvane_svcmgr_ai_model_info_get_version(model, &version), "version of a model")) {
    printf("%s %s\n", id, version);
    if (index == 0 && !job->updated) update_to_newest(job, id);
  }
  free(id);
  free(version);
  if (model != NULL) korvane_svcmgr_ai_model_info_destroy(model);
}

/* The list is ours to destroy, whatever the result. */
static void on_models(int result, korvane_svcmgr_ai_model_list_h models, void *user_data) {
  Job *job = user_data;
  int size = 0;
  if (check(job, result, "list of models") &&
      check(job, korvane_svcmgr_ai_model_list_get_size(models, &size), "list of models")) {
    if (size == 0) puts("no models");
    for (int i = 0; i < size && !job->finished; ++i) show_model(job, models, i);
    if (!job->finished && (job->updated || size == 0)) finish(job, EXIT_SUCCESS);
  }
  if (models != NULL) korvane_svcmgr_ai_model_list_destroy(models);
}

/*
 * After a loss the library reconnects by itself, but open requests are never answered. This program
 * then ends.
 */
static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data) {
  Job *job = user_data;
  if (state == SVCMGR_CONNECTION_DISCONNECTED) result = SVCMGR_ERROR_NOT_CONNECTED;
  if (check(job, result, "connection"))
    check(job, korvane_svcmgr_ai_request_usable_model_list(on_models, job), "list of models");
}

/* All callbacks are called from inside the main loop: on a workstation, inside a step of it. */
static void run_main_loop(Job *job) {
  while (!job->finished) {
    const int delivered = korvane_host_main_loop_step(kLongestWaitMs);
    if (delivered == 0) {
      fputs("no answer; an update that has started continues in the service manager\n", stderr);
      finish(job, EXIT_FAILURE);
    } else if (delivered < 0) {
      fprintf(stderr, "main loop: %s\n", strerror(-delivered));
      finish(job, EXIT_FAILURE);
    }
  }
}

int main(int argc, char **argv) {
  Job job = {false, false, EXIT_FAILURE};
  if (argc > 1) {
    fprintf(stderr, "usage: KORVANE_DEVICE=DIRECTORY KORVANE_APP_ID=APPLICATION %s\n", argv[0]);
    return EXIT_FAILURE;
  }
  if (check(&job, korvane_svcmgr_connect(on_connection, &job), "connect")) run_main_loop(&job);
  korvane_svcmgr_disconnect();
  return job.status;
}
