// A C++ program on the installed library: asks for its versions.
#include <vorn_ycnr.h>

#include <iostream>
#include <memory>

int main() {
  ycnr_init_param size{1920, 1080};
  std::unique_ptr<denoise_handle_t, decltype(&vorn_ycnr_deinit)> denoiser{vorn_ycnr_init(&size),
                                                                          vorn_ycnr_deinit};
  ycnr_capability_param capability{};
  if (!denoiser || vorn_ycnr_capability(denoiser.get(), &capability) != VORN_OK) return 1;
  std::cout << "C++: " << capability.name << ' ' << capability.version << '\n';
  return capability.ynr.memory_mb > 0 ? 0 : 1;
}
