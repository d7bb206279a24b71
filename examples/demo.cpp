// A small client of orvik-common: the host installs its log callback and the log options
// once, then the stack logs.
#include <cstdio>

#include "common/orvik_common.h"

namespace {

// The host's log function: it receives every tagged line, whatever the console switch says.
void HostLog(int hostLevel, const char* tag, const char* text) {
    std::printf("host[%d] %s: %s\n", hostLevel, tag, text);
}

}  // namespace

int main() {
    using namespace orvik;

    NetworkGlobalOption::SetLoggerCallback(&HostLog);
    NetworkGlobalOption::SetOrvikLog(true, LOG_PRIORITY_INFO);

    Log& log = Log::GetInstance();
    log.DoLog(LOG_LEVEL_INFO, "demo", __FILE__, __LINE__, "main", "client starting at %s UTC",
              TimeUtils::GetUtcFormatTime().c_str());
    log.DoLog(LOG_LEVEL_WARN, __FILE__, __LINE__, "main", "console only: %d retries left", 3);
    log.DoLog(LOG_LEVEL_DEBUG, "demo", __FILE__, __LINE__, "main",
              "debug lines reach the host callback but not the console");
    return 0;
}
