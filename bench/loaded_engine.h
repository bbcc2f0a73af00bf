#ifndef SORVANIC_BENCH_LOADED_ENGINE_H
#define SORVANIC_BENCH_LOADED_ENGINE_H

#include <stdexcept>

#include "bench/directory.h"
#include "core/entry.h"

namespace bench {

/// The engine over policy files of its own. At the end of the scope it is unloaded, and all that
/// was mounted is unmounted.
class loaded_engine {
public:
    loaded_engine() { platform::mount_memory("/etc/sorvanic/kernel"); }
    ~loaded_engine() { unload(); }
    loaded_engine(const loaded_engine&) = delete;
    loaded_engine& operator=(const loaded_engine&) = delete;

    void write(std::string_view name, std::string_view content) const { policy_.write(name, content); }

    void load()
    {
        if (sorvanic_init() != 0)
            throw std::runtime_error("the engine does not start");
        loaded_ = true;
    }

    void unload()
    {
        if (loaded_)
            sorvanic_exit();
        loaded_ = false;
    }

private:
    mounted_directory policy_{"/etc/sorvanic"};
    bool loaded_ = false;
};

} // namespace bench

#endif
