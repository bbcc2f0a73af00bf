#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

// fork_from_threads ROUNDS: four threads fork and wait; every other child forks and makes threads
// until it is killed at some moment, its own children being left to end by themselves. Prints
// "done".

namespace {

void be_busy()
{
    for (;;) {
        if (fork() == 0)
            _exit(0);
        std::thread([] {}).join();
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }
}

void rounds_of(int rounds, unsigned delay)
{
    for (int i = 0; i < rounds; ++i) {
        const bool busy = i % 2 == 0;
        const pid_t child = fork();
        if (child == 0) {
            if (busy)
                be_busy();
            _exit(0);
        }
        if (busy) {
            usleep(delay + static_cast<unsigned>(i) * 37 % 1500);
            kill(child, SIGKILL);
        }
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 10;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(rounds_of, rounds, 500 + i * 211);
    for (std::thread& thread : threads)
        thread.join();
    std::puts("done");
    return 0;
}
