// The one body the synthetic rooms and stores are made of: a person standing upright in
// the 18-keypoint layout.
#pragma once

namespace synthetic {

// Lateral, height, forward (metres), feet at height 0.
inline const double kSkeleton[18][3] = {
    {0, 1.62, 0.08},    {0, 1.45, 0},     {-0.2, 1.42, 0},     {-0.25, 1.12, 0}, {-0.27, 0.85, 0},
    {0.2, 1.42, 0},     {0.25, 1.12, 0},  {0.27, 0.85, 0},     {-0.1, 0.95, 0},  {-0.11, 0.5, 0},
    {-0.12, 0.08, 0},   {0.1, 0.95, 0},   {0.11, 0.5, 0},      {0.12, 0.08, 0},  {-0.03, 1.68, 0.07},
    {0.03, 1.68, 0.07}, {-0.07, 1.65, 0}, {0.07, 1.65, 0}};

}  // namespace synthetic
