#include "platform/kernel/binprm.h"

#include <string>
#include <utility>

#include "platform/kernel/security.h"
#include "platform/user/driver/objects.h"
#include "platform/user/files/open_file.h"

// The other objects that hooks get, besides files, entries and tasks.

namespace kernel {

struct linux_binprm {
    platform::file_handle program;
    std::string filename;
};

struct iattr {
    u32 mode;
};

struct timespec {
    s64 seconds;
};

file* bprm_file(const linux_binprm* of)
{
    return of->program.get();
}

const char* bprm_filename(const linux_binprm* of)
{
    return of->filename.c_str();
}

u32 iattr_mode(const iattr* of)
{
    return of->mode;
}

s64 timespec_seconds(const timespec* of)
{
    return of->seconds;
}

} // namespace kernel

namespace platform {

exec_parameters::exec_parameters(kernel::file* program, std::string filename)
    : bprm_(new kernel::linux_binprm{file_handle(program != nullptr ? hold(program) : nullptr),
                                     std::move(filename)})
{
}

exec_parameters::~exec_parameters() = default;

attribute_request::attribute_request(unsigned mode) : attributes_(new kernel::iattr{mode})
{
}

attribute_request::~attribute_request() = default;

clock_request::clock_request(long long seconds) : time_(new kernel::timespec{seconds})
{
}

clock_request::~clock_request() = default;

} // namespace platform
