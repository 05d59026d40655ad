// The simulated host as its own functions reach it: the records, the
// recorders and the command in progress. Only a Call (call_scope.h), which
// every host function opens with, makes one, so a test sees a host's verbs
// alone.
#pragma once

#include <string>
#include <string_view>

#include "host/sim_host.h"

namespace cinebar_simhost {

class HostInside {
 public:
  PF_InData& in_data() { return host_->records_.in_data(); }
  HandleStore& handles() { return host_->records_.handles(); }
  void* module_handle() const { return host_->records_.module_handle(); }
  const void* ServedTable(std::string_view name, int version) const {
    return host_->records_.ServedTable(name, version);
  }
  Project& project() { return host_->project_; }
  CallLog& log() { return host_->log_; }
  FaultPlan& faults() { return host_->faults_; }
  HostChecks& checks() { return host_->checks_; }
  CommandInProgress& current() { return host_->current_; }
  void Error(const std::string& text) { host_->HostError(text); }

 private:
  friend class Call;
  explicit HostInside(Host* host) : host_(host) {}

  Host* host_;
};

}  // namespace cinebar_simhost
