#include <cstdio>

// print_arguments [ARGUMENT]...: prints its arguments, itself included, each in brackets.
int main(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i)
        std::printf("[%s]\n", argv[i]);
    return 0;
}
