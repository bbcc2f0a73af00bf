#include <openssl/evp.h>

#include <cstring>
#include <memory>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/ratio.h"
#include "digest/file_digest.h"

// One stream of bytes in memory, digested as a whole, small ones many times in a round.

namespace {

constexpr std::size_t bytes_in_a_round = std::size_t{1} << 20;

void one_stream(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::size_t repeats = bytes_in_a_round / size;
    std::vector<kernel::u8> data(size);
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<kernel::u8>(i * 167 + i / 251);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> other(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    kernel::u8 our_digest[md5_digest_size];
    kernel::u8 peer_digest[md5_digest_size];

    bench::alternate(
        state, "OpenSSL EVP", repeats,
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < repeats; ++i) {
                    md5_context context;
                    sorvanic_kernel_md5sum_module.init(&context);
                    sorvanic_kernel_md5sum_module.update(&context, data.data(),
                                                         static_cast<kernel::u32>(size));
                    sorvanic_kernel_md5sum_module.final(&context, our_digest);
                }
            });
        },
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < repeats; ++i) {
                    EVP_DigestInit_ex(other.get(), EVP_md5(), nullptr);
                    EVP_DigestUpdate(other.get(), data.data(), size);
                    EVP_DigestFinal_ex(other.get(), peer_digest, nullptr);
                }
            });
        });
    if (std::memcmp(our_digest, peer_digest, sizeof our_digest) != 0)
        state.SkipWithError("FAILED: the digests differ");
}

} // namespace

void bench::register_md5(const plan& plan)
{
    benchmark::RegisterBenchmark("md5", one_stream)
        ->Arg(64)
        ->Arg(4096)
        ->Arg(65536)
        ->Arg(1 << 20)
        ->Iterations(plan.rounds(501, 21))
        ->UseManualTime();
}
