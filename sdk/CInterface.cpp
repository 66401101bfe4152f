#include <kelto/controller.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "protocol/LastRun.h"
#include "protocol/LaunchArguments.h"
#include "protocol/ParentWindow.h"
#include "sdk/Controller.h"
#include "sdk/LastRun.h"

// The C interface over sdk::Controller. No exception leaves it: the only one that can come is a lack of memory.
struct kelto_controller {
  std::unique_ptr<sdk::Controller> object;
};

namespace {

template <class Body>
int guarded(kelto_controller* controller, const Body& body) {
  if (controller == nullptr || controller->object->isFreed()) return -EINVAL;
  try {
    return body(*controller->object);
  } catch (...) {
    return -ENOMEM;
  }
}

int run(kelto_controller* controller, const char* newBundle, const char* installedBundle, bool isUpdate) {
  if (newBundle == nullptr || installedBundle == nullptr) return -EINVAL;
  return guarded(controller, [&](sdk::Controller& object) {
    return object.run({.newBundle = newBundle, .installedBundle = installedBundle, .isUpdate = isUpdate});
  });
}

// The key of a value of kelto_last_run; nullptr for another number.
const char* keyOfLastRun(int value) {
  namespace key = protocol::lastRunKey;
  constexpr const char* keys[] = {nullptr,     key::mode, key::bundle, key::oldVersion, key::newVersion,
                                  key::status, key::time, key::step,   key::path,       key::cause};
  return value > 0 && value <= KELTO_LAST_RUN_CAUSE ? keys[value] : nullptr;
}

}  // namespace

kelto_controller* kelto_controller_new(const char* bundle_identifier, kelto_handler handler, void* data) {
  if (handler == nullptr) return nullptr;
  try {
    auto object = sdk::Controller::make(bundle_identifier, handler, data);
    return object ? new kelto_controller{std::move(object)} : nullptr;
  } catch (...) {
    return nullptr;
  }
}

void kelto_controller_free(kelto_controller* controller) {
  if (controller == nullptr) return;
  if (controller->object->isDispatching()) {
    controller->object->freeAfterDispatch();
  } else {
    delete controller;
  }
}

int kelto_controller_fd(const kelto_controller* controller) {
  return controller != nullptr ? controller->object->fd() : -EINVAL;
}

void kelto_controller_dispatch(kelto_controller* controller) {
  guarded(controller, [](sdk::Controller& object) {
    object.dispatch();
    return 0;
  });
  if (controller != nullptr && controller->object->isFreed() && !controller->object->isDispatching()) delete controller;
}

int kelto_controller_set_installer(kelto_controller* controller, const char* bundle_path) {
  if (bundle_path == nullptr || *bundle_path != '/') return -EINVAL;
  return guarded(controller, [&](sdk::Controller& object) {
    object.setInstaller(bundle_path);
    return 0;
  });
}

int kelto_controller_set_window_frame(kelto_controller* controller, double x, double y, double width, double height) {
  return guarded(controller, [&](sdk::Controller& object) {
    object.setFrame({x, y, width, height});
    return 0;
  });
}

int kelto_controller_set_parent_window(kelto_controller* controller, const char* name) {
  return guarded(controller, [&](sdk::Controller& object) {
    if (name != nullptr && !protocol::parentWindowFromText(name)) return -EINVAL;
    object.setParentWindow(name != nullptr ? name : "");
    return 0;
  });
}

int kelto_controller_obtain_right(kelto_controller* controller) {
  return guarded(controller, [](sdk::Controller& object) { return object.obtainRight(); });
}

int kelto_controller_install(kelto_controller* controller, const char* new_bundle, const char* installed_bundle) {
  return run(controller, new_bundle, installed_bundle, false);
}

int kelto_controller_update(kelto_controller* controller, const char* new_bundle, const char* installed_bundle) {
  return run(controller, new_bundle, installed_bundle, true);
}

int kelto_controller_remove(kelto_controller* controller, const char* installed_bundle) {
  if (installed_bundle == nullptr) return -EINVAL;
  return guarded(controller, [&](sdk::Controller& object) {
    return object.run({.newBundle = {}, .installedBundle = installed_bundle, .isUpdate = false});
  });
}

int kelto_take_resume_argument(int* argc, char** argv) {
  const std::string name = std::string("-") + protocol::resumeArgument;
  for (int place = 1; place + 1 < *argc; ++place) {
    if (name != argv[place]) continue;
    const bool isResumed = std::strcmp(argv[place + 1], "YES") == 0;
    for (int next = place; next + 2 <= *argc; ++next) argv[next] = argv[next + 2];
    *argc -= 2;
    return isResumed ? 1 : 0;
  }
  return 0;
}

int kelto_controller_last_run(int value, char* text, size_t size) {
  const auto* key = keyOfLastRun(value);
  if (key == nullptr || (text == nullptr && size > 0)) return -EINVAL;
  try {
    const auto found = sdk::lastRunValue(key);
    return found ? std::snprintf(text, size, "%s", found->c_str()) : -ENOENT;
  } catch (...) {
    return -ENOMEM;
  }
}

const char* kelto_controller_version(void) { return KELTO_CONTROLLER_VERSION; }
