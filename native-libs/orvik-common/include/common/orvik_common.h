// Everything orvik-common publishes, in one include.
#ifndef ORVIK_COMMON_ORVIK_COMMON_H
#define ORVIK_COMMON_ORVIK_COMMON_H

// Logging and options
#include "common/log.h"
#include "common/log_macros.h"
#include "common/network_global_option.h"

// Text
#include "common/json_object.h"
#include "common/ov_string.h"
#include "common/string_utils.h"

// Encoding, paths and files
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/native_path.h"
#include "common/path.h"

// Concurrency
#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/thread_pool.h"

// Time and pacing
#include "common/time_utils.h"
#include "common/timer_manager.h"
#include "common/token_bucket_speed_limiter.h"

// Reporting
#include "common/file_report_engine.h"
#include "common/reporter.h"

// Platform helpers
#include "common/encrypt_utils.h"
#include "common/http_helper.h"
#include "common/sys_info.h"

// The package's version
#include "common/version.h"

#endif  // ORVIK_COMMON_ORVIK_COMMON_H
