// The whole lum camera API: values, maths, records, cameras, fusion and room files.
// Include this or the single headers it lists.
#pragma once

#include "lum/camera.hpp"
#include "lum/fusion.hpp"
#include "lum/math.hpp"
#include "lum/plane.hpp"
#include "lum/records.hpp"
#include "lum/types.hpp"
