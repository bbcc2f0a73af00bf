#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

// race ACT HOW ONE OTHER ROUNDS [LOG]: in each round ACTs on the file ONE by a name that means OTHER, which
// is as long, every other moment. HOW:
//   memory     a thread rewrites the name
//   link       a symbolic link to the file is exchanged
//   hard-link  the same with a hard link
//   parent     a symbolic link to the file's directory is exchanged
//   directory  the directory above that one is exchanged for a link to the other's
//   written    ONE's last byte is written by a descriptor that was open before its first exec: in even
//              rounds as it was, in odd ones as "e"
// ACT: open, unlink, rename; fork, vfork, thread: an exec, with the argument LOG, in a child made
// so, or in a thread of a child.
// Prints how often it was let through, was refused or killed, and reached the other file.

namespace {

namespace fs = std::filesystem;

std::string how;
std::string one;
std::string other;
char name[4096];

[[noreturn]] void exchange()
{
    const fs::path made = how == "parent" ? fs::path(name).parent_path() : fs::path(name);
    const std::string fresh = made.string() + ".fresh";
    const std::string above = fs::path(one).parent_path().parent_path();
    for (bool again = false;; again = !again) {
        const fs::path target = again ? one : other;
        if (how == "memory") {
            for (std::size_t i = 0; i < one.size(); ++i)
                static_cast<volatile char*>(name)[i] = target.native()[i];
        } else if (how == "directory") {
            renameat2(AT_FDCWD, above.c_str(), AT_FDCWD, (above + ".link").c_str(), RENAME_EXCHANGE);
        } else {
            unlink(fresh.c_str());
            const int error =
                how == "hard-link"
                    ? link(target.c_str(), fresh.c_str())
                    : symlink((how == "link" ? target : target.parent_path()).c_str(), fresh.c_str());
            if (error == 0)
                rename(fresh.c_str(), made.c_str());
        }
    }
}

ino_t number_of(const std::string& path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_ino : 0;
}

/// Does it to a file; the error, 0 when it worked.
int act_on_file(const std::string& act, const std::string& moved, ino_t evil, int& reached)
{
    const int fd = act == "open" ? open(name, O_RDONLY) : -1;
    const int result = act == "open" ? fd : act == "unlink" ? unlink(name) : rename(name, moved.c_str());
    if (result < 0)
        return errno;
    struct stat about = {};
    reached += fd >= 0 && fstat(fd, &about) == 0 && about.st_ino == evil ? 1 : 0;
    reached += number_of(moved) == evil ? 1 : 0;
    close(fd);
    int made = -1;
    while (act != "open" && (made = open(one.c_str(), O_CREAT | O_WRONLY, 0666)) < 0) {
    }
    close(made);
    return 0;
}

[[noreturn]] void exec(char* log, bool changed)
{
    char* const arguments[] = {name, log, nullptr};
    if (how == "written") {
        const std::string copy = one + std::to_string(getpid());
        fs::copy_file(one, copy);
        const int fd = open(copy.c_str(), O_WRONLY | O_CLOEXEC);
        const auto last = static_cast<off_t>(fs::file_size(copy)) - 1;
        std::thread([=] {
            usleep(static_cast<unsigned>(getpid()) * 37 % 3000);
            if (changed && pwrite(fd, "e", 1, last) != 1)
                _exit(102);
            close(fd);
        }).detach();
        do
            execv(copy.c_str(), arguments);
        while (errno == ETXTBSY);
    }
    execv(name, arguments);
    _exit(errno == EPERM ? 100 : 101);
}

/// Runs it; the error, 0 when it worked, -1 when it was killed.
int act_by_child(const std::string& act, char* log, bool changed)
{
    const pid_t child = act == "vfork" ? vfork() : fork();
    if (child == 0) {
        if (how == "memory" && act != "vfork")
            std::thread(exchange).detach();
        if (act == "thread")
            std::thread([=] { exec(log, changed); }).join();
        exec(log, changed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (how == "written")
        unlink((one + std::to_string(child)).c_str());
    return WIFSIGNALED(status) ? -1 : WEXITSTATUS(status) == 100 ? EPERM : WEXITSTATUS(status);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 6)
        return 2;
    const std::string act = argv[1];
    const bool by_child = act == "fork" || act == "vfork" || act == "thread";
    how = argv[2];
    one = argv[3];
    other = argv[4];
    const fs::path above = fs::path(one).parent_path().parent_path();
    const fs::path by = above.string() + ".by";
    std::strcpy(name, (how == "link" || how == "hard-link" ? by
                       : how == "parent"                   ? by / fs::path(one).filename()
                                                           : fs::path(one))
                          .c_str());
    if (how == "directory")
        fs::create_symlink(fs::path(other).parent_path().parent_path(), above.string() + ".link");
    if (how != "written" && !(how == "memory" && by_child && act != "vfork"))
        std::thread(exchange).detach();

    const ino_t evil = number_of(other);
    int through = 0;
    int refused = 0;
    int reached = 0;
    for (int i = 0; i < std::atoi(argv[5]); ++i) {
        const int error = by_child ? act_by_child(act, argv[6], i % 2 != 0)
                                   : act_on_file(act, above.string() + ".to", evil, reached);
        through += error == 0 ? 1 : 0;
        refused += error == EPERM || error == -1 ? 1 : 0;
    }
    std::printf("through %d refused %d reached %d\n", through, refused, reached);
    std::fflush(stdout);
    _exit(0);
}
