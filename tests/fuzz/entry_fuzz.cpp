// One caller's life through the four calls: a size, some frames, each with its tuning and content.
// What must hold: 0 or -1; on -1 dst holds the input; on 0 only what the switched-on algorithms own
// has changed, and a second handle makes the same bytes.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "base/log.h"
#include "vorn_ycnr.h"

namespace {

constexpr int kMaxFrames = 3;
constexpr int kMaxSide = 160;

const int kExtremes[] = {INT_MIN, INT_MAX, INT_MIN + 1, INT_MAX - 1, -65536, 65536, 46341, 32768,
                         -32768,  -129,    -128,        128,         255,    256,   4096,  1 << 20};

#define MUST(condition)                                                     \
  do {                                                                      \
    if (!(condition)) {                                                     \
      std::fprintf(stderr, "line %d: %s is false\n", __LINE__, #condition); \
      abort();                                                              \
    }                                                                       \
  } while (0)

class input {
 public:
  input(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }

  // One byte for the usual small numbers, two for the others, five for any.
  int number() {
    const uint8_t first = byte();
    if (first < 240) return first - 20;
    if (first < 248) return kExtremes[byte() % 16];
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    return static_cast<int>(value);
  }

  // Repeats what is left, so that a short input makes a whole frame.
  void content(uint8_t* out, size_t size) {
    const size_t available = left_ < 512 ? left_ : 512;
    for (size_t i = 0; i < size; ++i)
      out[i] = available ? static_cast<uint8_t>(data_[i % available] + (i / available) * 5) : 128;
    data_ += available;
    left_ -= available;
  }

 private:
  const uint8_t* data_;
  size_t left_;
};

struct closer {
  void operator()(denoise_handle_t* handle) const { MUST(vorn_ycnr_deinit(handle) == 0); }
};
using handle_ptr = std::unique_ptr<denoise_handle_t, closer>;

handle_ptr open(int width, int height) {
  ycnr_init_param size = {width, height};
  return handle_ptr(vorn_ycnr_init(&size));
}

void run_frame(denoise_handle_t* first, denoise_handle_t* second, int width, int height,
               input& in) {
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  const uint8_t flags = in.byte();
  luma.enable = flags & 1;
  chroma.enable = flags >> 1 & 1;
  if (flags & 4) luma.enable = in.number();
  luma.layer = flags & 8 ? in.number() : 2 + in.byte() % 4;
  for (int32_t& value : luma.pIntensity) value = in.number();
  for (int32_t& value : luma.pRadius) value = flags & 16 ? in.number() : 3 + in.byte() % 3 * 2;
  luma.param0 = in.number();
  luma.param1 = luma.param2 = 0;
  for (int32_t* value = &chroma.range_factor; value <= &chroma.param2; ++value)
    *value = in.number();
  if (!(flags & 32)) chroma.scale = (chroma.scale & INT_MAX) % 3;
  Denoise_Parameters_t params = {0, &luma, &chroma};
  if (flags & 64) {  // a frame that is not the handle's
    width = width % kMaxSide + in.byte() % 3;
    height = height % kMaxSide + in.byte() % 3;
    if (width < 1 || height < 1) return;
  }

  const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  const size_t bytes = pixels * 3 / 2;
  std::unique_ptr<uint8_t[]> from(new uint8_t[bytes]), to(new uint8_t[bytes]);
  in.content(from.get(), bytes);
  const std::vector<uint8_t> original(from.get(), from.get() + bytes);
  std::memset(to.get(), 0x5a, bytes);
  _tag_uni_image src = {}, dst = {};
  src.width = dst.width = width;
  src.height = dst.height = height;
  src.plane[0] = from.get();
  dst.plane[0] = to.get();
  const int result = vorn_ycnr_process(first, &src, &dst, &params);
  MUST(result == 0 || result == -1);
  const bool known = (luma.enable & ~1) == 0 && (chroma.enable & ~1) == 0;
  const bool with_luma = known && luma.enable == 1, with_chroma = known && chroma.enable == 1;
  if (result == -1) {
    MUST(std::memcmp(to.get(), original.data(), bytes) == 0);
    MUST(std::memcmp(from.get(), original.data(), bytes) == 0);
    MUST(with_luma || with_chroma);
  } else {
    MUST(with_luma || std::memcmp(to.get(), original.data(), pixels) == 0);
    MUST(with_chroma ||
         std::memcmp(to.get() + pixels, original.data() + pixels, bytes - pixels) == 0);
    if (with_luma && with_chroma) {
      MUST(std::memcmp(from.get(), to.get(), pixels) == 0);
    } else {
      MUST(std::memcmp(from.get(), original.data(), bytes) == 0);
    }
  }
  const std::vector<uint8_t> made(to.get(), to.get() + bytes);
  std::memcpy(from.get(), original.data(), bytes);
  std::memset(to.get(), 0xa5, bytes);
  MUST(vorn_ycnr_process(second, &src, &dst, &params) == result);
  MUST(std::memcmp(to.get(), made.data(), bytes) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  nr_log_Level = 0;
  input in(data, size);
  const uint8_t flags = in.byte();
  int width = 1 + in.byte() % kMaxSide, height = 1 + in.byte() % kMaxSide;
  if (flags & 1) width = in.number();
  if (flags & 2) height = in.number();
  // Large sizes that are possible would only cost time and memory.
  const long long pixels = static_cast<long long>(width) * height;
  const bool valid = width > 0 && height > 0 && pixels <= INT_MAX / 3;
  if (valid && pixels > 4 * kMaxSide * kMaxSide) return 0;
  handle_ptr first = open(width, height), second = open(width, height);
  MUST(!valid == !first && !valid == !second);
  if (!first) return 0;
  ycnr_capability_param capability;
  MUST(vorn_ycnr_capability(first.get(), &capability) == 0);
  for (int i = 0; i < kMaxFrames && (i == 0 || !in.empty()); ++i)
    run_frame(first.get(), second.get(), width, height, in);
  return 0;
}
