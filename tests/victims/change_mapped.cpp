#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// change_mapped FILE OTHER ARGUMENT: maps FILE for writing and makes the page that it is going to
// change dirty, so that later stores leave no trace in the file's times; then execs FILE with
// ARGUMENT while a thread puts the content of OTHER over its start and lets go of it.
int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    std::ifstream in(argv[2], std::ios::binary);
    const std::string other{std::istreambuf_iterator<char>(in), {}};
    const int file = open(argv[1], O_RDWR | O_CLOEXEC);
    void* const mapped = mmap(nullptr, other.size(), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (file < 0 || mapped == MAP_FAILED)
        return 3;
    auto* const bytes = static_cast<volatile char*>(mapped);
    for (std::size_t at = 0; at < other.size(); at += 4096)
        bytes[at] = bytes[at];
    std::this_thread::sleep_for(std::chrono::milliseconds(50));

    std::thread([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
        std::memcpy(mapped, other.data(), other.size());
        munmap(mapped, other.size());
        close(file);
    }).detach();
    char* const arguments[] = {argv[1], argv[3], nullptr};
    execv(argv[1], arguments);
    return 4;
}
