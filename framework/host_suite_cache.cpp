#include "framework/host_suite_cache.h"

#include "framework/dae_exceptions.h"

namespace {

// The host's registered suite names, spelled exactly as the host spells them.
constexpr HostSuiteCache::SuitePair kPairTable[HostSuiteCache::kSlotCount] = {
    {"AEGP Marker Suite", 1},
    {"AEGP Marker Suite", 2},
    {"AEGP Layer Suite", 8},
    {"AEGP Layer Suite", 10},
    {"AEGP Stream Suite", 9},
    {"AEGP Stream Suite", 8},
    {"AEGP Stream Suite", 7},
    {"AEGP Stream Suite", 4},
    {"AEGP Dynamic Stream Suite", 2},
    {"AEGP Dynamic Stream Suite", 3},
    {"AEGP Dynamic Stream Suite", 5},
    {"AEGP Keyframe Suite", 4},
    {"AEGP Keyframe Suite", 3},
    {"AEGP Keyframe Suite", 1},
    {"AEGP Comp Suite", 9},
    {"AEGP Comp Suite", 11},
    {"AEGP Comp Suite", 14},
    {"AEGP Comp Suite", 15},
    {"AEGP Comp Suite", 18},
    {"AEGP Comp Suite", 19},
    {"AEGP Canvas Suite", 10},
    {"AEGP Canvas Suite", 11},
    {"AEGP Camera Suite", 2},
    {"AEGP Register Suite", 6},
    {"AEGP Item Suite", 13},
    {"AEGP Item Suite", 11},
    {"AEGP Item Suite", 10},
    {"AEGP Item Suite", 7},
    {"AEGP Item Suite", 3},
    {"AEGP PF Interface Suite", 1},
    {"PF Path Query Suite", 1},
    {"AEGP Memory Suite", 1},
    {"PF Path Data Suite", 1},
    {"PF Param Utils Suite", 3},
    {"PF AE App Suite", 6},
    {"PF AE Adv App Suite", 2},
    {"AEGP Light Suite", 1},
    {"AEGP Light Suite", 2},
    {"AEGP Effect Suite", 1},
    {"AEGP Effect Suite", 2},
    {"AEGP Effect Suite", 3},
    {"AEGP Layer Mask Suite", 5},
    {"AEGP Mask Outline Suite", 2},
    {"AEGP Mask Outline Suite", 3},
    {"AEGP Mask Outline Suite", 5},
    {"AEGP Command Suite", 1},
    {"AEGP Utility Suite", 7},
    {"AEGP Render Suite", 1},
    {"AEGP Render Suite", 2},
    {"AEGP Render Suite", 3},
    {"PF ANSI Suite", 1},
    {"PF Handle Suite", 2},
    {"PF Fill Matte Suite", 2},
    {"PF World Transform Suite", 1},
    {"AEGP QueryXform Suite", 4},
    {"AEGP Composite Suite", 4},
    {"PF World Suite", 1},
    {"AEGP IO In Suite", 5},
    {"AEGP IO Out Suite", 7},
    {"AEGP Render Queue Suite", 1},
    {"AEGP Render Queue Item Suite", 3},
    {"AEGP Output Module Suite", 4},
    {"AEGP File Import Manager Suite", 3},
    {"PF Sampling8 Suite", 1},
    {"PF Sampling16 Suite", 1},
    {"PF Iterate8 Suite", 1},
    {"PF iterate16 Suite", 1},
    {"PF iterateFloat Suite", 1},
    {"AEGP Collection Suite", 2},
    {"AEGP Text Document Suite", 1},
    {"AEGP Sound Data Suite", 1},
    {"AEGP Text Layer Suite", 1},
    {"AEGP Artisan Util Suite", 1},
    {"AEGP World Suite", 2},
    {"AEGP World Suite", 3},
    {"AEGP Render Options Suite", 1},
    {"AEGP Tracker Suite", 1},
    {"AEGP Tracker Utility Suite", 1},
    {"AE Plugin Helper Suite2", 2},
    {"AEGP Layer Suite", 11},
    {"AEGP Layer Suite", 12},
    {"AEGP Layer Suite", 13},
    {"PF AE Adv Item Suite", 1},
    {"AEGP Layer Suite", 5},
    {"AEGP Layer Mask Suite", 2},
    {"AEGP Layer Mask Suite", 6},
    {"AEGP Layer Mask Suite", 7},
    {"AEGP Comp Suite", 4},
    {"AEGP Collection Suite", 1},
    {"PF AE Adv App Suite", 1},
    {"AEGP Utility Suite", 3},
    {"AEGP Render Options Suite", 2},
    {"AEGP Proj Suite", 8},
    {"AEGP Proj Suite", 9},
    {"AEGP Footage Suite", 11},
    {"AEGP Render Queue Item Suite", 4},
    {"AEGP Utility Suite", 10},
    {"AEGP Persistent Data Suite", 3},
    {"PF Color Settings Suite", 3},
    {"PF Color Settings Suite", 1},
    {"PF ColorParamSuite", 1},
    {"PF SamplingFloat Suite", 1},
    {"AEGP Utility Suite", 11},
    {"PF Effect Custom UI Suite", 1},
    {"PF Effect Custom UI Overlay Theme Suite", 1},
    {"DRAWBOT Draw Suite", 1},
    {"DRAWBOT Supplier Suite", 1},
    {"DRAWBOT Surface Suite", 1},
    {"DRAWBOT Path Suite", 1},
    {"SP Suites Suite", 2},
    {"PF World Suite", 2},
    {"PF Pixel Data Suite", 1},
    {"PF Effect UI Suite", 1},
    {"PF Color16 Suite", 1},
    // Known to the cache but never filled by this module and never released.
    {"AEGP Workspace Panel Suite", 1},
    {"AEGP Math Suite", 1},
    {"PF Cache On Load Suite", 1},
};

constexpr bool SameName(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}

constexpr int SlotOf(const char* name, int32_t version) {
  for (int slot = 0; slot < HostSuiteCache::kSlotCount; ++slot) {
    if (kPairTable[slot].version == version && SameName(kPairTable[slot].name, name)) return slot;
  }
  return -1;
}

constexpr int kSlotParamUtils3 = SlotOf("PF Param Utils Suite", 3);
constexpr int kSlotHandle2 = SlotOf("PF Handle Suite", 2);
constexpr int kSlotFillMatte2 = SlotOf("PF Fill Matte Suite", 2);
constexpr int kSlotWorldTransform1 = SlotOf("PF World Transform Suite", 1);
static_assert(kSlotParamUtils3 >= 0 && kSlotHandle2 >= 0 && kSlotFillMatte2 >= 0 && kSlotWorldTransform1 >= 0,
              "every suite the module uses has a released slot");

int LowestBit(uint64_t bits) { return __builtin_ctzll(bits); }  // bits is never 0 here

}  // namespace

