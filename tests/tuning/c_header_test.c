/* The default set as camera code sees it: a header that `vorn-ycnr tuning to-c` wrote, compiled
 * into the program, must hold and choose what the library reads from the JSON text. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "default_set.h"
#include "vorn_tuning.h"

int main(void) {
  int wrong = 0;
  vorn_tuning_set* set = vorn_tuning_default(NULL);
  if (vorn_tuning_count(set) != sensor_tuning_count) wrong++;
  for (double gain = 0.1; gain < 1000; gain *= 1.01) {
    ycnr_ynr_tuning_param luma;
    ycnr_cnr_tuning_param chroma;
    const sensor_entry* entry = sensor_nearest(gain);
    if (vorn_tuning_for_gain(set, gain, &luma, &chroma) != VORN_TUNING_OK) wrong++;
    if (memcmp(&entry->luma, &luma, sizeof luma) || memcmp(&entry->chroma, &chroma, sizeof chroma))
      wrong++;
  }
  if (sensor_nearest(0) || sensor_nearest(NAN) || sensor_nearest(2)->gain != 2) wrong++;
  vorn_tuning_free(set);
  printf("%d wrong\n", wrong);
  return wrong != 0;
}
