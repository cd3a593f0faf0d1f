// The effects whose production code is an optimised form, written plainly as
// their algorithms read, built for the tests: the same table of effects with
// these row functions in place of the fast ones renders every conformance row
// to the same bytes.
#pragma once

#include "effects/catalogue.h"

const EffectTable& plainEffectTable();
