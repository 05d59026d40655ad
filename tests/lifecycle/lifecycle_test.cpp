// The long life of a project (fixtures/life_driver.h): thousands of commands
// over up to fifty instances at once from a fixed seed, every record holding
// the preset its history implies, and at the end nothing left with the host.
// CINEBAR_LIFECYCLE_STEPS sets the number of commands (6000 by default).
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "tests/fixtures/effect_host.h"
#include "tests/fixtures/life_driver.h"

TEST(LongLife, ManyInstancesComeAndGoAndTheHostGetsEverythingBack) {
  cinebar_simhost::Host host(TheModule());
  std::mt19937_64 rng(0xC1AEBA5);  // the same numbers on every platform and standard library
  int step = 0;
  LifeDriver life(
      host, [&](uint32_t below) { return static_cast<uint32_t>(rng() % below); }, false,
      [&](const std::string& what) { FAIL() << what << " at step " << step; });
  const char* steps_text = std::getenv("CINEBAR_LIFECYCLE_STEPS");
  const int steps = steps_text != nullptr && std::atoi(steps_text) > 0 ? std::atoi(steps_text) : 6000;
  life.Begin();
  for (; step < steps && !HasFailure(); ++step) life.Step();
  life.End();
}
