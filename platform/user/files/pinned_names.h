#ifndef SORVANIC_PLATFORM_USER_FILES_PINNED_NAMES_H
#define SORVANIC_PLATFORM_USER_FILES_PINNED_NAMES_H

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/unique_fd.h"

namespace platform {

using host::unique_fd;

/// The objects behind the paths that d_path gave during one event. Used by the event's thread only.
class pinned_names {
public:
    void remember(std::string_view path, std::shared_ptr<const unique_fd> object)
    {
        objects_.insert_or_assign(std::string(path), std::move(object));
    }
    std::shared_ptr<const unique_fd> find(std::string_view path) const
    {
        const auto found = objects_.find(path);
        return found == objects_.end() ? nullptr : found->second;
    }

private:
    std::map<std::string, std::shared_ptr<const unique_fd>, std::less<>> objects_;
};

/// The same for the event that runs on the calling thread; without one nothing is remembered.
void remember_pinned(std::string_view path, const std::shared_ptr<const unique_fd>& object);
std::shared_ptr<const unique_fd> find_pinned(std::string_view path);

} // namespace platform

#endif
