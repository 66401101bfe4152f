#pragma once

namespace foundation {

// The base of everything that an interface description holds and an outlet can refer to: windows, controls and views.
class InterfaceElement {
 public:
  virtual ~InterfaceElement() = default;
};

}  // namespace foundation
