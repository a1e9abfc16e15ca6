/*
 * vorn_tuning.h - tuning sets: which tuning belongs to which sensor gain.
 *
 * A tuning set is a JSON file with the luma and the chroma tuning of several gains. This library
 * (libvorn_tuning) reads, checks, writes and looks them up, and carries the default set inside. It
 * fills the records of vorn_ycnr.h and needs nothing of libvornynr2cnr4 itself.
 *
 *     vorn_tuning_fault fault;
 *     vorn_tuning_set* set = vorn_tuning_load("sensor.json", &fault);
 *     if (!set) fprintf(stderr, "%s\n", fault.text);
 *     ...
 *     ycnr_ynr_tuning_param luma;
 *     ycnr_cnr_tuning_param chroma;
 *     if (vorn_tuning_for_gain(set, 8.0, &luma, &chroma) == VORN_TUNING_OK) ...
 *     vorn_tuning_free(set);
 *
 * Results. Calls that can fail return a code below zero, or null. Where a call takes a `fault`, it
 * may be null; otherwise it is filled in on failure, with a text that names the file, the line and
 * the field, and left alone on success.
 *
 * Texts are UTF-8 and NUL-terminated. Texts that a call returns belong to the set and are valid
 * until it is changed or freed.
 *
 * Threads. Any number of threads may read one set at the same time. While one changes it (put,
 * describe, annotate, free), no other may use it. The library keeps no state of its own.
 *
 * The header is plain C99.
 */
#ifndef VORN_TUNING_H
#define VORN_TUNING_H

#include <stddef.h>
#include <stdint.h>

#include "vorn_ycnr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Results. */
enum {
  VORN_TUNING_OK = 0,
  VORN_TUNING_ARGUMENT = -1, /* a null pointer, an index that is not there, a gain that is none */
  VORN_TUNING_INVALID = -2,  /* not a tuning set, or a value out of its field's range */
  VORN_TUNING_IO = -3,       /* a file cannot be read or written; system_error says why */
  VORN_TUNING_MEMORY = -4    /* no memory left */
};

/* Why a call failed. */
typedef struct vorn_tuning_fault {
  int32_t code;         /* VORN_TUNING_..., below zero */
  int32_t system_error; /* errno of the failed system call, or 0 */
  int32_t line;         /* line of the text at fault, from 1; 0 where there is none */
  char field[48];       /* field at fault, like "luma.pRadius[1]" or "gain"; may be empty */
  char text[976];       /* the whole message, like "sensor.json:7: \"luma.layer\" must be ..." */
} vorn_tuning_fault;

/* A tuning set. Opaque. */
typedef struct vorn_tuning_set vorn_tuning_set;

/* ---- reading ---- */

/* Reads and checks a set from a file of at most 4 MiB. */
VORN_API vorn_tuning_set* vorn_tuning_load(const char* path, vorn_tuning_fault* fault);

/* The same from size bytes of memory; name stands for the file in messages, null for "tuning". */
VORN_API vorn_tuning_set* vorn_tuning_parse(const void* text, size_t size, const char* name,
                                            vorn_tuning_fault* fault);

/* A copy of the default set, for gains 1 to 64. */
VORN_API vorn_tuning_set* vorn_tuning_default(vorn_tuning_fault* fault);

/* Frees a set; null is fine. */
VORN_API void vorn_tuning_free(vorn_tuning_set* set);

/* ---- what is in a set ---- */

/* Name and description of the set; "" where it has none. */
VORN_API const char* vorn_tuning_name(const vorn_tuning_set* set);
VORN_API const char* vorn_tuning_description(const vorn_tuning_set* set);

/* Number of entries, which stand by rising gain; at least 1 in a set that was read. */
VORN_API int32_t vorn_tuning_count(const vorn_tuning_set* set);

/* Sensor gain of an entry, 1 = base sensitivity; 0 for an index that is not there. */
VORN_API double vorn_tuning_gain(const vorn_tuning_set* set, int32_t index);

/* Name and notes of an entry; "" where it has none, or for an index that is not there. */
VORN_API const char* vorn_tuning_entry_name(const vorn_tuning_set* set, int32_t index);
VORN_API const char* vorn_tuning_entry_notes(const vorn_tuning_set* set, int32_t index);

