// Tells of every time a window is painted: paint_watch WINDOW prints "ready", then for each time a line with the seconds on
// the clock CLOCK_MONOTONIC, as the display server tells of it. Ends with its standard input.
#include <poll.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// False when the server has no such extension.
bool watch(xcb_connection_t* display, xcb_window_t window) {
  const auto* extension = xcb_get_extension_data(display, &xcb_damage_id);
  if (extension == nullptr || extension->present == 0) return false;
  std::free(xcb_damage_query_version_reply(display, xcb_damage_query_version(display, 1, 1), nullptr));
  xcb_damage_create(display, xcb_generate_id(display), window, XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
  return xcb_flush(display) > 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  xcb_connection_t* display = xcb_connect(nullptr, nullptr);
  if (xcb_connection_has_error(display) != 0) return 1;
  if (!watch(display, static_cast<xcb_window_t>(std::strtoul(argv[1], nullptr, 0)))) return 1;
  std::printf("ready\n");
  std::fflush(stdout);
  pollfd sources[] = {{0, POLLIN, 0}, {xcb_get_file_descriptor(display), POLLIN, 0}};
  while (poll(sources, 2, -1) > 0 && sources[0].revents == 0) {
    while (xcb_generic_event_t* event = xcb_poll_for_event(display)) {
      std::printf("%.6f\n", now());
      std::free(event);
    }
    std::fflush(stdout);
    if (xcb_connection_has_error(display) != 0) break;
  }
  xcb_disconnect(display);
  return 0;
}
