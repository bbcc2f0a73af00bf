#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// run_memory PROGRAM LOG TRIES [sealed]: runs a copy of PROGRAM, whose last byte is "g", from nameless
// memory, with LOG. A thread changes the last byte to "e" and back through a mapping all the time, unless
// the memory is sealed. Prints how many execs were done and refused.
int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    const bool sealed = argc > 4;
    std::ifstream in(argv[1], std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    const int memory = memfd_create("program", MFD_ALLOW_SEALING | MFD_CLOEXEC);
    if (content.empty() || write(memory, content.data(), content.size()) < 0)
        return 3;
    std::thread changer;
    std::atomic<bool> ended{false};
    if (sealed) {
        if (fcntl(memory, F_ADD_SEALS, F_SEAL_WRITE) != 0)
            return 4;
    } else {
        void* const mapped = mmap(nullptr, content.size(), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
        if (mapped == MAP_FAILED)
            return 5;
        changer = std::thread([&ended, last = static_cast<volatile char*>(mapped) + content.size() - 1] {
            while (!ended)
                *last = *last == 'g' ? 'e' : 'g';
        });
    }
    int done = 0;
    int refused = 0;
    for (int i = 0; i < std::atoi(argv[3]); ++i) {
        const pid_t child = fork();
        if (child == 0) {
            char* const arguments[] = {argv[1], argv[2], nullptr};
            fexecve(memory, arguments, environ);
            _exit(errno == EPERM ? 99 : 98);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            ++done;
        else if (WIFSIGNALED(status) || WEXITSTATUS(status) == 99)
            ++refused;
    }
    ended = true;
    if (changer.joinable())
        changer.join();
    std::printf("done %d refused %d\n", done, refused);
}
