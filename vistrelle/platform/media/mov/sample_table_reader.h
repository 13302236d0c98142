#pragma once

#include <cstdint>
#include <span>

#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform::mov {

/// Lists the samples of a sample table box's content ('stbl', 14496-12, 8.5.1) behind those of `track`, whose header
/// and descriptions have been read. Samples that the tables do not agree on are left out.
void readSampleTable(std::span<const std::uint8_t> tables, SampleTables& track);

}  // namespace vistrelle::platform::mov
