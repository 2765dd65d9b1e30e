#pragma once

#include "RelayCore/RelayCounters.h"
#include "RelayShell/ShellCounters.h"

#include <string>

/// All counters and gauges in the text form of Prometheus.
std::string metricsText(const RelayCounters& core, const RelayGauges& gauges, const ShellCounters& shell);
