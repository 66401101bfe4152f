#include <algorithm>

#include "foundation/views/View.h"
#include "platform/Platform.h"

namespace platform {
namespace {

constexpr foundation::Seconds duration(0.25);
constexpr foundation::Seconds step(1.0 / 60);

double between(double from, double to, double progress) { return from + (to - from) * progress; }

}  // namespace

// One change of a frame under way. Its timer goes on while the view lives and nobody else moves it.
class FrameAnimation {
 public:
  using Apply = std::function<void(View&, const foundation::Rect&)>;

  FrameAnimation(View& view, const foundation::Rect& target, Apply apply)
      : target(target),
        _view(&view),
        _from(view.frame()),
        _last(view.frame()),
        _start(current().runLoop.currentDate()),
        _apply(std::move(apply)) {}

  const foundation::Rect target;

  // False when it has ended.
  bool advance() {
    View* view = _view.get();
    if (view == nullptr || view->frame() != _last) return false;
    const foundation::Seconds elapsed = current().runLoop.currentDate() - _start;
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
  [[nodiscard]] foundation::Rect at(double progress) const {
    return {
        {between(_from.origin.x, target.origin.x, progress), between(_from.origin.y, target.origin.y, progress)},
        {between(_from.size.width, target.size.width, progress), between(_from.size.height, target.size.height, progress)}};
  }

  WeakReference<View> _view;
  foundation::Rect _from;
  foundation::Rect _last;
  foundation::Date _start;
  Apply _apply;
};

void ViewAnimator::animate(const foundation::Rect& target, FrameAnimation::Apply apply) {
  _view._animation = std::make_shared<FrameAnimation>(_view, target, std::move(apply));
  current().runLoop.scheduledTimer(
      step, true, [animated = WeakReference(&_view), animation = std::weak_ptr(_view._animation)](Timer& timer) {
        const auto running = animation.lock();  // gone with the view, or replaced by the next one
        if (running && running->advance()) return;
        timer.invalidate();
        View* view = animated.get();
        if (view != nullptr && view->_animation == running) view->_animation.reset();
      });
}

foundation::Rect ViewAnimator::target() const { return _view._animation ? _view._animation->target : _view.frame(); }

void ViewAnimator::setFrame(const foundation::Rect& frame) {
  animate(frame, [](View& view, const foundation::Rect& place) { view.setFrame(place); });
}

void ViewAnimator::setFrameOrigin(foundation::Point origin) {
  if (_view._animation) return setFrame({origin, target().size});
  animate({origin, _view.frame().size},
          [](View& view, const foundation::Rect& place) { view.setFrameOrigin(place.origin); });
}

void ViewAnimator::setFrameSize(foundation::Size size) {
  if (_view._animation) return setFrame({target().origin, size});
  animate({_view.frame().origin, size}, [](View& view, const foundation::Rect& place) { view.setFrameSize(place.size); });
}

}  // namespace platform
