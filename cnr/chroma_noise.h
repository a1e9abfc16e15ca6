// How coarse the noise of a frame's chroma is: what demosaicing and scaling made of it.
//
// Compares how much neighbours differ on both chroma levels, over the quarter of the sampled blocks
// whose guide is calmest. Noise without correlation loses half of its differences per level or
// more; noise that was blurred on its way keeps them all, its blotches being of the coarse level's
// size.
//
// Shape:   level 0 and the level made from it, with the guide of level 0; rows as far apart as they
//          are wide.
// Errors:  planes below 24 samples a side count as fine-grained.
// Threads: runs on the caller's; a bounded number of blocks, whatever the frame's size.
#pragma once

#include "vorn_ycnr.h"

namespace vorn {

constexpr int kFineGrained = 128;  // noise without correlation, or nothing measured

struct chroma_planes {
  const _tag_uni_image &u, &v;
};

// Differences on level 1 over those on level 0, in 1/256: about 135 for noise of a sensor with
// nothing but demosaicing behind it, 330 for what camera pipelines leave.
int chroma_coarseness(const _tag_uni_image& guide, const chroma_planes& fine,
                      const chroma_planes& coarse);

}  // namespace vorn
