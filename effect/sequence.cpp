#include "effect/sequence.h"

#include "effect/params.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"

namespace {

void ClearReserved(SequenceRecord& record) {
  record.reserved0 = 0;
  record.reserved1 = 0;
  record.reserved2 = 0;
}

}  // namespace

SequenceRecord* SequenceRecordOf(PF_Handle sequence_data) {
  if (sequence_data == nullptr) return nullptr;
  return static_cast<SequenceRecord*>(*sequence_data);
}

void SetupSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*) {
  HostSuiteCache suites(in_data->pica_basicP);
  if (in_data->sequence_data != nullptr) {
    suites.Require<PF_HandleSuite1>().host_dispose_handle(in_data->sequence_data);
    out_data->sequence_data = nullptr;
  }
  PF_HandleSuite1& handles = suites.Require<PF_HandleSuite1>();
  out_data->sequence_data = handles.host_new_handle(sizeof(SequenceRecord));
  if (out_data->sequence_data == nullptr) throw DAE::DAEAllocXCP(sizeof(SequenceRecord));

  SequenceRecord* record = SequenceRecordOf(out_data->sequence_data);
  if (record == nullptr) {  // a handle without a block is no memory either
    handles.host_dispose_handle(out_data->sequence_data);
    out_data->sequence_data = nullptr;
    throw DAE::DAEAllocXCP(sizeof(SequenceRecord));
  }
  record->preset = PRESET_FIRST;
  ClearReserved(*record);
}

void ResetupSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output) {
  if (in_data->sequence_data == nullptr) {
    SetupSequence(in_data, out_data, params, output);
    return;
  }
  // After Effects presents the instance's handle in the output record as
  // well; a host that does not gets the input's handle back.
  if (out_data->sequence_data == nullptr) out_data->sequence_data = in_data->sequence_data;
  SequenceRecord* record = SequenceRecordOf(out_data->sequence_data);
  if (record != nullptr) ClearReserved(*record);  // the preset is kept: a reopened project keeps its choice
}

void SetdownSequence(PF_InData* in_data, PF_OutData* out_data, PF_ParamDef*[], PF_LayerDef*) {
  HostSuiteCache suites(in_data->pica_basicP);
  if (in_data->sequence_data == nullptr) return;
  suites.Require<PF_HandleSuite1>().host_dispose_handle(in_data->sequence_data);
  // A host that gave no output record has nothing to clear.
  if (out_data != nullptr) out_data->sequence_data = nullptr;
}