static_assert(HostSuiteCache::kSlotCount <= 64 * 2, "one fill bit per slot");

const HostSuiteCache::SuitePair* const HostSuiteCache::kPairs = kPairTable;

// The slots are left as they are: the fill bits say which ones hold a suite.
HostSuiteCache::HostSuiteCache(SPBasicSuite* broker) : broker_(broker), filled_{} {
  if (broker_ == nullptr) MissingSuite(*this);
}

HostSuiteCache::~HostSuiteCache() {
  if ((filled_[0] | filled_[1]) == 0) return;  // most caches fetch nothing
  for (int word = 0; word < kFillWords; ++word) {
    for (uint64_t bits = filled_[word]; bits != 0; bits &= bits - 1) {
      const int slot = word * 64 + LowestBit(bits);
      if (slot < kReleasedPairCount) broker_->ReleaseSuite(kPairs[slot].name, kPairs[slot].version);
    }
  }
}

void HostSuiteCache::MissingSuite(HostSuiteCache&) {}

void* HostSuiteCache::Fetch(int slot) {
  const uint64_t bit = uint64_t{1} << (slot % 64);
  if ((filled_[slot / 64] & bit) != 0) return slots_[slot];
  const void* suite = nullptr;
  // Without a broker there is nothing to ask; report it like a refused fetch.
  const SPErr error =
      broker_ != nullptr ? broker_->AcquireSuite(kPairs[slot].name, kPairs[slot].version, &suite) : 1;
  if (error != 0 || suite == nullptr) MissingSuite(*this);
  // Whatever the broker handed out is kept, even with an error; a null leaves
  // the slot empty, so a later use asks again.
  if (suite == nullptr) return nullptr;
  slots_[slot] = const_cast<void*>(suite);
  filled_[slot / 64] |= bit;
  return slots_[slot];
}

template <typename Suite>
Suite& HostSuiteCache::Require(int slot) {
  void* suite = Fetch(slot);
  if (suite == nullptr) throw DAE::DAESuiteXCP(kPairs[slot].name);
  return *static_cast<Suite*>(suite);
}

PF_FillMatteSuite2* HostSuiteCache::FillMatteSuite2() {
  return static_cast<PF_FillMatteSuite2*>(Fetch(kSlotFillMatte2));
}

PF_WorldTransformSuite1* HostSuiteCache::WorldTransformSuite1() {
  return static_cast<PF_WorldTransformSuite1*>(Fetch(kSlotWorldTransform1));
}

PF_HandleSuite1* HostSuiteCache::HandleSuite2() { return static_cast<PF_HandleSuite1*>(Fetch(kSlotHandle2)); }

PF_ParamUtilsSuite3* HostSuiteCache::ParamUtilsSuite3() {
  return static_cast<PF_ParamUtilsSuite3*>(Fetch(kSlotParamUtils3));
}

PF_FillMatteSuite2& HostSuiteCache::RequireFillMatteSuite2() {
  return Require<PF_FillMatteSuite2>(kSlotFillMatte2);
}

PF_WorldTransformSuite1& HostSuiteCache::RequireWorldTransformSuite1() {
  return Require<PF_WorldTransformSuite1>(kSlotWorldTransform1);
}

PF_HandleSuite1& HostSuiteCache::RequireHandleSuite2() { return Require<PF_HandleSuite1>(kSlotHandle2); }

PF_ParamUtilsSuite3& HostSuiteCache::RequireParamUtilsSuite3() {
  return Require<PF_ParamUtilsSuite3>(kSlotParamUtils3);
}
