/*
 * vorn_ycnr.h - noise reduction for 8-bit YUV 4:2:0 semi-planar frames.
 *
 * Frame layout. One contiguous buffer of width * height * 3 / 2 bytes, rows not padded:
 *
 *     plane[0] ->  Y Y Y Y ... Y     height rows of width bytes
 *                  :
 *                  U V U V ... V     height / 2 rows of width bytes, U first
 *
 * Order of calls.
 *
 *     vorn_ycnr_init        once per frame size; starts four worker threads, allocates all scratch
 *     vorn_ycnr_process     once per frame, any number of times
 *     vorn_ycnr_capability  any time between init and deinit
 *     vorn_ycnr_deinit      once; joins the workers, frees everything
 *
 * Ownership. The caller owns every record and buffer that it passes in; the library keeps none of
 * these pointers beyond the call. The handle belongs to the library.
 *
 * Overwritten buffers. dst always. src too when both algorithms are on: after the call it holds the
 * luma-denoised frame, which is the input of the chroma filter.
 *
 * Threads. One frame at a time per handle: a process call uses the handle's workers and scratch
 * memory alone, works on the frame itself too and returns when it is done; it needs 128 KB of
 * stack. A call that finds its handle in use by another thread is refused with an ERROR log line.
 * Different handles may be used on different threads at the same time; they share nothing but the
 * log level, which the last init sets. The workers block all signals but those of their own faults.
 *
 * Processes. A handle works in the process that made it. In a child of fork() frames are refused
 * with one ERROR log line, deinit frees the handle's memory, and handles made in the child work.
 * The library stays loaded after dlclose.
 *
 * The header is plain C99; every integer is 32 bits wide.
 */
#ifndef VORN_YCNR_H
#define VORN_YCNR_H

#include <stdint.h>

#if defined(__GNUC__)
#define VORN_API __attribute__((visibility("default")))
#else
#define VORN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the calls that return an integer. */
enum {
  VORN_OK = 0,       /* done */
  VORN_FAIL = -1,    /* refused or failed; the log has the reason, dst holds the input frame */
  VORN_POOL_BUSY = 2 /* vorn_ycnr_deinit only: the workers could not be stopped, nothing freed */
};

/* Pixel layouts of _tag_uni_image.type. A frame is VORN_IMAGE_YUV420SP; the entry points read only
 * width, height and plane[0], so the type may be left unset in the records passed to them. */
enum {
  VORN_IMAGE_GRAY = 0,     /* one plane, 1 byte per pixel */
  VORN_IMAGE_RGB = 1,      /* one plane, 3 bytes per pixel */
  VORN_IMAGE_BGR = 2,      /* one plane, 3 bytes per pixel */
  VORN_IMAGE_YUV420SP = 3, /* luma plane, then the interleaved chroma plane */
  VORN_IMAGE_YVU420SP = 4, /* the same memory layout under a second code */
  VORN_IMAGE_PLANAR3 = 5   /* three full-size planes */
};

/* One image in memory. Never owns its planes by itself. */
typedef struct _tag_uni_image {
  int32_t type;      /* VORN_IMAGE_... */
  int32_t width;     /* pixels per row of the first plane */
  int32_t height;    /* rows of the first plane */
  uint8_t* plane[4]; /* first sample of each plane; entries that a layout does not use are free */
  int32_t stride[4]; /* bytes from one row to the next, per plane */
} _tag_uni_image;

/* Argument of vorn_ycnr_init. */
typedef struct ycnr_init_param {
  int32_t width;  /* luma pixels per row of every later frame */
  int32_t height; /* luma rows of every later frame */
} ycnr_init_param;

/* Luma tuning for one frame. Level 0 is full resolution, each further level half of it. */
typedef struct ycnr_ynr_tuning_param {
  int32_t enable;        /* 1 run the luma filter, 0 skip it; anything else bypasses the frame */
  int32_t layer;         /* pyramid levels in use, 2..5 */
  int32_t pIntensity[5]; /* strength per level; below 1 a level passes unfiltered */
  int32_t pRadius[5];    /* window per level: 3, 5 or 7; any other value copies the level */
  int32_t param0;        /* strength of the mask towards the corners; 64 is flat */
  int32_t param1;        /* not used by this version */
  int32_t param2;        /* not used by this version */
} ycnr_ynr_tuning_param;

