#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// make_calls WHAT TIMES: makes the system calls of WHAT (see the table in main) that many times, on the files
// "file" and "other" of the working directory.
namespace {

bool stat_once()
{
    struct stat about;
    return stat("file", &about) == 0;
}

bool open_close_once()
{
    const int file = open("file", O_RDONLY | O_CLOEXEC);
    return file >= 0 && close(file) == 0;
}

bool create_unlink_once()
{
    const int file = open("other", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    return file >= 0 && close(file) == 0 && unlink("other") == 0;
}

bool rename_once()
{
    return std::rename("file", "other") == 0 && std::rename("other", "file") == 0;
}

/// As a server of files does.
bool serve_once()
{
    struct stat about;
    char content[65536];
    const int file = open("file", O_RDONLY | O_CLOEXEC);
    if (file < 0 || fstat(file, &about) != 0)
        return false;
    ssize_t size = 0;
    while ((size = read(file, content, sizeof content)) > 0) {
    }
    return size == 0 && close(file) == 0;
}

bool watch_once()
{
    static const int watches = inotify_init1(IN_CLOEXEC);
    const int watch = inotify_add_watch(watches, ".", IN_CREATE);
    return watch >= 0 && inotify_rm_watch(watches, watch) == 0;
}

volatile sig_atomic_t signals_taken = 0;

/// To itself, and a handler runs.
bool signal_once()
{
    static const auto former = signal(SIGUSR1, [](int) { signals_taken = signals_taken + 1; });
    const auto before = signals_taken;
    return former != SIG_ERR && kill(getpid(), SIGUSR1) == 0 && signals_taken == before + 1;
}

} // namespace

int main(int argc, char** argv)
{
    const struct {
        const char* name;
        bool (*once)();
    } kinds[] = {
        {"stat", stat_once},     {"open_close", open_close_once}, {"create_unlink", create_unlink_once},
        {"rename", rename_once}, {"serve_file", serve_once},      {"watch", watch_once},
        {"signal", signal_once}};
    if (argc < 3)
        return 2;
    for (const auto& kind : kinds)
        if (std::strcmp(kind.name, argv[1]) == 0) {
            for (int left = std::atoi(argv[2]); left > 0; --left)
                if (!kind.once())
                    return 1;
            return 0;
        }
    return 2;
}
