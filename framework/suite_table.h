// The suites the cache knows: the host's registered (name, version) pairs in
// the order release visits them, and one line per suite the module uses,
// naming its pair by the type of its function table.
#pragma once

#include <cstdint>

#include "hostapi/ae_effect.h"

struct SuitePair {
  const char* name;
  int32_t version;
};

// Slot i of a cache holds pair i; the last three are never filled and never released.
inline constexpr int kSuiteSlotCount = 117;
inline constexpr int kReleasedSuiteCount = 114;

// The host's registered suite names, spelled exactly as the host spells them.
inline constexpr SuitePair kSuitePairs[kSuiteSlotCount] = {
    // mutation: off: versions of pairs the module never fetches; only fetched pairs reach a host
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
    // mutation: on
    {"PF Param Utils Suite", 3},
    // mutation: off: versions of pairs the module never fetches; only fetched pairs reach a host
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
    // mutation: on
    {"PF Handle Suite", 2},
    {"PF Fill Matte Suite", 2},
    {"PF World Transform Suite", 1},
    // mutation: off: versions of pairs the module never fetches; only fetched pairs reach a host
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
    // mutation: on
};

// The suites the module uses, keyed by their function tables.
template <typename Table>
struct SuiteTraits;  // declared only: a suite without a line here does not compile
// clang-format off
template <> struct SuiteTraits<PF_FillMatteSuite2> { static constexpr SuitePair kPair{"PF Fill Matte Suite", 2}; };
template <> struct SuiteTraits<PF_WorldTransformSuite1> { static constexpr SuitePair kPair{"PF World Transform Suite", 1}; };
template <> struct SuiteTraits<PF_HandleSuite1> { static constexpr SuitePair kPair{"PF Handle Suite", 2}; };  // version 2 keeps the version-1 table
template <> struct SuiteTraits<PF_ParamUtilsSuite3> { static constexpr SuitePair kPair{"PF Param Utils Suite", 3}; };
// clang-format on

namespace suite_table {

constexpr bool SameName(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}

// The slot of a pair; kSuiteSlotCount when the table lacks it.
constexpr int SlotOf(SuitePair pair) {
  int slot = 0;
  while (slot < kSuiteSlotCount &&
         !(kSuitePairs[slot].version == pair.version && SameName(kSuitePairs[slot].name, pair.name)))
    ++slot;
  return slot;
}
static_assert(SlotOf(kSuitePairs[0]) == 0 && SlotOf({"no such suite", 1}) == kSuiteSlotCount,
              "the first pair is found in its slot, a pair not listed in none");

}  // namespace suite_table

// The slot of a suite the module uses: it must be one the cache releases.
template <typename Table>
inline constexpr int kSuiteSlot = suite_table::SlotOf(SuiteTraits<Table>::kPair);
