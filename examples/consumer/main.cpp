// Built against an installed orvik-common, with the consumer's own standard and a strict
// warning set: every published header compiles clean, links, loads and works.
#include <cstdio>
#include <future>
#include <memory>
#include <string>

#include <common/orvik_common.h>

static_assert(ORVIK_COMMON_VERSION_MAJOR >= 0, "common/version.h is installed");

int main() {
    auto pool = std::make_shared<orvik::ThreadPool>("consumer", 1, 1);
    auto text = std::make_unique<std::string>("abc");
    std::future<std::string> digest = pool->Submit(
        [owned = std::move(text)] { return orvik::EncryptUtils::Sha1Hex(owned->data(), 3); });
    const bool digestOk = digest.get() == "a9993e364706816aba3e25717850c26c9cd0d89d";
    pool->Shutdown(orvik::ThreadPool::SHUTDOWN_AFTER_DRAIN);

    const std::string cwd = orvik::PathToNative(orvik::Path::Getcwd());
    ORVIK_LOG_INFO("orvik-common %s found; working directory %s, digest %s",
                   ORVIK_COMMON_VERSION_STRING, cwd.c_str(), digestOk ? "ok" : "WRONG");
    return digestOk && !cwd.empty() ? 0 : 1;
}
