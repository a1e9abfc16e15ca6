/* The README's ten lines as a C program: a noisy grey frame must come out flatter. */
#include <stdio.h>
#include <vorn_ycnr.h>
enum { W = 128, H = 96, N = W * H * 3 / 2 };
int main(void) {
  static uint8_t noisy[N], clean[N];
  for (int i = 0; i < N; ++i) noisy[i] = 128 + (i * 7919 % 31 + i * 104729 % 17) % 13 - 6;
  ycnr_init_param size = {W, H};
  denoise_handle_t* denoiser = vorn_ycnr_init(&size);
  ycnr_ynr_tuning_param luma = {1, 3, {40, 40, 40}, {7, 7, 7}, 64, 0, 0};
  ycnr_cnr_tuning_param chroma = {1, 16, 8, 0, 1, 8, 8, 0, 0, 0, 0};
  Denoise_Parameters_t tuning = {0, &luma, &chroma};
  long before = 0, after = 0;
  for (int i = 0; i < N; ++i) before += (noisy[i] - 128) * (noisy[i] - 128);
  _tag_uni_image src = {.width = W, .height = H, .plane = {noisy}};
  _tag_uni_image dst = {.width = W, .height = H, .plane = {clean}};
  if (!denoiser || vorn_ycnr_process(denoiser, &src, &dst, &tuning) != VORN_OK) return 1;
  for (int i = 0; i < N; ++i) after += (clean[i] - 128) * (clean[i] - 128);
  printf("C: squared noise %ld -> %ld\n", before, after);
  return vorn_ycnr_deinit(denoiser) != VORN_OK || after * 2 >= before;
}
