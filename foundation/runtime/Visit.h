#pragma once
// The use of something that another thread may take away, for the duration of one call.
//
// A visitor notes in a place of its own that it is here, and then reads whether the thing is still there. Its owner takes
// it away first and then reads who is here. At least one of the two sees the other, as long as neither lets its read
// overtake its write. Either each visitor fences, or the owner makes all threads of the process do so before it reads.
#include "foundation/Api.h"

namespace foundation {

// Any thread; visits nest. All things share the visits.
class KELTO_API Visit {
 public:
  struct Visitor;

  Visit();
  ~Visit();
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

  // False if the owner fences for the visitors. Before other threads start.
  static void setVisitorsFence(bool fence);
  // Waits until each visit that another thread had begun is over.
  static void waitForOthers();

 private:
  Visitor& _visitor;
};

}  // namespace foundation
