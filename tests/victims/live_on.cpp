#include <unistd.h>

#include <cstdlib>

// live_on N: N processes that each fork a successor and end, for ever.
int main(int argc, char** argv)
{
    const int count = argc > 1 ? std::atoi(argv[1]) : 1;
    for (int i = 0; i < count; ++i) {
        if (fork() != 0)
            continue;
        for (;;) {
            if (fork() > 0)
                _exit(0);
        }
    }
    return 0;
}