/* Chroma tuning for one frame. */
typedef struct ycnr_cnr_tuning_param {
  int32_t enable;        /* 1 run the chroma filter, 0 skip it; anything else bypasses the frame */
  int32_t range_factor;  /* colour distance at which a neighbour stops counting is twice this */
  int32_t smooth_radius; /* half-length of the filter window, in pixels of the filtered level */
  int32_t scale;         /* 0 full chroma size, 1 half size only, 2 half size then full size */
  int32_t step;          /* window taps are 2 * step pixels apart; at least 1 */
  int32_t color_edge_u;  /* weight of U differences in the distance, 8 is 1.0 */
  int32_t color_edge_v;  /* weight of V differences in the distance, 8 is 1.0 */
  int32_t saturation;    /* chroma gain: (16 + saturation) / 16, -128..127; 0 leaves it alone */
  int32_t param0;        /* not used by this version */
  int32_t param1;        /* not used by this version */
  int32_t param2;        /* not used by this version */
} ycnr_cnr_tuning_param;

/* What vorn_ycnr_process needs beside the two images. The caller picks the tuning that fits the
 * frame's sensor gain; the library neither looks up nor interpolates. */
typedef struct Denoise_Parameters_t {
  uint64_t caller_data;       /* never read */
  ycnr_ynr_tuning_param* ynr; /* luma tuning of this frame, not null */
  ycnr_cnr_tuning_param* cnr; /* chroma tuning of this frame, not null */
} Denoise_Parameters_t;

/* Name, build and scratch size of the luma algorithm. All texts are NUL-terminated. */
typedef struct __ynr_capability_param {
  char name[256];      /* of the algorithm */
  char build_date[32]; /* like "Aug 28 2024" */
  char build_time[32]; /* like "18:43:29" */
  char version[256];   /* like "1.0.1.2.2768825" */
  int32_t memory_mb;   /* scratch memory in MiB, rounded down */
} __ynr_capability_param;

/* The same of the chroma algorithm. */
typedef struct __cnr_capability_param {
  char name[256];      /* of the algorithm */
  char build_date[32]; /* like "Aug 28 2024" */
  char build_time[32]; /* like "18:43:29" */
  char version[256];   /* like "1.0.1.2.2768825" */
  int32_t memory_mb;   /* scratch memory in MiB, rounded down */
} __cnr_capability_param;

/* The library's own record, then one for each algorithm. */
typedef struct ycnr_capability_param {
  char name[256];             /* of the library */
  char build_date[32];        /* like "Aug 28 2024" */
  char build_time[32];        /* like "18:43:29" */
  char version[256];          /* like "1.0.1.2.2768825" */
  int32_t memory_mb;          /* always 1 */
  __ynr_capability_param ynr; /* of the luma algorithm */
  __cnr_capability_param cnr; /* of the chroma algorithm */
} ycnr_capability_param;

/* One denoiser for one frame size. Opaque. */
typedef struct denoise_handle_t denoise_handle_t;

/* Creates a denoiser for frames of params->width x params->height.
 * Starts four worker threads and allocates about 4.5 bytes of scratch memory per luma pixel.
 * Returns the handle, or null (with an ERROR log line) when params is null, the size is below 1x1
 * or too large for 32-bit frame sizes (width * height * 3 must stay below 2^31), or memory or
 * threads cannot be had. */
VORN_API denoise_handle_t* vorn_ycnr_init(ycnr_init_param* params);

/* Denoises one frame from src into dst with the given tuning.
 * src and dst are two different buffers of the size given to init, laid out as above; only
 * plane[0], width and height of the records are read. dst first receives a copy of src, then the
 * luma filter (params->ynr->enable == 1) and the chroma filter (params->cnr->enable == 1) replace
 * their planes; with both on, src is overwritten with the luma result.
 *
 * Refused are frames of another size than init's and, while the filter concerned is on:
 * luma: frames below 4x4 or below 2^(layer - 1) pixels either way (16x16 for 5 levels);
 * chroma: an odd width, and frames below 2x2, with scale 1 or 2 below 4x4.
 * An odd height is taken; the last row then has no chroma of its own.
 *
 * Returns 0, or -1 when an argument is null or unusable, the handle is in
 * use or of another process (see the log); dst then holds the input. */
VORN_API int32_t vorn_ycnr_process(denoise_handle_t* handle, _tag_uni_image* src,
                                   _tag_uni_image* dst, Denoise_Parameters_t* params);

/* Stops the workers and frees the handle with all its memory.
 * Returns 0, -1 for a null handle, 2 when the workers cannot be stopped or a call is in progress
 * (nothing is freed). */
VORN_API int32_t vorn_ycnr_deinit(denoise_handle_t* handle);

/* Fills params with names, build stamps, versions and scratch sizes.
 * Returns 0, or -1 when either pointer is null. */
VORN_API int32_t vorn_ycnr_capability(denoise_handle_t* handle, ycnr_capability_param* params);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VORN_YCNR_H */
