// Layout of the records that exported functions take or that hang from the handle, on every
// target. Fields of our own stand behind the stated ones.
#include <cstddef>

#include "base/handle.h"
#include "cnr/cnr_handle.h"
#include "runtime/pool.h"
#include "ynr/ynr_handle.h"

#define FIELD(record, field, offset) \
  static_assert(offsetof(record, field) == (offset), #record "." #field " moved")

FIELD(_tag_ynr_param_output, pIntensity, 0);
FIELD(_tag_ynr_param_output, pRadius, 20);
FIELD(_tag_ynr_param_output, layer, 40);
FIELD(_tag_ynr_param_output, param0, 44);
FIELD(_tag_ynr_param_output, param1, 48);
FIELD(_tag_ynr_param_output, param2, 52);
static_assert(sizeof(_tag_ynr_param_output) == 56, "");

FIELD(_tag_cnr_param_output, range_factor, 0);
FIELD(_tag_cnr_param_output, smooth_radius, 4);
FIELD(_tag_cnr_param_output, saturation, 8);
FIELD(_tag_cnr_param_output, scale, 12);
FIELD(_tag_cnr_param_output, step, 16);
FIELD(_tag_cnr_param_output, color_edge_u, 20);
FIELD(_tag_cnr_param_output, color_edge_v, 24);
FIELD(_tag_cnr_param_output, param0, 28);
FIELD(_tag_cnr_param_output, param1, 32);
FIELD(_tag_cnr_param_output, param2, 36);
static_assert(sizeof(_tag_cnr_param_output) == 40, "");

FIELD(denoise_handle_t, ynr, 0);
FIELD(denoise_handle_t, cnr, 8);
FIELD(denoise_handle_t, dump_path, 16);
FIELD(denoise_handle_t, pool, 24);
FIELD(denoise_handle_t, ynr_param, 32);
FIELD(denoise_handle_t, cnr_param, 88);

FIELD(vorn_job, routine, 0);
FIELD(vorn_job, arg, 8);
FIELD(vorn_job, next, 16);
static_assert(sizeof(vorn_job) == 24, "");

// Locks and conditions have the sizes of the system's library; the order is what is fixed.
FIELD(pool, bind_core, 0);
FIELD(pool, queue_lock, 8);
FIELD(pool, queue_ready, 8 + sizeof(pthread_mutex_t));
FIELD(pool, pro_lock, offsetof(pool, queue_ready) + sizeof(pthread_cond_t));
FIELD(pool, pro_ready, offsetof(pool, pro_lock) + sizeof(pthread_mutex_t));
FIELD(pool, queue_head, offsetof(pool, pro_ready) + sizeof(pthread_cond_t));
FIELD(pool, shutdown, offsetof(pool, queue_head) + 8);
FIELD(pool, threadid, offsetof(pool, queue_head) + 16);
FIELD(pool, thread_creatflag, offsetof(pool, queue_head) + 24);
FIELD(pool, max_thread_num, offsetof(pool, queue_head) + 32);
FIELD(pool, cur_queue_size, offsetof(pool, queue_head) + 36);
FIELD(pool, done_count, offsetof(pool, queue_head) + 40);
FIELD(pool, thread_args, offsetof(pool, queue_head) + 48);
static_assert(sizeof(vorn_thread_arg) == 16, "");

FIELD(cnr_handle_t, cnr_version, 0);
FIELD(cnr_handle_t, height, 4);
FIELD(cnr_handle_t, width, 8);
FIELD(cnr_handle_t, pool, 16);
FIELD(cnr_handle_t, images, 24);
FIELD(cnr_handle_t, memory_size_mb, 24 + 14 * 64);

FIELD(_tag_cnr_param, range_coef, 0);
FIELD(_tag_cnr_param, range_factor_sq, 12);
FIELD(_tag_cnr_param, smooth_radius, 20);
FIELD(_tag_cnr_param, smooth_step, 24);
FIELD(_tag_cnr_param, scale, 28);
FIELD(_tag_cnr_param, saturation, 32);
FIELD(_tag_cnr_param, color_edge_u, 40);
FIELD(_tag_cnr_param, color_edge_v, 44);
FIELD(_tag_cnr_param, level_mode, 48);

FIELD(ynr_handle_t, height, 0);
FIELD(ynr_handle_t, width, 4);
FIELD(ynr_handle_t, thread_num, 12);
FIELD(ynr_handle_t, pool, 16);
FIELD(ynr_handle_t, gauss_whole, 24);
FIELD(ynr_handle_t, gauss, 24 + 1 * 320);
FIELD(ynr_handle_t, work_whole, 24 + 4 * 320);
FIELD(ynr_handle_t, work, 24 + 5 * 320);
FIELD(ynr_handle_t, out_whole, 24 + 6 * 320);
FIELD(ynr_handle_t, out, 24 + 7 * 320);
FIELD(ynr_handle_t, quarter_map, 24 + 8 * 320);
FIELD(ynr_handle_t, memory_mb, 24 + 9 * 320);

// These two have no fields of our own: a caller may lay one out for their exported allocators.
static_assert(sizeof(cnr_handle_t) == 24 + 14 * 64 + 8, "");
static_assert(sizeof(ynr_handle_t) == 24 + 9 * 320 + 8, "");
