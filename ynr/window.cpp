#include "ynr/window.h"

#include "base/log.h"
#include "runtime/image.h"
#include "runtime/stage.h"
#include "ynr/block_rules.h"
#include "ynr/block_sums.h"
#include "ynr/run_walk.h"

namespace {

constexpr int kChunkMultiple = 16;  // rows: of whole blocks, so that plans pay

// A whole level on the pool. Block rows do not depend on each other, so any cut gives the same.
int walk_shared(ynr_handle_t* handle, vorn::window_pass pass) {
  vorn::weight_table table;
  pass.table = vorn::kept_weight_table(*handle, pass.map);
  if (!pass.table && vorn::make_weight_table(&table, pass.map)) pass.table = &table;
  vorn::row_queue rows(pass.src->height, kChunkMultiple);
  return vorn::run_shared(handle->pool, [&] {
    const double start = getTime();
    vorn::walk_queue(pass, &rows);
    if (pass.rings == 1) vorn::log_process3x3(getTime() - start);
  });
}

}  // namespace

void vorn::log_process3x3(double ms) {
  VORN_LOG_AT(kLogDebug, "process3x3_process", 1898, "        process3x3_pro   %.3f  \n", ms);
}

int process3x3_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return walk_shared(handle, {src, dst, mask, weight_map, 1});
}

int process5x5_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return walk_shared(handle, {src, dst, mask, weight_map, 2});
}

int process7x7_thread(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                      _tag_uni_image* mask, int* weight_map) {
  return walk_shared(handle, {src, dst, mask, weight_map, 3});
}

int nlm_denoise_process(ynr_handle_t* handle, _tag_uni_image* src, _tag_uni_image* dst,
                        _tag_uni_image* mask, int intensity, int radius) {
  int own_map[vorn::kMapSize];
  int* weight_map = vorn::kept_weight_map(*handle, intensity);
  if (!weight_map) {
    MakeWeightMap(own_map, static_cast<float>(intensity), vorn::kMapSize);
    weight_map = own_map;
  }
  switch (radius) {
    case 3:
      return process3x3_thread(handle, src, dst, mask, weight_map);
    case 5:
      return process5x5_thread(handle, src, dst, mask, weight_map);
    case 7:
      return process7x7_thread(handle, src, dst, mask, weight_map);
    default:
      copy_uni_image(dst, src);
      return 0;
  }
}
