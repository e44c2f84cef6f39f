// Base64 of 1 MiB with its line breaks, against the system's own.

#include <vorn/vorn.h>

#include "core/win32.h"

#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <vector>
#include <wincrypt.h>

namespace {

constexpr uint32_t kSize = 1 << 20;

const std::vector<uint8_t>& Data()
{
    static const std::vector<uint8_t> data = [] {
        std::mt19937 random(1);
        std::vector<uint8_t> bytes(kSize);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
        return bytes;
    }();
    return data;
}

const std::string& Text()
{
    static const std::string text = [] {
        uint32_t size = 0;
        VornBase64EncodeBuffer(Data().data(), kSize, nullptr, &size);
        std::string encoded(size, '\0');
        VornBase64EncodeBuffer(Data().data(), kSize, encoded.data(), &size);
        encoded.pop_back();
        return encoded;
    }();
    return text;
}

void BM_Base64Encode_vorn(benchmark::State& state)
{
    std::string text(Text().size() + 1, '\0');
    for (auto _ : state) {
        uint32_t size = 0;
        VornBase64EncodeBuffer(Data().data(), kSize, text.data(), &size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kSize});
}

void BM_Base64Encode_CryptBinaryToStringA(benchmark::State& state)
{
    std::string text(Text().size() + (1 << 16), '\0');
    for (auto _ : state) {
        DWORD size = static_cast<DWORD>(text.size());
        CryptBinaryToStringA(Data().data(), kSize, CRYPT_STRING_BASE64, text.data(), &size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kSize});
}

void BM_Base64Decode_vorn(benchmark::State& state)
{
    std::vector<uint8_t> data(Text().size());
    for (auto _ : state) {
        uint32_t size = 0;
        VornBase64DecodeBuffer(Text().data(), static_cast<uint32_t>(Text().size()), data.data(), &size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kSize});
}

void BM_Base64Decode_CryptStringToBinaryA(benchmark::State& state)
{
    std::vector<uint8_t> data(Text().size());
    for (auto _ : state) {
        DWORD size = static_cast<DWORD>(data.size());
        CryptStringToBinaryA(Text().data(), static_cast<DWORD>(Text().size()), CRYPT_STRING_BASE64,
                             data.data(), &size, nullptr, nullptr);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kSize});
}

BENCHMARK(BM_Base64Encode_vorn);
BENCHMARK(BM_Base64Encode_CryptBinaryToStringA);
BENCHMARK(BM_Base64Decode_vorn);
BENCHMARK(BM_Base64Decode_CryptStringToBinaryA);

}  // namespace

BENCHMARK_MAIN();
