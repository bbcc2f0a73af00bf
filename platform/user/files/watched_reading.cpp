#include "platform/user/files/watched_reading.h"

#include <utility>

#include "host/result.h"
#include "platform/user/driver/reading.h"

namespace platform {

namespace {

thread_local reading* of_thread = nullptr;

} // namespace

reading::reading(std::function<bool()> given_up) : given_up_(std::move(given_up))
{
    of_thread = this;
}

reading::~reading()
{
    of_thread = nullptr;
}

bool reading_given_up()
{
    reading* const now = of_thread;
    if (now == nullptr || !now->given_up_ || !now->given_up_())
        return false;
    now->complete_ = false;
    return true;
}

int reading_failed(int error)
{
    if (of_thread != nullptr && host::is_shortage(error))
        of_thread->complete_ = false;
    return -error;
}

} // namespace platform