/* Copies the tuning of an entry; either record may be null. Returns a code. */
VORN_API int32_t vorn_tuning_get(const vorn_tuning_set* set, int32_t index,
                                 ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma);

/* ---- by gain ---- */

/* The gain that is taken where nobody names one: the middle of the default set, in stops. */
#define VORN_TUNING_DEFAULT_GAIN 8.0

/* Index of the entry whose gain is nearest in stops; half-way between two, the lower one. gain must
 * be a finite number above 0: anything else, and a set without entries, is VORN_TUNING_ARGUMENT. */
VORN_API int32_t vorn_tuning_nearest(const vorn_tuning_set* set, double gain);

/* The same rule on count gains that rise. */
VORN_API int32_t vorn_tuning_nearest_gain(const double* gains, int32_t count, double gain);

/* Copies the tuning of the nearest entry. Returns a code. */
VORN_API int32_t vorn_tuning_for_gain(const vorn_tuning_set* set, double gain,
                                      ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma);

/* ---- making and writing sets ---- */

/* A set without name and entries. */
VORN_API vorn_tuning_set* vorn_tuning_new(vorn_tuning_fault* fault);

/* Sets name and description; null stands for "". Returns a code. */
VORN_API int32_t vorn_tuning_describe(vorn_tuning_set* set, const char* name,
                                      const char* description, vorn_tuning_fault* fault);

/* Adds an entry at its place, or replaces the tuning of the entry of exactly this gain. gain is
 * above 0, up to 1e6; both records are checked. Returns the entry's index or a code. */
VORN_API int32_t vorn_tuning_put(vorn_tuning_set* set, double gain,
                                 const ycnr_ynr_tuning_param* luma,
                                 const ycnr_cnr_tuning_param* chroma, vorn_tuning_fault* fault);

/* Sets name and notes of an entry; null stands for "". Returns a code. */
VORN_API int32_t vorn_tuning_annotate(vorn_tuning_set* set, int32_t index, const char* name,
                                      const char* notes, vorn_tuning_fault* fault);

/* Writes the set as JSON. The file appears whole or not at all and keeps the permissions of one
 * that it replaces; a symbolic link is followed. A set without entries is refused. Returns a code.
 */
VORN_API int32_t vorn_tuning_save(const vorn_tuning_set* set, const char* path,
                                  vorn_tuning_fault* fault);

/* The set as JSON text, the bytes that vorn_tuning_save writes. Returns the length of the whole
 * text without its NUL, as snprintf does, and writes at most size bytes with the NUL; 0 on failure.
 */
VORN_API size_t vorn_tuning_json(const vorn_tuning_set* set, char* buffer, size_t size);

/* The set as a C header with a constant table NAME_tuning[] and a function NAME_nearest(gain), for
 * camera code that reads no files; name is a C identifier. Returns as vorn_tuning_json does. */
VORN_API size_t vorn_tuning_c_header(const vorn_tuning_set* set, const char* name, char* buffer,
                                     size_t size);

/* ---- fields and their ranges ---- */

enum { VORN_TUNING_LUMA = 0, VORN_TUNING_CHROMA = 1 };

/* One integer of the two records. */
typedef struct vorn_tuning_field {
  int32_t record;        /* VORN_TUNING_LUMA or VORN_TUNING_CHROMA */
  int32_t level;         /* index into the key's array of five, or -1 for a plain number */
  int32_t least, most;   /* the values that a set may hold */
  int32_t windows;       /* 1: of these only 0, 3, 5 and 7 */
  const char* key;       /* its key in the JSON text and its name in the record: "pIntensity" */
  const char* dump_name; /* its name in the text of a device's dump: "0pIntensity" */
  const char* meaning;   /* in a few words */
} vorn_tuning_field;

/* The fields in the order of the records: all of luma, then all of chroma. null beyond the last. */
VORN_API const vorn_tuning_field* vorn_tuning_field_at(int32_t index);

/* Checks every field of the records that are not null. Returns a code. */
VORN_API int32_t vorn_tuning_check(const ycnr_ynr_tuning_param* luma,
                                   const ycnr_cnr_tuning_param* chroma, vorn_tuning_fault* fault);

/* What a code means, in a few words; never null. */
VORN_API const char* vorn_tuning_result_text(int32_t code);

/* Version of this library, like "1.0.1". */
VORN_API const char* vorn_tuning_version(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VORN_TUNING_H */
