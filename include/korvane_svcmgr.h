/**
 * @file korvane_svcmgr.h
 * Client API of the device's service manager.
 *
 * The service manager is a system application that manages agents (service
 * packages) and the AI models that agents provide. This library connects an
 * application to it:
 *
 * @code
 * static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data)
 * {
 *     int level = 0;
 *     if (state == SVCMGR_CONNECTION_CONNECTED &&
 *         korvane_svcmgr_get_agent_api_level(&level) == SVCMGR_ERROR_NONE)
 *         printf("agent API level %d\n", level);
 * }
 *
 * int error = korvane_svcmgr_connect(on_connection, NULL);
 * // ... run the application's main loop ...
 * korvane_svcmgr_disconnect();
 * @endcode
 *
 * @par Errors
 * Every function returns an error code of #korvane_svcmgr_error_e as an int:
 * 0 is success, every failure is negative. Out arguments are written only on
 * success. Every function first checks that the service manager is installed;
 * if it is not, the function does nothing and returns
 * #SVCMGR_ERROR_NOT_SUPPORTED. Two codes are possible even where they are not
 * listed: #SVCMGR_ERROR_OUT_OF_MEMORY, after which nothing has changed, and
 * #SVCMGR_ERROR_INVALID_OPERATION for an internal failure. A function that
 * connects, calls the service manager or reads files may report such a failure
 * as a connection, call or file error instead. No C++ exception leaves the
 * library.
 *
 * @par Threads
 * The library starts no thread and does not lock its state. Call every function
 * from the thread that runs the application's main loop, unless its description
 * says otherwise. Every callback is called on that thread, from inside the main
 * loop. Each handle belongs to one thread at a time. Callbacks may call any function of the
 * library, also korvane_svcmgr_disconnect(). They must not throw.
 *
 * @par Processes
 * A connection belongs to the process that made it. A child made by fork() must
 * not use it, and should call exec or _exit at once. On the workstation platform
 * no call of such a child reaches the service manager. Requests fail, but
 * korvane_svcmgr_get_license_fulltext() succeeds without a text,
 * korvane_svcmgr_is_being_updated() returns the last state of the parent, and
 * korvane_svcmgr_connect() returns #SVCMGR_ERROR_ALREADY_CONNECTED. After
 * korvane_svcmgr_disconnect() the child may connect for itself; the parent's
 * connection is not affected. Other platforms may end the parent's connection.
 *
 * A connection need not be ended before the process exits. After main() has
 * returned or exit() was called, call only the functions that destroy handles.
 * dlclose() neither unloads the library nor ends the connection.
 *
 * @par Ownership
 * Texts given to the library are copied. Texts returned by the library are
 * heap copies that the application releases with free(). Handles belong to the
 * application from the successful create, or from the callback that delivers
 * them, until it destroys them.
 */
#ifndef KORVANE_SVCMGR_H_
#define KORVANE_SVCMGR_H_

#include <stdbool.h>

/**
 * @defgroup version Version
 * @{
 */

/** Incremented for changes that break existing applications. */
#define KORVANE_SVCMGR_VERSION_MAJOR 1
/** Incremented for additions. */
#define KORVANE_SVCMGR_VERSION_MINOR 0
/** Incremented for bug fixes. */
#define KORVANE_SVCMGR_VERSION_PATCH 0

/** A version as one number. Later versions have greater numbers. Each part is at most 999. */
#define KORVANE_SVCMGR_MAKE_VERSION(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))

/**
 * The version of this header, to compare:
 *
 * @code
 * #if KORVANE_SVCMGR_VERSION >= KORVANE_SVCMGR_MAKE_VERSION(1, 1, 0)
 * @endcode
 */
#define KORVANE_SVCMGR_VERSION                                                            \
  KORVANE_SVCMGR_MAKE_VERSION(KORVANE_SVCMGR_VERSION_MAJOR, KORVANE_SVCMGR_VERSION_MINOR, \
                              KORVANE_SVCMGR_VERSION_PATCH)

/** The version of this header as a text, "1.0.0" for example. */
#define KORVANE_SVCMGR_VERSION_TEXT                                                       \
  KORVANE_SVCMGR_VERSION_JOIN(KORVANE_SVCMGR_VERSION_MAJOR, KORVANE_SVCMGR_VERSION_MINOR, \
                              KORVANE_SVCMGR_VERSION_PATCH)

/** @cond */
#define KORVANE_SVCMGR_VERSION_JOIN(major, minor, patch) \
  KORVANE_SVCMGR_VERSION_JOIN_(major, minor, patch)
#define KORVANE_SVCMGR_VERSION_JOIN_(major, minor, patch) #major "." #minor "." #patch
/** @endcond */

/** @} */

#if defined(__GNUC__)
#define SVCMGR_API __attribute__((visibility("default")))
#else
#define SVCMGR_API
#endif

