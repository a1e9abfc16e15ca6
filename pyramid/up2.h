#pragma once

#include "cnr/cnr_handle.h"

struct up2_merge1_job {
  _tag_uni_image* small;
  _tag_uni_image* up;
  _tag_uni_image* detail;
  struct pool* pool;
};

VORN_API int gaussin3x3_up2(_tag_uni_image* small, _tag_uni_image* out);
VORN_API int gaussin3x3_up2_merge(_tag_uni_image* small, _tag_uni_image* detail,
                                  _tag_uni_image* out);
VORN_API int gaussin3x3_up2_merge1(_tag_uni_image* small, _tag_uni_image* up,
                                   _tag_uni_image* detail);
VORN_API void* gaussin3x3_up2_merge1_process(void* job);
VORN_API int gaussin3x3_up2_merge1_thread(cnr_handle_t* handle, _tag_uni_image* small_u,
                                          _tag_uni_image* up_u, _tag_uni_image* detail_u,
                                          _tag_uni_image* small_v, _tag_uni_image* up_v,
                                          _tag_uni_image* detail_v);
