// Everything orvik-common publishes, in one include.
#ifndef ORVIK_COMMON_ORVIK_COMMON_H
#define ORVIK_COMMON_ORVIK_COMMON_H

// Logging and options
#include "common/log.h"
#include "common/network_global_option.h"

// Text
#include "common/json_object.h"
#include "common/ov_string.h"
#include "common/string_utils.h"

// Encoding, paths and files
#include "common/charset_cvt.h"

// Concurrency

// Time and pacing
#include "common/time_utils.h"

// Reporting

// Platform helpers

#endif  // ORVIK_COMMON_ORVIK_COMMON_H
