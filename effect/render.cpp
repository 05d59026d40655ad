#include "effect/render.h"

#include "effect/geometry.h"
#include "effect/params.h"
#include "framework/dae_exceptions.h"
#include "framework/host_suite_cache.h"
#include "hostapi/ae_constants.h"

namespace {

// Fills `rect` (the whole world when null) in the output's own depth.
void FillRect(PF_FillMatteSuite2& fill_matte, PF_ProgPtr effect_ref, bool deep, PF_Pixel color,
              const PF_Rect* rect, PF_LayerDef* output) {
  if (deep) {
    const PF_Pixel16 deep_color = Pixel8To16(color);
    DAE::ThrowIfHostError(fill_matte.fill16(effect_ref, &deep_color, rect, output));
  } else {
    DAE::ThrowIfHostError(fill_matte.fill(effect_ref, &color, rect, output));
  }
}

}  // namespace

void RenderBars(PF_InData* in_data, PF_OutData*, PF_ParamDef* params[], PF_LayerDef* output) {
  HostSuiteCache suites(in_data->pica_basicP);
  const float aspect_ratio = ReadFloatParam(params, PARAM_ASPECT_RATIO);
  const A_long mode = ReadPopupParam(params, PARAM_RENDER);
  const PF_Pixel bar_color = ReadColorParam(params, PARAM_COLOR);
  const bool deep = (output->world_flags & PF_WorldFlag_DEEP) != 0;

  // Without the suites there is nothing to draw with: the call ends with an
  // error rather than calling through an absent table.
  PF_FillMatteSuite2& fill_matte = suites.Require<PF_FillMatteSuite2>();

  // One full-frame fill in the bar colour; the picture is then cut out of it.
  FillRect(fill_matte, in_data->effect_ref, deep, bar_color, nullptr, output);

  PF_Rect picture = ComputePictureRect(output->width, output->height, aspect_ratio, in_data->downsample_x,
                                       in_data->downsample_y, in_data->pixel_aspect_ratio);

  if (mode == RENDER_ON_TRANSPARENT) {
    FillRect(fill_matte, in_data->effect_ref, deep, PF_Pixel{0, 0, 0, 0}, &picture, output);
  } else {  // every other value draws the image
    PF_WorldTransformSuite1& transform = suites.Require<PF_WorldTransformSuite1>();
    DAE::ThrowIfHostError(
        transform.copy(in_data->effect_ref, &params[PARAM_INPUT]->u.ld, output, &picture, &picture));
  }
}
