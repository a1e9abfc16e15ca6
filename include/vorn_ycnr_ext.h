/*
 * vorn_ycnr_ext.h - optional calls beside the four of vorn_ycnr.h.
 *
 * An extension: nothing here changes the four calls, their records or their results, and a program
 * that does without it needs only vorn_ycnr.h. A handle from vorn_ycnr_open is the same kind of
 * handle as one from vorn_ycnr_init and works with every call of both headers; vorn_ycnr_deinit
 * closes either. But for the fine mode, every frame comes out with the bytes that vorn_ycnr_process
 * would make.
 *
 * The header is plain C99.
 */
#ifndef VORN_YCNR_EXT_H
#define VORN_YCNR_EXT_H

#include "vorn_ycnr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Argument of vorn_ycnr_open. A field that is zero has its usual value. */
typedef struct vorn_ycnr_options {
  int32_t width;      /* luma pixels per row of every later frame */
  int32_t height;     /* luma rows of every later frame */
  int32_t workers;    /* worker threads, 1..4; 0 stands for 4 */
  int32_t bind_cores; /* 1: worker i runs on core 4 + i, or on core i where that one is not to be
                         had, with raised priority; 0: the system decides */
} vorn_ycnr_options;

/* Creates a denoiser like vorn_ycnr_init, with a choice of workers. The number of workers changes
 * the time that a frame takes, never its bytes.
 * Returns the handle, or null (with an ERROR log line) for the reasons of vorn_ycnr_init and for
 * options out of their range. */
VORN_API denoise_handle_t* vorn_ycnr_open(const vorn_ycnr_options* options);

/* Where the chroma samples of a vorn_ycnr_planes lie. */
enum {
  VORN_LAYOUT_NV12 = 0, /* plane[1]: U V U V ... */
  VORN_LAYOUT_NV21 = 1, /* plane[1]: V U V U ... */
  VORN_LAYOUT_I420 = 2  /* plane[1]: U, plane[2]: V */
};

/* A 4:2:0 frame whose planes lie anywhere. Chroma has (width + 1) / 2 columns and (height + 1) / 2
 * rows. Bytes between the end of a row and the next row are neither read nor written. */
typedef struct vorn_ycnr_planes {
  int32_t layout;    /* VORN_LAYOUT_... */
  int32_t width;     /* luma pixels per row */
  int32_t height;    /* luma rows */
  uint8_t* plane[3]; /* first sample of each plane */
  int32_t stride[3]; /* bytes from one row to the next, at least a row's bytes */
} vorn_ycnr_planes;

/* Denoises one frame from src into dst, which have the handle's size and the same layout. Other
 * than with vorn_ycnr_process, src is never written to, and dst may be src itself. A null tuning
 * switches its algorithm off. NV12 of the handle's size, both even, whose chroma follows its luma,
 * all without gaps, is read and written where it lies; other frames are packed first, into memory
 * that the handle keeps from the first of them on (3 bytes per pixel). Of an odd height, the last
 * row of chroma is the source's; an odd width has its chroma copied, and is refused with the chroma
 * filter on. dst's planes are src's, with the same or another stride, or lie apart from them.
 * Returns 0, or -1 with an ERROR log line; dst then holds the input if both records are usable and
 * have one layout and size. */
VORN_API int32_t vorn_ycnr_process_planes(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                                          const vorn_ycnr_planes* dst,
                                          const ycnr_ynr_tuning_param* ynr,
                                          const ycnr_cnr_tuning_param* cnr);

/* The same for a frame of any size up to the handle's, 1 x 1 and odd sizes included, with both
 * filters: its last column and row are repeated until it has the handle's size rounded up to even
 * numbers, and dst gets the part that src has, all of its chroma columns and rows. A frame that is
 * still too small for the tuning (4 pixels a side, 1 << (layer - 1) for the luma layers, 4 for a
 * chroma scale of 1 or 2) is enlarged further. The handle keeps scratch memory of a second size for
 * that, and for its own size if that is odd.
 * A frame of the handle's own size comes out with the bytes of vorn_ycnr_process if that size is
 * even and large enough. The filters leave the last columns of a level alone whose width is odd,
 * and so spoil the right edge of some sizes: a handle whose width is a multiple of 16, at least
 * 128, and whose height is a multiple of 4 has no such level. Returns as vorn_ycnr_process_planes
 * does. */
