// Includes the platform's public headers so that every function they declare is exported, while
// everything else in these libraries stays hidden (-fvisibility=hidden).
#pragma once

#pragma GCC visibility push(default)
#include <capi-base-common.h>
#include <dlog.h>
#include <rpc-port.h>
#pragma GCC visibility pop
