#include <algorithm>

#include "foundation/views/ViewEnvironment.h"
#include "foundation/views/ViewWindow.h"

namespace foundation {
namespace {

constexpr Seconds duration(0.25);
constexpr Seconds step(1.0 / 60);

double between(double from, double to, double progress) { return from + (to - from) * progress; }

RunLoop& runLoopOf(const View& view) {
  return view.window() == nullptr ? ViewEnvironment::installed().runLoop : view.window()->runLoop();
}

}  // namespace

// A running change of a frame. Its timer runs until the view is destroyed or other code moves the view.
class FrameAnimation {
 public:
  using Apply = std::function<void(View&, const Rect&)>;

  FrameAnimation(View& view, const Rect& target, Apply apply)
      : target(target),
        _view(&view),
        _from(view.frame()),
        _last(view.frame()),
        _runLoop(runLoopOf(view)),
        _start(_runLoop.currentDate()),
        _apply(std::move(apply)) {}

  const Rect target;

  // Sets the frame of this moment. Returns false at the end of the animation.
  bool advance() {
    View* view = _view.get();
    if (view == nullptr || view->frame() != _last) return false;
    const Seconds elapsed = _runLoop.currentDate() - _start;
    if (elapsed >= duration) {
      _apply(*view, target);
      return false;
    }
    const double linear = std::max(elapsed / duration, 0.0);
    _apply(*view, at(linear * linear * (3 - 2 * linear)));
    _last = view->frame();
    return true;
  }

 private:
  [[nodiscard]] Rect at(double progress) const {
    return {
        {between(_from.origin.x, target.origin.x, progress), between(_from.origin.y, target.origin.y, progress)},
        {between(_from.size.width, target.size.width, progress), between(_from.size.height, target.size.height, progress)}};
  }

  WeakReference<View> _view;
  Rect _from;
  Rect _last;
  RunLoop& _runLoop;
  Date _start;
  Apply _apply;
};

void ViewAnimator::animate(const Rect& target, FrameAnimation::Apply apply) {
  _view._animation = std::make_shared<FrameAnimation>(_view, target, std::move(apply));
  runLoopOf(_view).scheduledTimer(
      step, true, [animated = WeakReference(&_view), animation = std::weak_ptr(_view._animation)](Timer& timer) {
        const auto running = animation.lock();  // nullptr after the view or a newer animation
        if (running && running->advance()) return;
        timer.invalidate();
        View* view = animated.get();
        if (view != nullptr && view->_animation == running) view->_animation.reset();
      });
}

Rect ViewAnimator::target() const { return _view._animation ? _view._animation->target : _view.frame(); }

void ViewAnimator::setFrame(const Rect& frame) {
  animate(frame, [](View& view, const Rect& place) { view.setFrame(place); });
}

void ViewAnimator::setFrameOrigin(Point origin) {
  if (_view._animation) return setFrame({origin, target().size});
  animate({origin, _view.frame().size}, [](View& view, const Rect& place) { view.setFrameOrigin(place.origin); });
}

void ViewAnimator::setFrameSize(Size size) {
  if (_view._animation) return setFrame({target().origin, size});
  animate({_view.frame().origin, size}, [](View& view, const Rect& place) { view.setFrameSize(place.size); });
}

}  // namespace foundation
