#include "source/program_digest.h"

#include <fmt/format.h>

#include <array>

#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "source/regular_file.h"

namespace source {

std::string key_text(std::uint32_t key)
{
    std::array<char, digest_key_text_size> text;
    digest_key_text(key, text.data());
    return text.data();
}

std::optional<program_digest> digest_program(const std::string& path, std::string& reason)
{
    const md5sum_operations& md5 = sorvanic_kernel_md5sum_module;
    md5_context context;
    md5.init(&context);
    const auto failure = read_regular_file(path, [&](std::string_view piece) {
        md5.update(&context, reinterpret_cast<const kernel::u8*>(piece.data()),
                   static_cast<kernel::u32>(piece.size()));
    });
    if (failure) {
        reason = *failure;
        return std::nullopt;
    }
    std::array<kernel::u8, md5_digest_size> digest;
    md5.final(&context, digest.data());
    program_digest result{fmt::format("{:02x}", fmt::join(digest, "")), 0, {}};
    sorvanic_common_make_16to4(digest.data(), &result.key);
    result.key_text = key_text(result.key);
    return result;
}

} // namespace source
