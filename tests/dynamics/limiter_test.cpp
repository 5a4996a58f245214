// SPDX-License-Identifier: ISC
// The limiter.
#include "tests/support/effect_under_test.h"
