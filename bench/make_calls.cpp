#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// make_calls WHAT TIMES: makes the system calls of WHAT (stat, open_close, create_unlink or rename)
// that many times, on the files "file" and "other" of the working directory.
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

} // namespace

int main(int argc, char** argv)
{
    const struct {
        const char* name;
        bool (*once)();
    } kinds[] = {{"stat", stat_once},
                 {"open_close", open_close_once},
                 {"create_unlink", create_unlink_once},
                 {"rename", rename_once}};
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
