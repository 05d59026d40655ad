// The per-instance record that the host keeps with each effect instance and
// saves in projects, byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hostapi/ae_effect.h"

struct SequenceRecord {
  int32_t preset;        // "Preset" item, 1 to 8
  uint8_t reserved0;     // cleared at setup and every resetup
  uint8_t reserved1;     // cleared at setup and every resetup
  uint8_t unwritten[2];  // left as the host's allocation provides them
  int32_t reserved2;     // cleared at setup and every resetup
};
static_assert(sizeof(SequenceRecord) == 12, "persisted in projects: 12 bytes");
static_assert(offsetof(SequenceRecord, reserved0) == 4 && offsetof(SequenceRecord, reserved1) == 5 &&
                  offsetof(SequenceRecord, reserved2) == 8,
              "persisted field offsets");

// The record behind a sequence handle, or null when there is none.
SequenceRecord* SequenceRecordOf(PF_Handle sequence_data);

void SetupSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output);
void ResetupSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output);
void SetdownSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output);
