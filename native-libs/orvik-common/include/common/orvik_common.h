// Everything orvik-common publishes, in one include.
#ifndef ORVIK_COMMON_ORVIK_COMMON_H
#define ORVIK_COMMON_ORVIK_COMMON_H

// Logging and options
#include "common/log.h"
#include "common/network_global_option.h"

// Text

// Encoding, paths and files

// Concurrency

// Time and pacing
#include "common/time_utils.h"
#include "common/timer_manager.h"
#include "common/token_bucket_speed_limiter.h"

// Reporting

// Platform helpers

#endif  // ORVIK_COMMON_ORVIK_COMMON_H
