// Everything orvik-common publishes, in one include.
#ifndef ORVIK_COMMON_ORVIK_COMMON_H
#define ORVIK_COMMON_ORVIK_COMMON_H

// Logging and options
#include "common/log.h"
#include "common/network_global_option.h"

// Text

// Encoding, paths and files

// Concurrency
#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/thread_pool.h"

// Time and pacing
#include "common/time_utils.h"

// Reporting

// Platform helpers

#endif  // ORVIK_COMMON_ORVIK_COMMON_H