VORN_API int32_t vorn_ycnr_process_any(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                                       const vorn_ycnr_planes* dst,
                                       const ycnr_ynr_tuning_param* ynr,
                                       const ycnr_cnr_tuning_param* cnr);

/* Receives the time of one step of a frame in milliseconds, by a clock that never goes back. stage
 * is the step's name as in the log, valid during the call. Called on the thread that is in
 * vorn_ycnr_process, _planes or _any, in the order of the steps; must not use the handle. A step
 * that ran inside the next one has 0. "YNR process", "CNR_process" and at the end
 * "vorn_ycnr_process" ("ynr_process", "cnr_process" for one filter alone) are whole filters and the
 * whole frame. */
typedef void (*vorn_ycnr_stage_sink)(void* context, const char* stage, double milliseconds);

/* From the handle's next frame on, tells sink the time of every step, whatever the log level; null
 * ends it.
 * Returns 0, or -1 with an ERROR log line for a null handle and one that is in use. */
VORN_API int32_t vorn_ycnr_set_stage_sink(denoise_handle_t* handle, vorn_ycnr_stage_sink sink,
                                          void* context);

/* The process's log level: 0 silent, 1 errors, 2 and warnings, 3 and information, 4 (and above) and
 * debug lines. */
VORN_API int32_t vorn_ycnr_log_level(void);

/* Sets it, also for handles opened later: the system's properties do not change it any more. A
 * negative level hands it back to the properties. Returns the former level. */
VORN_API int32_t vorn_ycnr_set_log_level(int32_t level);

/* Denoises one frame in fine mode: luma is better by 0.1 to 0.4 dB and chroma by 0.7 to 1.1 dB than
 * with vorn_ycnr_process, in four times its processor time. The finest level is filtered on four
 * shifted grids of blocks and averaged, which leaves no pattern of the window, luma's and behind
 * the tuning's own chroma passes that of each chroma plane, as strongly as range_factor and the
 * grain of the frame's noise say; coarse blotches of colour are taken out before. Arguments,
 * results and what is overwritten are those of vorn_ycnr_process; the bytes too are the same on
 * every machine. The first such frame of a handle allocates scratch memory unless
 * vorn_ycnr_prepare_fine has done so; frames of both kinds may alternate. */
VORN_API int32_t vorn_ycnr_process_fine(denoise_handle_t* handle, _tag_uni_image* src,
                                        _tag_uni_image* dst, Denoise_Parameters_t* params);

/* Allocates what vorn_ycnr_process_fine needs beside the handle's other memory: about 0.6 bytes per
 * pixel and 580 per column of the frame. Returns 0, also when it is there already, or -1 with an
 * ERROR log line. */
VORN_API int32_t vorn_ycnr_prepare_fine(denoise_handle_t* handle);

/* vorn_ycnr_process_any in fine mode: for any layout, stride and size. A frame of the handle's own
 * size comes out with the bytes of vorn_ycnr_process_fine if that size is even and large enough.
 * Where a frame runs on scratch of a second size, the first such frame allocates that and what the
 * fine mode needs for it. */
VORN_API int32_t vorn_ycnr_process_any_fine(denoise_handle_t* handle, const vorn_ycnr_planes* src,
                                            const vorn_ycnr_planes* dst,
                                            const ycnr_ynr_tuning_param* ynr,
                                            const ycnr_cnr_tuning_param* cnr);

/* Receives one log line without its line feed. priority: 3 debug, 4 info, 5 warning, 6 error.
 * Called on the thread that logs, one line at a time; must not call the library. An exception that
 * leaves it, or a vorn_ycnr_stage_sink, is dropped. */
typedef void (*vorn_ycnr_log_sink)(void* context, int32_t priority, const char* message);

/* Sends all log lines of the process to sink, or, when it is null, to the system's log again. Which
 * lines appear is still up to the log level. When the call returns, the former sink is not running
 * and will not be called any more. */
VORN_API void vorn_ycnr_set_log_sink(vorn_ycnr_log_sink sink, void* context);

/* What a result of any call means, in a few words; never null. */
VORN_API const char* vorn_ycnr_result_text(int32_t result);

/* Name of the kernels in force in this process: "scalar", "neon", "neon_dot", "sse2", "avx2" or
 * "avx512"; never null. They differ in speed alone. */
VORN_API const char* vorn_ycnr_kernel_form(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VORN_YCNR_EXT_H */
