// The catalogue: the table of the effect records (effects/catalogue.cpp).
#pragma once

#include "engine/effect_table.h"

extern const EffectTable kEffectTable;

namespace flairize {
// The first record whose filter is `filter`, or null.
const EffectRecord* recordWithFilter(FilterFunction filter);
}  // namespace flairize
