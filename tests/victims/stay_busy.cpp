#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

// stay_busy EXECS ADMITTED REFUSED DIRECTORY: goes round until so many execs were tried (0: until SIGTERM),
// in two processes: programs that may run and programs that may not, files in DIRECTORY,
// "DIRECTORY/closed/file" that may not be opened, threads, and processes by the dozen and by the thousand.
// Prints once a second "EXECS OPENS PROCESSES". Ends with 1 and a message at the first wrong answer.

namespace {

struct counts {
    std::atomic<long> execs;
    std::atomic<long> opens;
    std::atomic<long> processes;
    std::atomic<bool> stop;
};
static_assert(std::atomic<long>::is_always_lock_free);

counts* done;
std::string admitted;
std::string refused;
std::string directory;

[[noreturn]] void wrong(const char* what)
{
    std::fprintf(stderr, "stay_busy: %s: %s\n", what, std::strerror(errno));
    _exit(1);
}

int status_of(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        wrong("a child is lost");
    return status;
}

void run_programs()
{
    for (int i = 0; i < 10; ++i) {
        const pid_t child = vfork();
        if (child < 0)
            wrong("vfork");
        if (child == 0) {
            execl(admitted.c_str(), admitted.c_str(), "0", nullptr);
            _exit(99);
        }
        if (status_of(child) != 0)
            wrong("an admitted program did not run");
        if (execl(refused.c_str(), refused.c_str(), "0", nullptr) == 0 || errno != EPERM)
            wrong("a refused program gave no EPERM");
        done->execs += 2;
        ++done->processes;
    }
}

void* open_files(void*)
{
    const std::string mine = directory + "/file-" + std::to_string(gettid());
    const std::string moved = mine + "-moved";
    for (int i = 0; i < 5; ++i) {
        const int fd = open(mine.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0 || write(fd, "x", 1) != 1 || close(fd) != 0)
            wrong("a file");
        if (rename(mine.c_str(), moved.c_str()) != 0 || unlink(moved.c_str()) != 0)
            wrong("a name");
        if (open((directory + "/closed/file").c_str(), O_RDONLY | O_CLOEXEC) >= 0 || errno != EPERM)
            wrong("a closed file was opened");
        done->opens += 2;
    }
    return nullptr;
}

void open_in_threads()
{
    std::vector<pthread_t> threads(4);
    for (pthread_t& each : threads)
        if (pthread_create(&each, nullptr, open_files, nullptr) != 0)
            wrong("a thread");
    for (const pthread_t each : threads)
        pthread_join(each, nullptr);
}

/// Ends in the ways that processes do: by themselves, killed, killed in an exec, or as orphans.
void be_born_and_die(int number)
{
    switch (number % 4) {
    case 0:
        _exit(0);
    case 1:
        pause();
        break;
    case 2:
        execl(admitted.c_str(), admitted.c_str(), "0", nullptr);
        break;
    default:
        if (fork() == 0)
            usleep(1000);
    }
    _exit(0);
}

void fork_many(int number)
{
    std::vector<pid_t> children;
    for (int i = 0; i < number; ++i) {
        const pid_t child = fork();
        if (child < 0)
            wrong("fork");
        if (child == 0)
            be_born_and_die(i);
        children.push_back(child);
    }
    for (int i = 0; i < number; ++i)
        if (i % 4 == 1 || i % 8 == 2)
            kill(children[static_cast<std::size_t>(i)], SIGKILL);
    for (const pid_t child : children)
        status_of(child);
    done->execs += number / 4;
    done->processes += number + number / 4;
}

[[noreturn]] void work(int number)
{
    // The session passes it on to every process: each ends its round first.
    signal(SIGTERM, SIG_IGN);
    for (long round = number * 250; !done->stop; ++round) {
        run_programs();
        open_in_threads();
        if (round % 20 == 0)
            fork_many(40);
        if (round % 500 == 0)
            fork_many(1000);
    }
    _exit(0);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const long wanted = std::atol(argv[1]);
    admitted = argv[2];
    refused = argv[3];
    directory = argv[4];
    void* const shared =
        mmap(nullptr, sizeof(counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        wrong("mmap");
    done = new (shared) counts{};
    for (int number = 0; number < 2; ++number)
        if (fork() == 0)
            work(number);
    struct sigaction stop = {};
    stop.sa_handler = [](int) { done->stop = true; };
    sigaction(SIGTERM, &stop, nullptr);
    sigaction(SIGCHLD, &stop, nullptr);
    while (!done->stop) {
        usleep(1'000'000);
        std::printf("%ld %ld %ld\n", done->execs.load(), done->opens.load(), done->processes.load());
        std::fflush(stdout);
        if (wanted != 0 && done->execs >= wanted)
            done->stop = true;
    }
    int worst = 0;
    for (int status = 0; wait(&status) > 0;)
        worst |= status;
    return worst == 0 ? 0 : 1;
}
