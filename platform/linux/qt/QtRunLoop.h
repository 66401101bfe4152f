#pragma once
// The main run loop on Qt's event loop. Main thread only.
#include <QTimer>

#include "platform/linux/RunLoop.h"

namespace platform::Linux {

class QtRunLoop final : public RunLoop {
 public:
  QtRunLoop();

 private:
  void arm() override;

  QTimer _wakeUp;
};

}  // namespace platform::Linux
