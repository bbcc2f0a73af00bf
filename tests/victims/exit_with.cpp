#include <cstdlib>

// exit_with STATUS: ends with that status.
int main(int argc, char** argv)
{
    return argc > 1 ? std::atoi(argv[1]) : 0;
}
