#pragma once

// The library's header needs these two and does not include them.
// clang-format off
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
#include <jerror.h>
// clang-format on
