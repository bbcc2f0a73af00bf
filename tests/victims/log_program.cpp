#include <fcntl.h>
#include <unistd.h>

// log_program FILE: appends the last byte of the file that it runs from, as a line, to FILE.
int main(int argc, char** argv)
{
    char line[2] = {0, '\n'};
    const int self = open("/proc/self/exe", O_RDONLY);
    const int log = argc > 1 ? open(argv[1], O_WRONLY | O_CREAT | O_APPEND, 0666) : -1;
    const bool done = lseek(self, -1, SEEK_END) >= 0 && read(self, line, 1) == 1 && write(log, line, 2) == 2;
    return done ? 0 : 1;
}
