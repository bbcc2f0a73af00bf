// Written events, one a line.
//
// They happen on a machine without files. A line that cannot be replayed is told, and nothing else.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

#include "replay/replay.h"

namespace {

/// An empty directory that goes with the process.
struct empty_directory {
    std::string path = (std::filesystem::temp_directory_path() / "sorvanic-fuzz-XXXXXX").string();
    empty_directory()
    {
        if (::mkdtemp(path.data()) == nullptr)
            std::abort();
    }
    ~empty_directory() { std::filesystem::remove_all(path); }
};

/// A machine, made anew after so many inputs, before its tasks fill the memory.
replay::world& machine()
{
    static const empty_directory root;
    static std::unique_ptr<replay::world> world;
    static unsigned inputs = 0;
    if (inputs++ % 1000 == 0) {
        world.reset();
        world = std::make_unique<replay::world>(
            replay::options{.policy = root.path, .root = root.path, .now = 0});
        world->connect_agent();
    }
    return *world;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::istringstream events(std::string(reinterpret_cast<const char*>(data), size));
    try {
        replay::run(events, machine(), [](const std::string&) {});
    } catch (const replay::bad_line&) {
        // Said to whoever has written the line.
    }
    return 0;
}
