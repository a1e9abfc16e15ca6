// What the optional calls take from the four.
#pragma once

#include "base/handle.h"
#include "vorn_ycnr.h"

namespace vorn {

// vorn_ycnr_init with a number of workers (1..4) and with the workers bound to cores or not.
denoise_handle_t* open_handle(const ycnr_init_param* params, int workers, int bind_core);

// Closes the handle inside, if there is one.
void close_enlarged(denoise_handle_t* handle);

// A thread's use of a handle, from a call's begin to its end. Refused while another thread is in
// one, and in a child of the process that made the handle.
class handle_use {
 public:
  explicit handle_use(denoise_handle_t* handle);
  ~handle_use();
  handle_use(const handle_use&) = delete;

  // Null when the handle may be used, else what the ERROR line says.
  const char* refusal() const { return refusal_; }

 private:
  denoise_handle_t* handle_;
  const char* refusal_;
};

// What a call does with a frame once the handle is in use by this thread; no argument is null.
using frame_process = int32_t (*)(denoise_handle_t* handle, _tag_uni_image* src,
                                  _tag_uni_image* dst, Denoise_Parameters_t* params);

// The checks of vorn_ycnr_process before a frame. Returns what process returns, or -1.
int32_t process_call(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                     Denoise_Parameters_t* params, frame_process process);

// Whether a dump between the filters is switched on, for which they write to the source.
bool shows_frames_between_filters();

// The process of vorn_ycnr_process.
int32_t process_frame(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      Denoise_Parameters_t* params);

// The process of vorn_ycnr_process_fine.
int32_t process_frame_finely(denoise_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                             Denoise_Parameters_t* params);

}  // namespace vorn
