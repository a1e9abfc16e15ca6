/*
 * vorn_temporal.h - steadier video: what stands still is blended with the frame before.
 *
 * Part of libvorn_tuning, beside vorn_tuning.h. The denoiser takes every frame by itself; this runs
 * behind it, on its results, with the tuning that the frame was filtered with:
 *
 *     vorn_temporal* blend = vorn_tuning_temporal_new();
 *     for (each frame) {
 *       vorn_ycnr_process_any(handle, &in, &out, &luma, &chroma);
 *       vorn_tuning_temporal_run(blend, &out, &luma);
 *     }
 *     vorn_tuning_temporal_free(blend);
 *
 * A block that moves stays as it is, and no sample moves by more than the noise that the filter
 * leaves explains, so that nothing trails behind what moves. Integer arithmetic alone: the same
 * bytes on every machine.
 *
 * Threads: one stream is one vorn_temporal, used by one thread at a time.
 *
 * The header is plain C99.
 */
#ifndef VORN_TEMPORAL_H
#define VORN_TEMPORAL_H

#include <stdint.h>

#include "vorn_tuning.h"
#include "vorn_ycnr_ext.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One stream: the result before, 1.5 bytes per pixel, and 2 bytes per 64 pixels. Opaque. */
typedef struct vorn_temporal vorn_temporal;

/* What became of a frame, beside the codes of vorn_tuning.h. */
enum {
  VORN_TEMPORAL_BLENDED = 0,
  VORN_TEMPORAL_FIRST = 1 /* it stays as it is: the first, another size, or a cut before it */
};

/* The start of a stream; null where there is no memory. */
VORN_API vorn_temporal* vorn_tuning_temporal_new(void);

/* Frees it; null is fine. */
VORN_API void vorn_tuning_temporal_free(vorn_temporal* stream);

/* The next frame is the first of a stream: after a seek, a loss, a change of the picture. Cuts are
 * found without it. null is fine. */
VORN_API void vorn_tuning_temporal_reset(vorn_temporal* stream);

/* Blends the stream's next frame, in place, with the result of the call before. frame is any layout
 * and size that vorn_ycnr_process_any takes, with strides at least as long as its rows; the layout
 * must not change within a stream. luma is the tuning that it was filtered with: pIntensity[0]
 * tells how much noise is left.
 * Returns VORN_TEMPORAL_BLENDED or VORN_TEMPORAL_FIRST; VORN_TUNING_ARGUMENT for null pointers, an
 * unknown layout, a size below 1 or above 2^30 pixels, a stride too short; VORN_TUNING_MEMORY. With
 * either of these the frame is untouched. */
VORN_API int32_t vorn_tuning_temporal_run(vorn_temporal* stream, const vorn_ycnr_planes* frame,
                                          const ycnr_ynr_tuning_param* luma);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VORN_TEMPORAL_H */
