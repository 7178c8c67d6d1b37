// What a host is told of a flow.
#pragma once

#include "boundary/json_reading.h"
#include "solver/statistics.h"

namespace zeph {

Json statisticsReport(const Statistics& statistics);
Json snapshotReport(const Frame& frame);

}  // namespace zeph
