#pragma once
// Writes the record of this run (see protocol/LastRun.h). Main thread.
#include <optional>
#include <string>

#include "foundation/plist/PropertyList.h"
#include "platform/Bundle.h"
#include "platform/RunReport.h"
#include "platform/UserDefaults.h"

namespace platform::Linux {

class LastRun {
 public:
  // Notes what the run is about, before it changes anything, and removes the record of the run before: a run that is killed
  // leaves none. `log` outlives the object.
  LastRun(const platform::UserDefaults& arguments, const platform::Bundles& bundles, platform::SystemLog& log);

  // Writes the record of a run that ends like this, in place of an earlier one. In one step, and for this user only.
  void write(const std::optional<Failure>& failure) const;

 private:
  platform::SystemLog& _log;
  std::string _path;
  foundation::PropertyList::Dictionary _facts;
};

}  // namespace platform::Linux
