#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "platform/kernel/printk.h"
#include "platform/user/driver/machine.h"

namespace {

struct kernel_log {
    std::mutex lock;
    std::function<void(std::string_view)> sink;
};

kernel_log& the_log()
{
    static auto* log = new kernel_log;
    return *log;
}

} // namespace

void platform::set_kernel_log(std::function<void(std::string_view)> sink)
{
    const std::lock_guard guard(the_log().lock);
    the_log().sink = std::move(sink);
}

int kernel::printk(const char* format, ...)
{
    std::va_list measured;
    va_start(measured, format);
    std::va_list written;
    va_copy(written, measured);
    const int length = ::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);

    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length) + 1);
        ::vsnprintf(text.data(), text.size(), format, written);
        text.pop_back();
    }
    va_end(written);

    kernel_log& log = the_log();
    const std::lock_guard guard(log.lock);
    if (log.sink && !text.empty())
        log.sink(text);
    return static_cast<int>(text.size());
}