/** @cond */
#ifdef __cplusplus
#define KORVANE_SVCMGR_INLINE inline
#else
#define KORVANE_SVCMGR_INLINE static inline
#endif
/** @endcond */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup errors Errors
 * @{
 */

/** Error codes: signed 32-bit values, 0 or negative. */
typedef enum {
  /** Success. */
  SVCMGR_ERROR_NONE = 0,
  /** The connection could not be started: the service manager does not run, or an I/O error. */
  SVCMGR_ERROR_CONNECTION_FAILED = -1,
  /** Memory ran out; nothing has changed. */
  SVCMGR_ERROR_OUT_OF_MEMORY = -12,
  /** The platform or the service manager denies the connection or the request. */
  SVCMGR_ERROR_PERMISSION_DENIED = -13,
  /** A required pointer is null, or no agent provides the requested category. */
  SVCMGR_ERROR_INVALID_PARAMETER = -22,
  /** The service manager has no space left for the request. */
  SVCMGR_ERROR_NO_SPACE = -28,
  /** The operation failed in a way that has no code of its own, or a field is not set. */
  SVCMGR_ERROR_INVALID_OPERATION = -38,
  /** korvane_svcmgr_connect() while connected. */
  SVCMGR_ERROR_ALREADY_CONNECTED = -106,
  /** The function needs the connection, and there is none; or an update request failed. */
  SVCMGR_ERROR_NOT_CONNECTED = -107,
  /** The service manager is not installed, or the client API level cannot be found (0xC0000002). */
  SVCMGR_ERROR_NOT_SUPPORTED = -1073741822,
  /** The agent API level could not be obtained (0xBFFFFFFF). */
  SVCMGR_ERROR_INVALID_API_LEVEL = -1073741825,
  /** The QEL scheme is disabled on the device (0xBFFFFFFE). */
  SVCMGR_ERROR_QEL_DISABLED = -1073741826,
  /** The installed service manager is too old, or its version cannot be read (0xBFFFFFFD). */
  SVCMGR_ERROR_NOT_SUPPORTED_VERSION = -1073741827,
  /** The service manager ended the request with its result 6 (0xBFFFFFFB). */
  SVCMGR_ERROR_SERVICE_CODE_6 = -1073741829,
  /** An index lies outside the list (0xBFFFFFFA). */
  SVCMGR_ERROR_OUT_OF_INDEX = -1073741830,
  /** The service manager is already updating (0xBFFFFFF9). */
  SVCMGR_ERROR_UPDATE_IN_PROGRESS = -1073741831
} korvane_svcmgr_error_e;

/**
 * The name of an error code, "SVCMGR_ERROR_NOT_CONNECTED" for example. Any thread may call it.
 *
 * @param code an error code
 * @return the enumerator, or "UNKNOWN" when code is none of #korvane_svcmgr_error_e
 */
KORVANE_SVCMGR_INLINE const char *korvane_svcmgr_error_name(int code) {
  switch ((korvane_svcmgr_error_e)code) {
    case SVCMGR_ERROR_NONE:
      return "SVCMGR_ERROR_NONE";
    case SVCMGR_ERROR_CONNECTION_FAILED:
      return "SVCMGR_ERROR_CONNECTION_FAILED";
    case SVCMGR_ERROR_OUT_OF_MEMORY:
      return "SVCMGR_ERROR_OUT_OF_MEMORY";
    case SVCMGR_ERROR_PERMISSION_DENIED:
      return "SVCMGR_ERROR_PERMISSION_DENIED";
    case SVCMGR_ERROR_INVALID_PARAMETER:
      return "SVCMGR_ERROR_INVALID_PARAMETER";
    case SVCMGR_ERROR_NO_SPACE:
      return "SVCMGR_ERROR_NO_SPACE";
    case SVCMGR_ERROR_INVALID_OPERATION:
      return "SVCMGR_ERROR_INVALID_OPERATION";
    case SVCMGR_ERROR_ALREADY_CONNECTED:
      return "SVCMGR_ERROR_ALREADY_CONNECTED";
    case SVCMGR_ERROR_NOT_CONNECTED:
      return "SVCMGR_ERROR_NOT_CONNECTED";
    case SVCMGR_ERROR_NOT_SUPPORTED:
      return "SVCMGR_ERROR_NOT_SUPPORTED";
    case SVCMGR_ERROR_INVALID_API_LEVEL:
      return "SVCMGR_ERROR_INVALID_API_LEVEL";
    case SVCMGR_ERROR_QEL_DISABLED:
      return "SVCMGR_ERROR_QEL_DISABLED";
    case SVCMGR_ERROR_NOT_SUPPORTED_VERSION:
      return "SVCMGR_ERROR_NOT_SUPPORTED_VERSION";
    case SVCMGR_ERROR_SERVICE_CODE_6:
      return "SVCMGR_ERROR_SERVICE_CODE_6";
    case SVCMGR_ERROR_OUT_OF_INDEX:
      return "SVCMGR_ERROR_OUT_OF_INDEX";
    case SVCMGR_ERROR_UPDATE_IN_PROGRESS:
      return "SVCMGR_ERROR_UPDATE_IN_PROGRESS";
  }
  return "UNKNOWN";
}

/**
 * The meaning of an error code, to print. Any thread may call it.
 *
 * @code
 * fprintf(stderr, "connect: %s\n", korvane_svcmgr_error_text(error));
 * @endcode
 *
 * @param code an error code
 * @return a phrase in English without a full stop
 */
KORVANE_SVCMGR_INLINE const char *korvane_svcmgr_error_text(int code) {
  switch ((korvane_svcmgr_error_e)code) {
    case SVCMGR_ERROR_NONE:
      return "success";
    case SVCMGR_ERROR_CONNECTION_FAILED:
      return "the connection could not be started; the service manager does not run";
    case SVCMGR_ERROR_OUT_OF_MEMORY:
      return "memory ran out";
    case SVCMGR_ERROR_PERMISSION_DENIED:
      return "the platform or the service manager denies it";
    case SVCMGR_ERROR_INVALID_PARAMETER:
      return "an argument is not valid, or no agent provides the category";
    case SVCMGR_ERROR_NO_SPACE:
      return "the service manager has no space left";
    case SVCMGR_ERROR_INVALID_OPERATION:
      return "the operation failed in a way that has no code of its own";
    case SVCMGR_ERROR_ALREADY_CONNECTED:
      return "the library is connected already";
    case SVCMGR_ERROR_NOT_CONNECTED:
      return "the library is not connected, or an update request failed";
    case SVCMGR_ERROR_NOT_SUPPORTED:
      return "the service manager is not installed, or the client API level cannot be found";
    case SVCMGR_ERROR_INVALID_API_LEVEL:
      return "the agent API level could not be obtained";
    case SVCMGR_ERROR_QEL_DISABLED:
      return "the QEL scheme is disabled on the device";
    case SVCMGR_ERROR_NOT_SUPPORTED_VERSION:
      return "the installed service manager is too old for this, or its version cannot be read";
    case SVCMGR_ERROR_SERVICE_CODE_6:
      return "the service manager ended the request with its result 6";
    case SVCMGR_ERROR_OUT_OF_INDEX:
      return "an index lies outside its list";
    case SVCMGR_ERROR_UPDATE_IN_PROGRESS:
      return "the service manager is already updating";
  }
  return "a code that has no name";
}

/** @} */

/**
 * @defgroup connection Connection
 * @{
 */

/** What happened to the connection. */
typedef enum {
  /** The connection was made. */
  SVCMGR_CONNECTION_CONNECTED = 0,
  /** The connection was lost. */
  SVCMGR_CONNECTION_DISCONNECTED = 1,
  /** The service manager refused the connection. */
  SVCMGR_CONNECTION_REJECTED = 2
} korvane_svcmgr_connection_state_e;

/**
 * Receives what happened to the connection.
 *
 * The combinations are (#SVCMGR_ERROR_NONE, #SVCMGR_CONNECTION_CONNECTED),
 * (#SVCMGR_ERROR_NONE, #SVCMGR_CONNECTION_DISCONNECTED) and
 * (#SVCMGR_ERROR_PERMISSION_DENIED, #SVCMGR_CONNECTION_REJECTED).
 *
 * The library hides an update of the service manager that was announced:
 *
 * - The first loss after the announcement is not reported. When the service
 *   manager announces its launch, the library reconnects by itself.
 * - From then on new connections are not reported: neither this one, nor one
 *   after a later loss, nor one that the application starts. This ends with the
 *   next update request or update status. A further announcement starts it again.
 * - An update request or update status between announcement and loss cancels the
 *   announcement: the loss and the connection are reported. After an update status
 *   between loss and launch the connection is reported.
 * - All other losses and all rejections are reported.
 *
 * An update request counts when the application makes it while connected, even
 * if it is refused. An update status counts while a callback for it is
 * registered. korvane_svcmgr_is_being_updated() returns
 * #SVCMGR_ERROR_NOT_CONNECTED exactly while there is no connection, without
 * sending a message.
 *
 * @param result    an error code
 * @param state     what happened
 * @param user_data the pointer given to korvane_svcmgr_connect()
 */
typedef void (*korvane_svcmgr_connection_cb)(int result, korvane_svcmgr_connection_state_e state,
                                             void *user_data);

/**
 * Starts the connection to the service manager.
 *
 * Success means that the connection was started; the application is connected
 * when the callback receives #SVCMGR_CONNECTION_CONNECTED. Called again before
 * that, or after the connection was lost or rejected, it only replaces the
 * callback and the user data and returns success.
 *
 * After a loss the library reconnects when the service manager announces its
 * next launch, provided that the platform accepted the subscription to these
 * announcements. It tries once for each loss. If the reconnection cannot be
 * started, nothing is reported and later launches are ignored: the application
 * has to call this function again.
 *
 * Two conditions last until the process ends. A rejected connection, the first
 * one or a reconnection, stays rejected. If the platform fails to start a
 * connection with an error number that the library does not know, this function
 * succeeds, but no event follows.
 *
 * @param callback  called for every event of the connection, until the next connect; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the connection was started; or it is being made, was lost or was
 *                            rejected, and only the callback was replaced
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback is null
 * @retval #SVCMGR_ERROR_ALREADY_CONNECTED the library is connected; the callback stays as it was
 * @retval #SVCMGR_ERROR_CONNECTION_FAILED the service manager does not run, or an I/O error
 * @retval #SVCMGR_ERROR_PERMISSION_DENIED the platform denies the connection
 * @retval #SVCMGR_ERROR_INVALID_OPERATION any other inner failure to start the connection
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_connect(korvane_svcmgr_connection_cb callback, void *user_data);

/**
 * Ends the connection.
 *
 * The connection callback is not called. Open requests are dropped, and their
 * callbacks are never called. While the library is not connected, the function
 * succeeds and does nothing: it cancels neither a connection that is being made
 * nor the reconnection after a loss.
 *
 * @retval #SVCMGR_ERROR_NONE the connection has ended, or there was none
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_disconnect(void);

/** @} */

/**
 * @defgroup levels API levels and licence
 * @{
 */

/**
 * Gets the client API level of the calling application.
 *
 * It is the highest level in the marker sections of the ELF files in the
 * application's installation directory. Only the first marker of a file counts,
 * and level 0 counts as none. The function needs no connection.
 *
 * @param level receives the level, 1 to 65535; not null
 *
 * @retval #SVCMGR_ERROR_NONE the level was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER level is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED no file with a marker was found, the directory is not known
 * or cannot be read, or the service manager is not installed on the device
 *
 * The call blocks while it reads the directory.
 */
SVCMGR_API int korvane_svcmgr_get_client_api_level(int *level);

/**
 * Asks the service manager for the API level of the installed agent.
 *
 * @param level receives the level, any number that the service manager states; not null
 *
 * @retval #SVCMGR_ERROR_NONE the level was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER level is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED the library is not connected
 * @retval #SVCMGR_ERROR_QEL_DISABLED the QEL scheme is disabled on the device
 * @retval #SVCMGR_ERROR_INVALID_API_LEVEL the service manager knows no level, or the call failed
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 *
 * The call blocks until the service manager answers or the connection is lost.
 */
SVCMGR_API int korvane_svcmgr_get_agent_api_level(int *level);

/**
 * Asks the service manager for the full text of the agent's licence.
 *
 * When there is no text, or the call failed, the function succeeds without
 * writing through license: set the pointer to null beforehand.
 *
 * @code
 * char *text = NULL;
 * if (korvane_svcmgr_get_license_fulltext(&text) == SVCMGR_ERROR_NONE && text != NULL)
 *     puts(text);
 * free(text);
 * @endcode
 *
 * @param license receives a heap copy of the text, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the text was stored, or there is none and nothing was written
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER license is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED the library is not connected
 * @retval #SVCMGR_ERROR_QEL_DISABLED the QEL scheme is disabled on the device
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY the text could not be copied
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 *
 * The call blocks until the service manager answers or the connection is lost.
 */
SVCMGR_API int korvane_svcmgr_get_license_fulltext(char **license);

/** @} */

/**
 * @defgroup agent_lists Agent lists
 * @{
 */

/** An ordered list of agent names (package IDs). */
typedef struct korvane_svcmgr_agent_list_s *korvane_svcmgr_agent_list_h;

/**
 * Makes a new, empty agent list.
 *
 * @param list receives the list, released with korvane_svcmgr_agent_list_destroy(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the list was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; list is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_agent_list_create(korvane_svcmgr_agent_list_h *list);

/**
 * Releases a list and everything in it. The handle must not be used afterwards.
 *
 * @param list the list; not null
 *
 * @retval #SVCMGR_ERROR_NONE the list was released
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed; nothing was released
 */
SVCMGR_API int korvane_svcmgr_agent_list_destroy(korvane_svcmgr_agent_list_h list);

/**
 * Gets the number of entries.
 *
 * @param list the list; not null
 * @param size receives the number of entries, 0 or more; not null
 *
 * @retval #SVCMGR_ERROR_NONE the number was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or size is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_agent_list_get_size(korvane_svcmgr_agent_list_h list, int *size);

/**
 * Appends a copy of a name. Names are stored as they are: empty ones and duplicates too.
 *
 * @param list  the list; not null
 * @param agent the name; copied; not null
 *
 * @retval #SVCMGR_ERROR_NONE the name was appended
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or agent is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the list is unchanged
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_agent_list_add(korvane_svcmgr_agent_list_h list, const char *agent);

/**
 * Gets a copy of one name.
 *
 * @param list  the list; not null
 * @param index position from 0 to the size minus 1
 * @param agent receives a heap copy of the name, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or agent is null
 * @retval #SVCMGR_ERROR_OUT_OF_INDEX index is negative, or not below the size
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; agent is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_agent_list_get(korvane_svcmgr_agent_list_h list, int index,
                                             char **agent);

/** @} */

/**
 * @defgroup agent_updates Agent updates
 * @{
 */

/**
 * Asks the service manager to update all agents.
 *
 * Success means that the service manager accepted the request. The progress of
 * the update is reported to the callback of korvane_svcmgr_set_update_status_cb().
 *
 * @retval #SVCMGR_ERROR_NONE the request was accepted
 * @retval #SVCMGR_ERROR_QEL_DISABLED the QEL scheme is disabled on the device
 * @retval #SVCMGR_ERROR_PERMISSION_DENIED the service manager refuses the request
 * @retval #SVCMGR_ERROR_NOT_CONNECTED the library is not connected, the call failed, or the service
 *         manager answered with a result that has no code of its own
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 *
 * The call blocks until the service manager answers or the connection is lost.
 */
SVCMGR_API int korvane_svcmgr_request_update(void);

/**
 * Asks the service manager to update the agents of a list.
 *
 * Success means that the service manager accepted the request. The progress of
 * the update is reported to the callback of korvane_svcmgr_set_update_status_cb().
 *
 * @param list     the agents' names, read during the call only; may be empty; not null
 * @param reserved not used; pass null
 *
 * @retval #SVCMGR_ERROR_NONE the request was accepted
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 2.3, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list is null
 * @retval #SVCMGR_ERROR_PERMISSION_DENIED the service manager refuses the request
 * @retval #SVCMGR_ERROR_UPDATE_IN_PROGRESS the service manager is already updating
 * @retval #SVCMGR_ERROR_QEL_DISABLED the QEL scheme is disabled on the device
 * @retval #SVCMGR_ERROR_NOT_CONNECTED the library is not connected, the call failed, or the service
 *         manager answered with a result that has no code of its own
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 *
 * The call blocks until the service manager answers or the connection is lost.
 */
SVCMGR_API int korvane_svcmgr_request_update_with_list(korvane_svcmgr_agent_list_h list,
                                                       void *reserved);

/** The status of an update of agents. */
typedef enum {
  /** An update started. */
  SVCMGR_UPDATE_STATUS_STARTED = 0,
  /** An update completed. */
  SVCMGR_UPDATE_STATUS_COMPLETED = 1,
  /** The update failed with failure code 1. */
  SVCMGR_UPDATE_STATUS_FAILED_CODE_1 = 2,
  /** The update failed with failure code 3. */
  SVCMGR_UPDATE_STATUS_FAILED_CODE_3 = 3,
  /** The update failed with failure code 7. */
  SVCMGR_UPDATE_STATUS_FAILED_CODE_7 = 4,
  /** The update failed with failure code 10. */
  SVCMGR_UPDATE_STATUS_FAILED_CODE_10 = 5,
  /** The update failed with any other code. */
  SVCMGR_UPDATE_STATUS_FAILED_OTHER = 6,
  /** The update failed with failure code 13. */
  SVCMGR_UPDATE_STATUS_FAILED_CODE_13 = 7
} korvane_svcmgr_update_status_e;

/**
 * Receives the status of updates of agents.
 *
 * The start of every update on the device is reported. Its end (completed or
 * failed) is reported only after this application requested an update, after a
 * reported start, or after the service manager announced its own update. Of
 * several ends in a row only the first is reported. A request counts when it was
 * made while connected, even if it was refused. The library regards the update as
 * ended after the callback has returned: for an update that is requested inside
 * the callback the start is reported, and the end only if the start was.
 *
 * @param status    what happened
 * @param user_data the pointer given to korvane_svcmgr_set_update_status_cb()
 */
typedef void (*korvane_svcmgr_update_status_cb)(korvane_svcmgr_update_status_e status,
                                                void *user_data);

/**
 * Registers the callback for update statuses, replacing an earlier one. Needs no connection.
 *
 * The function succeeds also when the platform refuses the subscription; the
 * callback is then not called before a later registration that the platform
 * accepts.
 *
 * @param callback  called for every update status, until it is unset; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the callback is stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback is null; an earlier one stays
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_set_update_status_cb(korvane_svcmgr_update_status_cb callback,
                                                   void *user_data);

/**
 * Removes the callback for update statuses. Succeeds also when none is registered.
 *
 * If the platform refuses to end the subscription, a callback that is registered
 * later receives every start twice.
 *
 * @retval #SVCMGR_ERROR_NONE no callback is registered
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_unset_update_status_cb(void);

/**
 * Asks whether an update is under way, as far as the library knows.
 *
 * The answer is true from the start of an update, or from the announcement of an
 * update of the service manager itself, until the end of an update. An update
 * request also sets it to false, accepted or not, until the next start or
 * announcement. The library receives starts and ends only while an update-status
 * callback is registered. It receives announcements only while connected, and
 * after a loss until the next launch.
 *
 * @param is_being_updated receives the answer; not null
 *
 * @retval #SVCMGR_ERROR_NONE the answer was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER is_being_updated is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED the library is not connected
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_is_being_updated(bool *is_being_updated);

/** @} */

/**
 * @defgroup model_info AI model info
 * @{
 */

/**
 * One AI model: ID, version, title and description.
 *
 * Each text is cut to its first 2048 bytes, without notice, whenever it is
 * copied in or out.
 */
typedef struct korvane_svcmgr_ai_model_info_s *korvane_svcmgr_ai_model_info_h;

/**
 * Makes a new model info without any text.
 *
 * @param info receives the model info, released with korvane_svcmgr_ai_model_info_destroy(); not
 * null
 *
 * @retval #SVCMGR_ERROR_NONE the model info was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; info is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_create(korvane_svcmgr_ai_model_info_h *info);

/**
 * Releases a model info and its texts. The handle must not be used afterwards.
 *
 * @param info the model info; not null
 *
 * @retval #SVCMGR_ERROR_NONE the model info was released
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed; nothing was released
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_destroy(korvane_svcmgr_ai_model_info_h info);

/**
 * Sets the model's ID, replacing an earlier one.
 *
 * @param info the model info; not null
 * @param id   the text; copied; may be empty; not null
 *
 * @retval #SVCMGR_ERROR_NONE the text is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or id is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the text is as before
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_set_id(korvane_svcmgr_ai_model_info_h info,
                                                   const char *id);

/**
 * Sets the model's version text, replacing an earlier one.
 *
 * @param info    the model info; not null
 * @param version the text; copied; may be empty; not null
 *
 * @retval #SVCMGR_ERROR_NONE the text is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or version is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the text is as before
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_set_version(korvane_svcmgr_ai_model_info_h info,
                                                        const char *version);

/**
 * Sets the model's title, replacing an earlier one.
 *
 * @param info  the model info; not null
 * @param title the text; copied; may be empty; not null
 *
 * @retval #SVCMGR_ERROR_NONE the text is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or title is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the text is as before
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_set_title(korvane_svcmgr_ai_model_info_h info,
                                                      const char *title);

/**
 * Sets the model's description, replacing an earlier one.
 *
 * @param info        the model info; not null
 * @param description the text; copied; may be empty; not null
 *
 * @retval #SVCMGR_ERROR_NONE the text is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or description is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the text is as before
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_set_description(korvane_svcmgr_ai_model_info_h info,
                                                            const char *description);

/**
 * Gets a copy of the model's ID.
 *
 * @param info the model info; not null
 * @param id   receives a heap copy, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or id is null
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the text was never set
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; id is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_get_id(korvane_svcmgr_ai_model_info_h info, char **id);

/**
 * Gets a copy of the model's version text.
 *
 * @param info    the model info; not null
 * @param version receives a heap copy, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or version is null
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the text was never set
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; version is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_get_version(korvane_svcmgr_ai_model_info_h info,
                                                        char **version);

/**
 * Gets a copy of the model's title.
 *
 * @param info  the model info; not null
 * @param title receives a heap copy, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or title is null
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the text was never set
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; title is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_get_title(korvane_svcmgr_ai_model_info_h info,
                                                      char **title);

/**
 * Gets a copy of the model's description.
 *
 * @param info        the model info; not null
 * @param description receives a heap copy, released by the caller with free(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER info or description is null
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the text was never set
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; description is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_info_get_description(korvane_svcmgr_ai_model_info_h info,
                                                            char **description);

/** @} */

/**
 * @defgroup model_lists AI model lists
 * @{
 */

/** An ordered list of model infos. */
typedef struct korvane_svcmgr_ai_model_list_s *korvane_svcmgr_ai_model_list_h;

/**
 * Makes a new, empty model list.
 *
 * @param list receives the list, released with korvane_svcmgr_ai_model_list_destroy(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the list was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; list is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_list_create(korvane_svcmgr_ai_model_list_h *list);

/**
 * Releases a list and everything in it. The handle must not be used afterwards.
 *
 * @param list the list; not null
 *
 * @retval #SVCMGR_ERROR_NONE the list was released
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed; nothing was released
 */
SVCMGR_API int korvane_svcmgr_ai_model_list_destroy(korvane_svcmgr_ai_model_list_h list);

/**
 * Gets the number of entries.
 *
 * @param list the list; not null
 * @param size receives the number of entries, 0 or more; not null
 *
 * @retval #SVCMGR_ERROR_NONE the number was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or size is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_list_get_size(korvane_svcmgr_ai_model_list_h list,
                                                     int *size);

/**
 * Appends a copy of a model info. The caller keeps its own.
 *
 * @param list the list; not null
 * @param info the model info; copied; not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was appended
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or info is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; the list is unchanged
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_list_add(korvane_svcmgr_ai_model_list_h list,
                                                korvane_svcmgr_ai_model_info_h info);

/**
 * Gets a copy of one entry.
 *
 * @param list  the list; not null
 * @param index position from 0 to the size minus 1
 * @param info  receives a copy, released by the caller with korvane_svcmgr_ai_model_info_destroy();
 * not null
 *
 * @retval #SVCMGR_ERROR_NONE the copy was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER list or info is null
 * @retval #SVCMGR_ERROR_OUT_OF_INDEX index is negative, or not below the size
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; info is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_model_list_get(korvane_svcmgr_ai_model_list_h list, int index,
                                                korvane_svcmgr_ai_model_info_h *info);

/** @} */

/**
 * @defgroup progress AI model progress
 * @{
 */

/**
 * One progress report: state, index, count and percentage.
 *
 * The values are the service manager's own, neither interpreted nor limited.
 */
typedef struct korvane_svcmgr_ai_progress_s *korvane_svcmgr_ai_progress_h;

/**
 * Makes a new progress report with all values 0.
 *
 * @param progress receives the report, released with korvane_svcmgr_ai_progress_destroy(); not null
 *
 * @retval #SVCMGR_ERROR_NONE the report was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_OUT_OF_MEMORY memory ran out; progress is untouched
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_create(korvane_svcmgr_ai_progress_h *progress);

/**
 * Releases a progress report. The handle must not be used afterwards.
 *
 * @param progress the report; not null
 *
 * @retval #SVCMGR_ERROR_NONE the report was released
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed; nothing was released
 */
SVCMGR_API int korvane_svcmgr_ai_progress_destroy(korvane_svcmgr_ai_progress_h progress);

/**
 * Sets the state: the service manager's state code, see #korvane_svcmgr_ai_state_e.
 *
 * @param progress the report; not null
 * @param state    the value; any is stored
 *
 * @retval #SVCMGR_ERROR_NONE the value is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_set_state(korvane_svcmgr_ai_progress_h progress,
                                                    int state);

/**
 * Sets the index: position of the model that the report is about.
 *
 * @param progress the report; not null
 * @param index    the value; any is stored
 *
 * @retval #SVCMGR_ERROR_NONE the value is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_set_index(korvane_svcmgr_ai_progress_h progress,
                                                    int index);

/**
 * Sets the count: number of models of the request.
 *
 * @param progress the report; not null
 * @param count    the value; any is stored
 *
 * @retval #SVCMGR_ERROR_NONE the value is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_set_count(korvane_svcmgr_ai_progress_h progress,
                                                    int count);

/**
 * Sets the percentage: the progress of the model, in percent.
 *
 * @param progress   the report; not null
 * @param percentage the value; any is stored
 *
 * @retval #SVCMGR_ERROR_NONE the value is set
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_set_percentage(korvane_svcmgr_ai_progress_h progress,
                                                         int percentage);

/**
 * Gets the state: the service manager's state code, see #korvane_svcmgr_ai_state_e.
 *
 * @param progress the report; not null
 * @param state    receives the value; not null
 *
 * @retval #SVCMGR_ERROR_NONE the value was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress or state is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_get_state(korvane_svcmgr_ai_progress_h progress,
                                                    int *state);

/**
 * Gets the index: position of the model that the report is about.
 *
 * @param progress the report; not null
 * @param index    receives the value; not null
 *
 * @retval #SVCMGR_ERROR_NONE the value was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress or index is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_get_index(korvane_svcmgr_ai_progress_h progress,
                                                    int *index);

/**
 * Gets the count: number of models of the request.
 *
 * @param progress the report; not null
 * @param count    receives the value; not null
 *
 * @retval #SVCMGR_ERROR_NONE the value was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress or count is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_get_count(korvane_svcmgr_ai_progress_h progress,
                                                    int *count);

/**
 * Gets the percentage: the progress of the model, in percent.
 *
 * @param progress   the report; not null
 * @param percentage receives the value; not null
 *
 * @retval #SVCMGR_ERROR_NONE the value was stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER progress or percentage is null
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_progress_get_percentage(korvane_svcmgr_ai_progress_h progress,
                                                         int *percentage);

/** @} */

/**
 * @defgroup model_requests AI model requests
 * @{
 */

/**
 * Receives the answer to a request for a list of models.
 *
 * It is called for every answer of the service manager to the request, usually
 * one. It is not called after the connection was lost or ended: requests that are
 * open then stay unanswered, even if the loss is not reported because the service
 * manager updated itself. Applications therefore set a time limit of their own.
 *
 * All four texts of every model are set; a text may be empty.
 *
 * The result is one of #SVCMGR_ERROR_NONE, #SVCMGR_ERROR_UPDATE_IN_PROGRESS,
 * #SVCMGR_ERROR_NO_SPACE, #SVCMGR_ERROR_SERVICE_CODE_6,
 * #SVCMGR_ERROR_QEL_DISABLED, #SVCMGR_ERROR_PERMISSION_DENIED and, for every
 * other failure, #SVCMGR_ERROR_INVALID_OPERATION.
 *
 * @param result    an error code
 * @param list      the models; belongs to the application, which releases it with
 *                  korvane_svcmgr_ai_model_list_destroy(); null when it could not be made
 * @param user_data the pointer given to the request
 */
typedef void (*korvane_svcmgr_ai_model_list_cb)(int result, korvane_svcmgr_ai_model_list_h list,
                                                void *user_data);

/**
 * Receives one progress report of a model update or uninstallation.
 *
 * It is called for every report of the service manager. It is not called after
 * the connection was lost or ended, even if the loss is not reported because the
 * service manager updated itself. Applications therefore set a time limit of
 * their own, which starts again with every report.
 *
 * The result is one of #SVCMGR_ERROR_NONE, #SVCMGR_ERROR_UPDATE_IN_PROGRESS,
 * #SVCMGR_ERROR_NO_SPACE, #SVCMGR_ERROR_SERVICE_CODE_6,
 * #SVCMGR_ERROR_QEL_DISABLED, #SVCMGR_ERROR_PERMISSION_DENIED and, for every
 * other failure, #SVCMGR_ERROR_INVALID_OPERATION.
 *
 * @param result    an error code
 * @param progress  the report; belongs to the application, which releases it with
 *                  korvane_svcmgr_ai_progress_destroy(); null when it could not be made
 * @param user_data the pointer given to the request
 */
typedef void (*korvane_svcmgr_ai_progress_cb)(int result, korvane_svcmgr_ai_progress_h progress,
                                              void *user_data);

/**
 * Asks for the models that the calling application can use.
 *
 * @param callback  receives the list; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 1.7, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the calling application is not known, or the request
 * could not be sent
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_usable_model_list(korvane_svcmgr_ai_model_list_cb callback,
                                                           void *user_data);

/**
 * Asks for the models that the calling application can use, with their descriptions.
 *
 * @param callback  receives the list; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 1.7, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the calling application is not known, or the request
 * could not be sent
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_usable_model_list_with_description(
    korvane_svcmgr_ai_model_list_cb callback, void *user_data);

/**
 * Asks for the models of the agent that provides a category of AI service.
 *
 * @param callback  receives the list; not null
 * @param category  the category, compared whole and case-sensitively with what the agents state
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 2.3, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback or category is null, or no agent provides the
 * category
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the request could not be sent because the connection
 *         is still being made, or was lost or rejected
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_usable_model_list_with_category(
    korvane_svcmgr_ai_model_list_cb callback, const char *category, void *user_data);

/**
 * Asks for the versions of one model, as a list of models.
 *
 * @param model     the model; its ID must be set, the other texts are not used; read during the
 * call only; not null
 * @param callback  receives the list; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 1.7, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER model or callback is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the model has no ID, the calling application is not
 * known, or the request could not be sent
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_model_version_list(
    korvane_svcmgr_ai_model_info_h model, korvane_svcmgr_ai_model_list_cb callback,
    void *user_data);

/**
 * Asks the service manager to update the models of a list.
 *
 * The version of a model is the wanted version. If it is not set, an empty text
 * is sent and the service manager chooses, commonly the newest version. A model
 * from a list of usable models has the installed version, and a request for that
 * version changes nothing: create a new model info to ask for another one.
 *
 * @code
 * korvane_svcmgr_ai_model_info_create(&model);
 * korvane_svcmgr_ai_model_info_set_id(model, "vision.detect");
 * korvane_svcmgr_ai_model_list_create(&models);
 * korvane_svcmgr_ai_model_list_add(models, model);
 * korvane_svcmgr_ai_request_to_update(models, on_progress, NULL);
 * @endcode
 *
 * @param models    the models; their IDs must be set; titles and descriptions are not used; read
 * during the call only; not null
 * @param callback  receives every progress report; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 1.7, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER models or callback is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION a model has no ID, or the request could not be sent
 *         because the connection is still being made, or was lost or rejected
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_to_update(korvane_svcmgr_ai_model_list_h models,
                                                   korvane_svcmgr_ai_progress_cb callback,
                                                   void *user_data);

/**
 * Asks the service manager to uninstall the models of a list.
 *
 * @param models    the models; their IDs must be set, the other texts are not used; read during
 * the call only; not null
 * @param callback  receives every progress report; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the request was sent; the callback receives the outcome
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED_VERSION the installed service manager is older than 1.7, or
 * its version cannot be read; tested before the arguments
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER models or callback is null
 * @retval #SVCMGR_ERROR_NOT_CONNECTED no connection was started, or it was ended
 * @retval #SVCMGR_ERROR_INVALID_OPERATION a model has no ID, or the request could not be sent
 *         because the connection is still being made, or was lost or rejected
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_request_to_uninstall(korvane_svcmgr_ai_model_list_h models,
                                                      korvane_svcmgr_ai_progress_cb callback,
                                                      void *user_data);

/** @} */

/**
 * @defgroup model_status AI model status
 * @{
 */

/** States of a model update. */
typedef enum {
  /** A model update started. */
  SVCMGR_AI_STATE_START = 17,
  /** A model update completed. */
  SVCMGR_AI_STATE_COMPLETED = 20,
  /** A model update failed. */
  SVCMGR_AI_STATE_FAILED = 24
} korvane_svcmgr_ai_state_e;

/**
 * Receives the state of model updates on the device.
 *
 * @param result    always #SVCMGR_ERROR_NONE
 * @param state     what happened
 * @param user_data the pointer given to korvane_svcmgr_ai_register_status_cb()
 */
typedef void (*korvane_svcmgr_ai_status_cb)(int result, korvane_svcmgr_ai_state_e state,
                                            void *user_data);

/**
 * Registers the callback for model states, replacing an earlier one. Needs no connection.
 *
 * The function succeeds also when the platform refuses the subscription; the
 * callback is then not called before a later registration that the platform
 * accepts.
 *
 * @param callback  called for every model state, until it is deregistered; not null
 * @param user_data handed to the callback unchanged; may be null
 *
 * @retval #SVCMGR_ERROR_NONE the callback is stored
 * @retval #SVCMGR_ERROR_INVALID_PARAMETER callback is null; an earlier one stays
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_register_status_cb(korvane_svcmgr_ai_status_cb callback,
                                                    void *user_data);

/**
 * Removes the callback for model states. Succeeds also when none is registered.
 *
 * If the platform refuses to end the subscription, a callback that is registered
 * later receives every state twice.
 *
 * @retval #SVCMGR_ERROR_NONE no callback is registered
 * @retval #SVCMGR_ERROR_INVALID_OPERATION the platform refused to end the subscription; the
 * callback is removed all the same
 * @retval #SVCMGR_ERROR_NOT_SUPPORTED the service manager is not installed on the device
 */
SVCMGR_API int korvane_svcmgr_ai_deregister_status_cb(void);

/** @} */

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_SVCMGR_H_ */
