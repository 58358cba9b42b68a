// The digest of one block of 64 bytes, 1 KiB and 1 MiB; beside OpenSSL and GLib, which keep a digest object for it.
#include <cUtil/md5.h>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/evp.h>

#include <cstdint>
#include <numeric>
#include <vector>

namespace
{

/// Runs `digest(data, size, digest)` on a block of range(0) bytes.
template <typename Digest>
void run(benchmark::State& state, Digest digest)
{
    std::vector<uint8_t> data(static_cast<std::size_t>(state.range(0)));
    std::iota(data.begin(), data.end(), uint8_t{0});
    uint8_t result[CU_MD5_DIGEST_SIZE];
    for (auto _ : state) {
        digest(data.data(), data.size(), result);
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void digestOurs(benchmark::State& state)
{
    run(state, [](const uint8_t* data, std::size_t size, uint8_t* digest) {
        cu_checksum_md5(data, static_cast<uint32_t>(size), digest);
    });
}

void digestOpenSsl(benchmark::State& state)
{
    EVP_MD* method = EVP_MD_fetch(nullptr, "MD5", nullptr);
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    run(state, [&](const uint8_t* data, std::size_t size, uint8_t* digest) {
        EVP_DigestInit_ex2(context, method, nullptr);
        EVP_DigestUpdate(context, data, size);
        EVP_DigestFinal_ex(context, digest, nullptr);
    });
    EVP_MD_CTX_free(context);
    EVP_MD_free(method);
}

void digestGLib(benchmark::State& state)
{
    GChecksum* checksum = g_checksum_new(G_CHECKSUM_MD5);
    run(state, [&](const uint8_t* data, std::size_t size, uint8_t* digest) {
        g_checksum_reset(checksum);
        g_checksum_update(checksum, data, static_cast<gssize>(size));
        gsize length = CU_MD5_DIGEST_SIZE;
        g_checksum_get_digest(checksum, digest, &length);
    });
    g_checksum_free(checksum);
}

BENCHMARK(digestOurs)->Name("md5/cUtil")->Arg(64)->Arg(1 << 10)->Arg(1 << 20);
BENCHMARK(digestOpenSsl)->Name("md5/OpenSSL")->Arg(64)->Arg(1 << 10)->Arg(1 << 20);
BENCHMARK(digestGLib)->Name("md5/GChecksum")->Arg(64)->Arg(1 << 10)->Arg(1 << 20);

} // namespace
