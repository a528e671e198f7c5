// SPDX-License-Identifier: BSD-3-Clause
// The public C declarations as this library's translation units see them.
#pragma once

// The library is built with hidden visibility so that only the C API leaves the
// shared object; the public declarations are marked default here, and the
// definitions inherit that.
#pragma GCC visibility push(default)
#include "tukredis.h"
#include "tukredis_host.h"
#pragma GCC visibility pop
