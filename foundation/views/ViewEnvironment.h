#pragma once
// The services that views take from outside their tree. Main thread only.
//
// The owner of a window or a controller hands them in. Three operations are designed without a parameter for them:
// KAViewController::viewController, imageNamed, and the animator of a view that stands in no window. These three, and
// nothing else, ask for the installed environment. A platform installs its own together with itself.
#include <functional>
#include <string_view>

namespace foundation {

class RunLoop;
class ViewResources;

struct ViewEnvironment {
  RunLoop& runLoop;
  // nullptr where the application shows no views: images are then missing and no view can be loaded.
  ViewResources* resources = nullptr;
  // Writes one line to the system log.
  std::function<void(std::string_view line)> log;

  // The installed environment. Ends the process with a message if there is none.
  static ViewEnvironment& installed();

  // Installs an environment for the life of this object. Does not nest.
  class Installation {
   public:
    explicit Installation(ViewEnvironment& environment);
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;
  };
};

}  // namespace foundation
