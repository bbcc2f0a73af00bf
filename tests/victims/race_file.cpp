#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

// race_file WHAT ALLOWED FORBIDDEN ROUNDS: opens (or removes) the file "file" of directory ALLOWED,
// ROUNDS times, by a name that comes to mean the one of FORBIDDEN every now and then:
//   memory     another thread overwrites the name in memory
//   link       another process exchanges a symbolic link to the file
//   directory  another process exchanges a directory of that name for a link
//   unlink     as memory, and the file is removed and made again
//   rename     as memory, and the file is renamed and made again
// Prints how often it was let through, was refused, and reached the forbidden file.

namespace {

ino_t number_of(const std::string& path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_ino : 0;
}

void link_to(const std::string& target, const std::string& name)
{
    const std::string fresh = name + ".fresh";
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) == 0)
        rename(fresh.c_str(), name.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const std::string what = argv[1];
    const std::string allowed = std::string(argv[2]) + "/file";
    const std::string forbidden = std::string(argv[3]) + "/file";
    const int rounds = std::atoi(argv[4]);
    const bool takes_away = what == "unlink" || what == "rename";
    const bool in_memory = what == "memory" || takes_away;
    const std::string moved = std::string(argv[2]) + "/moved";
    const ino_t evil = number_of(forbidden);

    static char name[4096];
    std::atomic<bool> ended{false};
    std::thread exchanger;
    if (in_memory) {
        std::strcpy(name, allowed.c_str());
        exchanger = std::thread([&] {
            for (unsigned i = 0; !ended.load(); ++i)
                std::memcpy(name, (i % 2 != 0 ? forbidden : allowed).c_str(), allowed.size() + 1);
        });
    } else {
        const std::string base = std::string(argv[2]) + "/by";
        std::strcpy(name, (what == "link" ? base : base + "/file").c_str());
        exchanger = std::thread([&, base] {
            while (!ended.load()) {
                link_to(what == "link" ? forbidden : argv[3], base);
                link_to(what == "link" ? allowed : argv[2], base);
            }
        });
    }

    int through = 0;
    int refused = 0;
    int reached = 0;
    for (int i = 0; i < rounds; ++i) {
        if (takes_away) {
            const int result = what == "unlink" ? unlink(name) : rename(name, moved.c_str());
            (result == 0 ? through : refused) += 1;
            reached += number_of(forbidden) != evil ? 1 : 0;
            close(open(allowed.c_str(), O_CREAT | O_WRONLY, 0600));
            continue;
        }
        const int fd = open(name, O_RDONLY);
        struct stat about = {};
        if (fd < 0) {
            refused += errno == EPERM ? 1 : 0;
            continue;
        }
        fstat(fd, &about);
        ++through;
        reached += about.st_ino == evil ? 1 : 0;
        close(fd);
    }
    ended.store(true);
    exchanger.join();
    std::printf("through %d refused %d reached %d\n", through, refused, reached);
    return 0;
}
