// An encoded policy file, byte for byte.
//
// What the encoder makes of the same bytes is decoded, too, and must be them.

#include <string>
#include <vector>

#include "fuzz/machine.h"
#include "policy/base64.h"

namespace {

std::string decode(const std::string& encoded)
{
    std::vector<char> out(static_cast<std::size_t>(sorvanic_kernel_base64decode_len(encoded.c_str())));
    const int size = sorvanic_kernel_base64decode(out.data(), encoded.c_str());
    fuzz::expect(size >= 0 && static_cast<std::size_t>(size) < out.size(), "decoded text fits its bound");
    return {out.data(), static_cast<std::size_t>(size)};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    fuzz::expect(decode(fuzz::encode(text)) == text, "what is encoded is decoded");
    decode(text);

    fuzz::serve_policy_file(policy_table::objlabel, text);
    fuzz::load(policy_table::objlabel);
    fuzz::destroy(policy_table::objlabel);
    return 0;
}
