#include "source/prepared.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "source/build.h"
#include "source/validate.h"

namespace source {

namespace fs = std::filesystem;

prepared::prepared(const std::string& path, const std::string& base, findings& found)
    : loaded_(load_policy(path, found)), directory_(path)
{
    if (found.failed())
        return;
    find_surprises(loaded_, found);
    if (loaded_.kind == policy_kind::built)
        return;
    fs::create_directories(base);
    directory_ = base + "/policy.XXXXXX";
    if (::mkdtemp(directory_.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), directory_);
    is_private_ = true;
    write_policy(loaded_, directory_, found);
}

prepared::~prepared()
{
    std::error_code left;
    if (is_private_)
        fs::remove_all(directory_, left);
}

} // namespace source
