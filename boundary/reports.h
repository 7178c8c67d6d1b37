// The reports to the host as JSON: of a flow's statistics, of a frame, and of a view.
#pragma once

#include "boundary/json_reading.h"
#include "render/view.h"
#include "solver/statistics.h"

namespace zeph {

Json statisticsReport(const Statistics& statistics);
Json snapshotReport(const Frame& frame);

// The reply to every operation of a view.
Json statusReport(const View& view);

}  // namespace zeph
