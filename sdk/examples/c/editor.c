/*
 * The smallest application that updates itself: an "editor" without a window, with an event loop of its own around poll().
 *
 *     editor update NEW_BUNDLE [INSTALLER]     replaces the bundle that it runs from
 *     editor remove [INSTALLER]                moves that bundle to the Trash
 *     editor                                   runs until it is asked to quit
 */
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <kelto/controller.h>

static int running = 1;

static void happened(void* data, int event, int number, const char* text) {
  (void)data;
  printf("%s (%d)\n", text, number);
  fflush(stdout);
  /* A real editor asks its user about unsaved work here. */
  if (event == KELTO_QUIT_REQUESTED) running = 0;
}

/* The bundle identifier, as in the information list. A test gives each run one of its own. */
static const char* identifier(void) {
  const char* given = getenv("EDITOR_IDENTIFIER");
  return given != NULL ? given : "com.example.Editor";
}

/* The bundle of this program: what stands before "/Contents/Linux/editor". */
static char* own_bundle(void) {
  char* path = realpath("/proc/self/exe", NULL);
  char* end = path != NULL ? strstr(path, "/Contents/Linux/") : NULL;
  if (end != NULL) *end = '\0';
  return path;
}

static int begin(kelto_controller* controller, int argc, char** argv) {
  const int is_update = argc > 2 && strcmp(argv[1], "update") == 0;
  const int is_removal = argc > 1 && strcmp(argv[1], "remove") == 0;
  const char* installer = argv[is_update ? 3 : 2];
  char* installed = own_bundle();
  int result = 0;
  if (!is_update && !is_removal) result = argc > 1 ? -EINVAL : 0;
  if (result == 0 && argc > 1 && installer != NULL) result = kelto_controller_set_installer(controller, installer);
  if (result == 0 && is_update) result = kelto_controller_update(controller, argv[2], installed);
  if (result == 0 && is_removal) result = kelto_controller_remove(controller, installed);
  free(installed);
  return result;
}

int main(int argc, char** argv) {
  const int resumed = kelto_take_resume_argument(&argc, argv);
  kelto_controller* controller = kelto_controller_new(identifier(), happened, NULL);
  int result;
  if (controller == NULL) return 1;
  if (resumed) puts("a new version runs");
  result = begin(controller, argc, argv);
  if (result < 0) fprintf(stderr, "%s: %s\n", argv[0], strerror(-result));
  while (result == 0 && running) {
    struct pollfd ready = {kelto_controller_fd(controller), POLLIN, 0};
    if (poll(&ready, 1, -1) > 0) kelto_controller_dispatch(controller);
  }
  kelto_controller_free(controller);
  return result < 0;
}
