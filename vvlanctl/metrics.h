// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl metrics: the snapshot and check's findings in the Prometheus text
// exposition format, for node_exporter's textfile collector.
#pragma once

#include <string>
#include <vector>

#include "check.h"
#include "snapshot.h"

std::string metrics_text(const snapshot &s, const std::vector<finding> &found);
