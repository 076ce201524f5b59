/// The OpenCL device that the library takes: the first platform's GPU, through the same functions.
#pragma once

#include "facts.h"

namespace lumivert::check {

void describe_device(Facts& facts);

} // namespace lumivert::check
