// SPDX-License-Identifier: BSD-3-Clause
// Everything the shared test support offers.
#pragma once

#include "testsupport/eventually.h"
#include "testsupport/fd_capture.h"
#include "testsupport/redis_client.h"
#include "testsupport/redis_server.h"
#include "testsupport/server_features.h"
