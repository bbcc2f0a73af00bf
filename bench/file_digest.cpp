#include "digest/file_digest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "bench/benchmarks.h"
#include "bench/directory.h"
#include "bench/ratio.h"
#include "host/unique_fd.h"

// A file by its name: opened, read in pieces of 4096 bytes into a buffer that is cleared
// before each, and closed. The peer is the same loop over plain system calls and OpenSSL.

namespace {

using context_handle = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

int openssl_digest(const char* path, kernel::u8* digest)
{
    const host::unique_fd file(::open(path, O_RDONLY | O_CLOEXEC));
    if (!file)
        return -1;
    const context_handle context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr);
    const std::unique_ptr<char[]> buffer(new char[4096]);
    for (;;) {
        std::memset(buffer.get(), 0, 4096);
        benchmark::ClobberMemory(); // the clearing is part of the work
        const ssize_t size = ::read(file.get(), buffer.get(), 4096);
        if (size <= 0)
            break;
        EVP_DigestUpdate(context.get(), buffer.get(), static_cast<std::size_t>(size));
    }
    EVP_DigestFinal_ex(context.get(), digest, nullptr);
    return 0;
}

void compare(benchmark::State& state, const std::string& our_path, const std::string& peer_path,
             std::size_t repeats)
{
    kernel::u8 our_digest[md5_digest_size] = {};
    kernel::u8 peer_digest[md5_digest_size] = {};
    bench::alternate(
        state, "the same loop on OpenSSL", repeats,
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < repeats; ++i)
                    sorvanic_kernel_md5sum_module.handler(our_path.c_str(), our_digest);
            });
        },
        [&] {
            return bench::seconds([&] {
                for (std::size_t i = 0; i < repeats; ++i)
                    openssl_digest(peer_path.c_str(), peer_digest);
            });
        });
    if (std::memcmp(our_digest, peer_digest, sizeof our_digest) != 0)
        state.SkipWithError("FAILED: the digests differ");
}

void existing_file(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const bench::mounted_directory files("/files");
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        content[i] = static_cast<char>(i * 167 + i / 251);
    files.write("program", content);
    compare(state, "/files/program", files / "program", 1 + 500'000 / (size + 10'000));
}

void absent_file(benchmark::State& state)
{
    const bench::mounted_directory files("/files");
    compare(state, "/files/absent", files / "absent", 500);
}

} // namespace

void bench::register_file_digest(const plan& plan)
{
    benchmark::RegisterBenchmark("file_digest", existing_file)
        ->Arg(0)
        ->Arg(40'000)
        ->Arg(1'200'000)
        ->Iterations(plan.rounds(301, 11))
        ->UseManualTime();
    benchmark::RegisterBenchmark("file_digest/absent", absent_file)
        ->Iterations(plan.rounds(301, 11))
        ->UseManualTime();
}
