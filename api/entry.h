// What the optional calls take from the four.
#pragma once

#include "vorn_ycnr.h"

namespace vorn {

// vorn_ycnr_init with a number of workers (1..4) and with the workers bound to cores or not.
denoise_handle_t* open_handle(const ycnr_init_param* params, int workers, int bind_core);

}  // namespace vorn
