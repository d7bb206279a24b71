// Base64 text of short and longer inputs against libcrypto's EVP_EncodeBlock, the call a user
// would make without this library, on the same bytes into the same buffer.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <vector>

#include "common/encrypt_utils.h"

namespace {

struct Buffers {
    explicit Buffers(int length)
        : source(static_cast<size_t>(length)),
          text(orvik::EncryptUtils::Base64EncodeOutLen(nullptr, source.size())) {
        for (size_t i = 0; i < source.size(); ++i) {
            source[i] = static_cast<unsigned char>(i * 37 + 11);
        }
    }
    std::vector<unsigned char> source;
    std::vector<unsigned char> text;
};

void BM_Base64_Orvik(benchmark::State& state) {
    Buffers b(static_cast<int>(state.range(0)));
    const int length = static_cast<int>(b.source.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            orvik::EncryptUtils::Base64(b.text.data(), b.text.size(), b.source.data(), length));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_Base64_Orvik)->Name("BM_Base64/orvik")->ArgName("bytes")->Arg(16)->Arg(1024);

void BM_Base64_EvpEncodeBlock(benchmark::State& state) {
    Buffers b(static_cast<int>(state.range(0)));
    const int length = static_cast<int>(b.source.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(b.text.data(), b.source.data(), length));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_Base64_EvpEncodeBlock)
    ->Name("BM_Base64/openssl_EVP_EncodeBlock")
    ->ArgName("bytes")
    ->Arg(16)
    ->Arg(1024);

}  // namespace

BENCHMARK_MAIN();
