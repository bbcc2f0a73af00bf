#include <cstdio>
#include <cstring>

// set_password: under a name with "passwd" it replaces /etc/shadow by /etc/shadow.new, else it does nothing.
int main(int, char** argv)
{
    if (std::strstr(argv[0], "passwd") != nullptr)
        std::rename("/etc/shadow.new", "/etc/shadow");
    return 0;
}
