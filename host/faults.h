// Fault injection: make the Nth call of a host function, or every call from
// the Nth on, fail. A failing call does not do its work and answers:
//   functions returning PF_Err or SPErr -> Fault::error;
//   host_new_handle, host_lock_handle    -> null (Fault::Null() gives a new handle without a block);
//   AcquireSuite                         -> Fault::error and a null suite
//                                           (Fault::Null() gives "no error but null suite");
//   sprintf -> -1 with nothing written; strcpy -> null with nothing copied;
//   functions returning nothing          -> the call is ignored.
// Functions are named as in the call log (kHostFunctions).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "hostapi/ae_effect.h"

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

class FaultPlan {
 public:
  // Adds a fault for `function`; several faults for one function all apply.
  // Throws std::invalid_argument for a name that is no host function or a call number below 1.
  void Fail(const std::string& function, Fault fault);
  void Clear();  // forgets the faults and the call counts

  // Counts one call of `function` and tells whether it fails (and how).
  bool Check(const std::string& function, Fault* fault);
  int Calls(const std::string& function) const;

 private:
  std::map<std::string, std::vector<Fault>> faults_;
  std::map<std::string, int> calls_;
};

// Every host function the simulated host serves, by its call-log name.
extern const std::vector<std::string> kHostFunctions;

// The fault name of one suite at one version, e.g. "AcquireSuite(PF Fill Matte Suite,2)".
// A fault on plain "AcquireSuite" counts and fails calls for every suite.
std::string AcquireKey(const std::string& suite, int version);

}  // namespace cinebar_simhost
