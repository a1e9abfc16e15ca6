// Copies the caller's tuning of one frame into the handle, and dumps it when asked to.
#pragma once

#include "base/handle.h"

// Writes the tuning dumps that are switched on, then fills handle->ynr_param and
// handle->cnr_param. No value is clamped; the chroma step is doubled on the way.
// Returns the result of the chroma tuning dump, which callers ignore.
VORN_API int get_param_gain_info(denoise_handle_t* handle, Denoise_Parameters_t* params);
