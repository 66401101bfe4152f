/*
 * The application's side of an installation: obtains administrator rights, starts the installer, hands the rights over to
 * that process and to no other, and answers the installer's request to quit.
 *
 * Nothing here blocks, and nothing here makes a thread. A controller has one file descriptor: when it becomes readable,
 * call kelto_controller_dispatch(), which calls the handler with what has happened. Any event loop can watch the
 * descriptor.
 *
 * A controller belongs to one thread at a time. Paths and texts are UTF-8. Functions that return int return 0, or a
 * negative errno value when they were called in a way that cannot work; what goes wrong later is told by KELTO_FAILED.
 *
 *     static void happened(void* data, int event, int number, const char* text) { ... }
 *
 *     int main(int argc, char** argv) {
 *       int resumed = kelto_take_resume_argument(&argc, argv);
 *       kelto_controller* controller = kelto_controller_new("com.example.Editor", happened, NULL);
 *       ...
 *       kelto_controller_update(controller, "/tmp/download/Editor.app", "/opt/Editor.app");
 */
#ifndef KELTO_CONTROLLER_H
#define KELTO_CONTROLLER_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KELTO_API __attribute__((visibility("default")))

typedef struct kelto_controller kelto_controller;

/* The events. `number` and `text` depend on the event; `text` is English, for a log, never NULL, and valid
 * until the handler returns. Ignore an event that you do not know: later versions may have more. */
enum kelto_event {
  /* The user, or a rule of the administrator, gave the right. */
  KELTO_RIGHT_GRANTED = 1,
  /* `number`: the installer's process. */
  KELTO_INSTALLER_STARTED = 2,
  /* The installer has what it needs. It asks every running copy to quit a second later. */
  KELTO_RIGHTS_HANDED_OVER = 3,
  /* The installer, or the desktop, asks this application to quit. Ask the user about unsaved work first. */
  KELTO_QUIT_REQUESTED = 4,
  /* `number`: the installer's exit status, 0 for a finished job; -1 when it is not known; `text`: what it means. */
  KELTO_INSTALLER_ENDED = 5,
  /* `number`: one of kelto_error; `text`: the cause. The job has ended; another can be started. */
  KELTO_FAILED = 6,
  /* The application does not have its identifier as its bus name, so the installer cannot ask it to quit and closes its
   * windows instead. `number`: EBUSY while another process has the name, such as another copy, or this process over a
   * connection of its own; the controller takes it, without a further event, when that one gives it up. EINVAL when the
   * identifier cannot be a bus name; another errno value when the bus refuses it. `text`: the cause. Jobs go on. */
  KELTO_NAME_NOT_OWNED = 7
};

enum kelto_error {
  /* No broker on the system bus or the session bus. */
  KELTO_ERROR_NO_BROKER = 1,
  /* The user cancelled, or may not have the right. */
  KELTO_ERROR_DENIED = 2,
  /* The broker could not be asked, or failed. */
  KELTO_ERROR_BROKER = 3,
  /* The installer's bundle cannot be read, or its program cannot be started. */
  KELTO_ERROR_INSTALLER = 4,
  /* The installer ended, or did not listen within 10 seconds. */
  KELTO_ERROR_SILENT = 5,
  /* There is no session bus. */
  KELTO_ERROR_NO_SESSION_BUS = 6
};

typedef void (*kelto_handler)(void* data, int event, int number, const char* text);

/* A controller for the application whose bundle has that identifier. It takes the identifier as its name on the session bus
 * and offers the action "quit" there, so that the installer can ask; KELTO_NAME_NOT_OWNED tells when it cannot have the
 * name. NULL for an application that does both by itself, as one made with GApplication does. The handler is called from
 * kelto_controller_dispatch() only. NULL when out of memory or descriptors. */
KELTO_API kelto_controller* kelto_controller_new(const char* bundle_identifier, kelto_handler handler, void* data);

/* Gives up the bus name and the rights; an installer that has been started goes on. May be called by the handler. NULL is
 * allowed. */
KELTO_API void kelto_controller_free(kelto_controller* controller);

/* Readable when kelto_controller_dispatch() has something to do. Owned by the controller. */
KELTO_API int kelto_controller_fd(const kelto_controller* controller);

/* Does what can be done without waiting, and calls the handler for each event. A handler that runs an event loop of its
 * own, for a question to the user for instance, gets the next events while it runs. */
KELTO_API void kelto_controller_dispatch(kelto_controller* controller);

/* The installer's bundle. Without a call it is the one that the distribution's package installs. */
KELTO_API int kelto_controller_set_installer(kelto_controller* controller, const char* bundle_path);

/* Where the application's window is, so that the installer's window comes to lie over it: points, origin at the bottom left
 * of the primary screen. Without it the installer's window is centred. */
KELTO_API int kelto_controller_set_window_frame(kelto_controller* controller, double x, double y, double width,
                                                double height);

/* The name of the application's window: the installer's window becomes a dialog of it, until a copy of the application is
 * asked to quit. "x11:" and the window's number in hexadecimal, or "wayland:" and the handle that the compositor gave when
 * the application exported the window (zxdg_exporter_v2), which has to stay exported. NULL forgets an earlier name; -EINVAL
 * for a text of another form. A name that the display does not know has no effect. */
KELTO_API int kelto_controller_set_parent_window(kelto_controller* controller, const char* name);

/* Asks for the right now, before a download for instance. The jobs below ask by themselves when that was not done. */
KELTO_API int kelto_controller_obtain_right(kelto_controller* controller);

/* The jobs, with absolute paths. The new bundle is taken from where it is; the installed one is replaced, or moved to the
 * Trash. After an update the installer starts the new version, which kelto_take_resume_argument() tells. -EBUSY while
 * another job runs. */
KELTO_API int kelto_controller_install(kelto_controller* controller, const char* new_bundle, const char* installed_bundle);
KELTO_API int kelto_controller_update(kelto_controller* controller, const char* new_bundle, const char* installed_bundle);
KELTO_API int kelto_controller_remove(kelto_controller* controller, const char* installed_bundle);

/* Whether the installer started this process to finish an update. The arguments that say so are taken out of `argv`, so
 * that the application's own parser never meets them. Call it first in main(). */
KELTO_API int kelto_take_resume_argument(int* argc, char** argv);

/* The values of the record that the installer leaves of its last run. The last three are there for a failure only. */
enum kelto_last_run {
  KELTO_LAST_RUN_MODE = 1, /* "update", "install" or "remove" */
  KELTO_LAST_RUN_BUNDLE = 2,
  KELTO_LAST_RUN_OLD_VERSION = 3,
  KELTO_LAST_RUN_NEW_VERSION = 4,
  KELTO_LAST_RUN_STATUS = 5, /* the exit status, 0 for a finished job */
  KELTO_LAST_RUN_TIME = 6,   /* of the end, as "2026-11-20T10:20:30Z" */
  KELTO_LAST_RUN_STEP = 7,
  KELTO_LAST_RUN_PATH = 8,
  KELTO_LAST_RUN_CAUSE = 9 /* English, for a log */
};

/* Tells one of them, for a run that this user's installer has ended, also when another process started it. Writes the text
 * as snprintf() does, and returns its whole length; -ENOENT when there is no record, or no such value in it. */
KELTO_API int kelto_controller_last_run(int value, char* text, size_t size);

/* The version of the library that runs, as "major.minor.patch". */
KELTO_API const char* kelto_controller_version(void);

#ifdef __cplusplus
}
#endif

#endif
