#ifndef SORVANIC_SOURCE_PREPARED_H
#define SORVANIC_SOURCE_PREPARED_H

#include <string>

#include "source/policy.h"

namespace source {

/// A policy in a form that the engine reads: a built directory as it is, any other form built into a private
/// directory, which goes away again with this object.
class prepared {
public:
    /// Loads, checks and, where that is needed, builds the policy at `path`; a private directory is made
    /// below `base`, which is made as well. What is wrong goes to `found`; with an error there this is of no
    /// use. Throws std::system_error when the directory cannot be written.
    prepared(const std::string& path, const std::string& base, findings& found);
    ~prepared();
    prepared(const prepared&) = delete;
    prepared& operator=(const prepared&) = delete;

    /// The directory that the engine reads.
    const std::string& directory() const { return directory_; }
    const policy& loaded() const { return loaded_; }

private:
    policy loaded_;
    std::string directory_;
    bool is_private_ = false;
};

} // namespace source

#endif
