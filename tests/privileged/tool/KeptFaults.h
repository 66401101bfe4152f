#pragma once
// For tests: faults and power cuts while a replaced bundle is kept, and on the way back to one.
#include "tests/privileged/tool/FaultMatrix.h"
#include "tests/privileged/tool/KeptBundles.h"
#include "tests/privileged/tool/PowerCut.h"

namespace tests::tool {

template <class Base>
class WithKeptBundles : public Base {
 protected:
  void SetUp() override {
    Base::SetUp();
    if (Base::IsSkipped()) return;
    if (::geteuid() != 0 || !Base::overlay("/etc", "/etc")) GTEST_SKIP() << "needs root and an overlay over /etc";
    fs::create_directories("/etc/kelto");
    write(protocol::policyFilePath, "keep = 2\n");
    for (const char* path : {"/etc/kelto", protocol::policyFilePath}) fs::permissions(path, fs::perms(0755));
  }
};

class KeptFaultMatrix : public WithKeptBundles<FaultMatrix> {
 protected:
  void runOnAnotherFileSystem(const std::vector<FaultKind>& faults, int every) {
    runAll("tmpfs", volume("here"), volume("there"), faults, true, false, every, keepingCases());
  }
  // The store and the bundle are on one file system, so that a rename keeps it.
  void runBesideTheStore(const std::vector<FaultKind>& faults, int every) {
    fs::create_directories("/var/lib/apps");
    runAll("same", "/var/lib/apps", volume("there"), faults, true, false, every, keepingCases());
    fs::remove_all("/var/lib/apps");
  }
};

using KeptPowerCut = WithKeptBundles<PowerCut>;

}  // namespace tests::tool
