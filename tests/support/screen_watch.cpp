// Watches a part of the screen, as fast as the display server answers, and tells of every change.
//
//   screen_watch LEFT TOP WIDTH HEIGHT [FOLDER]
//
// Prints "ready", then for every picture that differs from the one before a line "NUMBER SECONDS": from 0 on, and on the
// clock CLOCK_MONOTONIC. FOLDER gets the pictures as NUMBER.ppm when the program is asked to end by closing its standard
// input. Needs a display of 24 bits of colour, as Xvfb makes it.
#include <poll.h>
#include <xcb/xcb.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using Pixels = std::vector<std::uint8_t>;
constexpr int bytesOfAPixel = 4;  // blue, green, red and one that counts for nothing

struct Area {
  std::int16_t left, top;
  std::uint16_t width, height;
};

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Pixels pixelsOf(xcb_connection_t* display, xcb_window_t root, const Area& area) {
  const auto question =
      xcb_get_image(display, XCB_IMAGE_FORMAT_Z_PIXMAP, root, area.left, area.top, area.width, area.height, ~0U);
  const std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> answer(xcb_get_image_reply(display, question, nullptr),
                                                                            std::free);
  if (!answer) return {};
  const auto* data = xcb_get_image_data(answer.get());
  return {data, data + xcb_get_image_data_length(answer.get())};
}

void write(const Pixels& pixels, const Area& area, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  file << "P6\n" << area.width << " " << area.height << "\n255\n";
  for (std::size_t at = 0; at + bytesOfAPixel <= pixels.size(); at += bytesOfAPixel)
    for (const std::size_t channel : {2, 1, 0}) file.put(static_cast<char>(pixels[at + channel]));
}

bool isToEnd() {
  pollfd input{0, POLLIN, 0};
  return poll(&input, 1, 1) != 0;  // a millisecond's rest for everybody else
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const Area area{static_cast<std::int16_t>(std::atoi(argv[1])), static_cast<std::int16_t>(std::atoi(argv[2])),
                  static_cast<std::uint16_t>(std::atoi(argv[3])), static_cast<std::uint16_t>(std::atoi(argv[4]))};
  xcb_connection_t* display = xcb_connect(nullptr, nullptr);
  if (xcb_connection_has_error(display) != 0) return 1;
  const auto root = xcb_setup_roots_iterator(xcb_get_setup(display)).data->root;
  std::vector<Pixels> pictures;
  Pixels last = pixelsOf(display, root, area);
  if (argc > 5) pictures.push_back(last);
  std::printf("ready\n0 %.6f\n", now());
  std::fflush(stdout);
  for (int number = 1; !isToEnd();) {
    Pixels current = pixelsOf(display, root, area);
    if (current == last) continue;
    std::printf("%d %.6f\n", number++, now());
    std::fflush(stdout);
    if (argc > 5) pictures.push_back(current);
    last = std::move(current);
  }
  for (std::size_t number = 0; number < pictures.size(); ++number)
    write(pictures[number], area, argv[5] + ("/" + std::to_string(number) + ".ppm"));
  xcb_disconnect(display);
  return 0;
}
