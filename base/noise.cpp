#include "base/noise.h"

void GetRandomTable(short* table, int count, unsigned seed, short low, short high) {
  std::mt19937 engine(seed);
  const vorn::uniform_int16 draw(low, high);
  for (int i = 0; i < count; ++i) table[i] = draw(engine);
}
