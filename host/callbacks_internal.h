// Inside the simulated host: wiring its C callbacks into its records, and the
// "current host" through which callbacks without an effect_ref find it.
#pragma once

namespace cinebar_simhost {

class Host;

// Fills the interaction and utility callbacks, the broker and the suite tables.
void InstallCallbacks(Host& host);

// Makes `host` the current host for the life of the scope (nesting restores).
class CurrentHostScope {
 public:
  explicit CurrentHostScope(Host* host);
  ~CurrentHostScope();
  CurrentHostScope(const CurrentHostScope&) = delete;
  CurrentHostScope& operator=(const CurrentHostScope&) = delete;

 private:
  Host* previous_;
};

}  // namespace cinebar_simhost
