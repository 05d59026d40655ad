// Fault injection: make the Nth call of a host function, or every call from
// the Nth on, fail. How a failed call answers is its row's FaultKind
// (host_functions.h). A fault can also be aimed at AcquireSuite for one
// suite name and version; a fault on AcquireSuite itself fails calls for
// every suite.
#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/host_functions.h"

namespace cinebar_simhost {

struct Fault {
  PF_Err error = 0;
  int on_call = 1;         // 1-based number of the call that fails
  bool and_later = false;  // every call from on_call on

  static Fault Error(PF_Err error) { return Fault{error, 1, false}; }
  static Fault Null() { return Fault{0, 1, false}; }
  Fault OnCall(int n) const { return Fault{error, n, false}; }
  Fault FromCall(int n) const { return Fault{error, n, true}; }
  Fault Always() const { return FromCall(1); }
};

// What a fault is aimed at: a host function, or AcquireSuite for one suite.
struct FaultTarget {
  FaultTarget(HostFn function) : fn(function) {}  // NOLINT: a host function is a target
  static FaultTarget ForSuite(std::string name, int version);

  HostFn fn;
  std::string suite;  // AcquireSuite's name and version; empty for every call
  int version = 0;

  std::string Text() const;  // e.g. "AcquireSuite(PF Fill Matte Suite,2)"
  bool operator<(const FaultTarget& other) const {
    return std::tie(fn, suite, version) < std::tie(other.fn, other.suite, other.version);
  }
};

class FaultPlan {
 public:
  // Adds a fault; several faults for one target all apply.
  // Throws std::invalid_argument for the command or a call number below 1.
  void Fail(const FaultTarget& target, Fault fault);
  void Clear();  // forgets the faults and the call counts

  // Counts one call and tells whether it fails (and how).
  bool Check(const FaultTarget& target, Fault* fault);
  int Calls(const FaultTarget& target) const;

 private:
  std::map<FaultTarget, std::vector<Fault>> faults_;
  std::map<FaultTarget, int> calls_;
};

}  // namespace cinebar_simhost
