#ifndef SORVANIC_SESSION_STATE_LOSSES_H
#define SORVANIC_SESSION_STATE_LOSSES_H

#include <array>
#include <atomic>
#include <cstddef>

namespace session {

/// Counts the writes that a session could not do, for example on a full disk, and reports the first of each
/// kind at once. Any thread.
class losses {
public:
    enum class kind : unsigned char {
        kernel_log,   ///< pieces of the kernel log
        engine_files, ///< the engine's own: the logs of installations
        status,       ///< files of the status directory, which show older figures then
    };

    /// `error` is why, an error number.
    void add(kind what, int error, unsigned long count = 1);

    unsigned long count(kind what) const { return counts_[static_cast<std::size_t>(what)].load(); }

    /// Whether something is lost for good. The status does not count, because it is written again as soon as
    /// there is room.
    bool any() const { return count(kind::kernel_log) + count(kind::engine_files) != 0; }

private:
    std::array<std::atomic<unsigned long>, 3> counts_ = {};
};

} // namespace session

#endif
