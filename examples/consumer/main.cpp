// Built against an installed orvik-common: it links, loads and logs.
#include <cstdio>

#include "common/orvik_common.h"

int main() {
    orvik::Log::GetInstance().DoLog(orvik::LOG_LEVEL_INFO, "consumer.cpp", 1, "main",
                                    "installed package found at %llu ms",
                                    orvik::TimeUtils::GetTimeMills());
    return 0;
}
