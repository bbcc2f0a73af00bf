// What busybox has no command for, inside the guest: usage: try WHAT [ARGUMENT...]. Exits with 0 when it was
// done, 1 when it was refused with EPERM, and 2 when it failed otherwise.

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

static int outcome(long result)
{
    if (result >= 0)
        return 0;
    if (errno == EPERM)
        return 1;
    perror("try");
    return 2;
}

// Runs the program and tells whether its exec was refused; its own exit status must be 0.
static int run(int fd, const char* path)
{
    int status = 0;
    const pid_t child = fork();
    if (child == 0) {
        char* const arguments[] = {(char*)path, "nothing", NULL};
        char* const environment[] = {NULL};
        if (fd >= 0)
            fexecve(fd, arguments, environment);
        else
            execve(path, arguments, environment);
        _exit(errno == EPERM ? 100 : 101);
    }
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 100)
        return 1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 2;
}

static int run_memory(const char* program)
{
    static char bytes[4 << 20];
    const int from = open(program, O_RDONLY), to = memfd_create("program", MFD_CLOEXEC);
    ssize_t size = read(from, bytes, sizeof bytes);
    if (size <= 0 || write(to, bytes, size) != size || write(to, "x", 1) != 1)
        return 2;
    return run(to, "memory");
}

static int send_request(unsigned type, const void* payload, size_t size)
{
    char message[128] = {};
    const struct sockaddr_nl engine = {.nl_family = AF_NETLINK};
    const struct nlmsghdr header = {.nlmsg_len = NLMSG_HDRLEN + size, .nlmsg_type = type};
    const int link = socket(AF_NETLINK, SOCK_RAW, 31);
    memcpy(message, &header, sizeof header);
    memcpy(message + NLMSG_HDRLEN, payload, size);
    if (link < 0)
        return 2;
    return outcome(sendto(link, message, NLMSG_HDRLEN + size, 0, (const void*)&engine, sizeof engine));
}

static int reload(unsigned mask)
{
    const unsigned payload[] = {1, mask};
    return send_request(18, payload, sizeof payload);
}

// Reports this very process as the user's, and runs the command as it.
static int login(const char* user, char** command)
{
    struct {
        unsigned kind, pid, mode;
        char user[32];
    } payload = {.kind = 2, .pid = getpid()};
    strncpy(payload.user, user, sizeof payload.user - 1);
    send_request(18, &payload, 12 + strlen(user) + 1); // without the module nobody listens
    execv(command[0], command);
    return 2;
}

// How many of `count` runs of the program pass, while the parent reloads everything.
static int storm(const char* program, int count)
{
    int status = 0, passed = 0;
    const pid_t child = fork();
    if (child == 0) {
        for (;;)
            reload(~0U);
    }
    for (int i = 0; i < count; ++i)
        passed += run(-1, program) == 0;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    reload(~0U); // ends behind the last one of the child
    printf("ran while reloading: %d of %d\n", passed, count);
    return passed != 0;
}

// Whether the command makes the engine report a record of this kind to an agent.
static int record(int kind, char** command)
{
    char message[4096];
    const struct sockaddr_nl own = {.nl_family = AF_NETLINK, .nl_pid = getpid()}, engine = {.nl_family = AF_NETLINK};
    const struct nlmsghdr hello = {.nlmsg_len = NLMSG_HDRLEN, .nlmsg_type = 16};
    const struct nlmsghdr goodbye = {.nlmsg_len = NLMSG_HDRLEN, .nlmsg_type = 17};
    const struct timeval patience = {.tv_sec = 2};
    const int link = socket(AF_NETLINK, SOCK_RAW, 31);
    if (link < 0 || bind(link, (const void*)&own, sizeof own) != 0)
        return 1; // without the module
    setsockopt(link, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sendto(link, &hello, sizeof hello, 0, (const void*)&engine, sizeof engine);
    const pid_t child = fork();
    if (child == 0) {
        execv(command[0], command);
        _exit(101);
    }
    waitpid(child, NULL, 0);
    int found = 1;
    while (found != 0 && recv(link, message, sizeof message, 0) > 0)
        found = ((const struct nlmsghdr*)message)->nlmsg_flags != kind;
    sendto(link, &goodbye, sizeof goodbye, 0, (const void*)&engine, sizeof engine);
    return found;
}

int main(int count, char** arguments)
{
    const char* what = count > 1 ? arguments[1] : "nothing";
    const char* first = count > 2 ? arguments[2] : "";
    const char* second = count > 3 ? arguments[3] : "";
    if (strcmp(what, "nothing") == 0)
        return 0;
    if (atoi(what) != 0)
        return (int)sleep(atoi(what)); // stays alive, as the product's process
    if (strcmp(what, "run") == 0)
        return run(-1, first);
    if (strcmp(what, "memory") == 0)
        return run_memory(first);
    if (strcmp(what, "open") == 0)
        return outcome(open(first, O_RDONLY));
    if (strcmp(what, "write") == 0)
        return outcome(open(first, O_WRONLY));
    if (strcmp(what, "create") == 0)
        return outcome(open(first, O_WRONLY | O_CREAT | O_EXCL, 0644));
    if (strcmp(what, "unlink") == 0)
        return outcome(unlink(first));
    if (strcmp(what, "rename") == 0)
        return outcome(rename(first, second));
    if (strcmp(what, "link") == 0)
        return outcome(link(first, second));
    if (strcmp(what, "symlink") == 0)
        return outcome(symlink(first, second));
    if (strcmp(what, "mkdir") == 0)
        return outcome(mkdir(first, 0755));
    if (strcmp(what, "rmdir") == 0)
        return outcome(rmdir(first));
    if (strcmp(what, "truncate") == 0)
        return outcome(truncate(first, 0));
    if (strcmp(what, "chmod") == 0)
        return outcome(chmod(first, 0600));
    if (strcmp(what, "kill") == 0)
        return outcome(kill(atoi(first), atoi(second)));
    if (strcmp(what, "reload") == 0)
        return reload(~0U);
    if (strcmp(what, "install-end") == 0)
        return send_request(23, "", 0);
    if (strcmp(what, "login") == 0)
        return login(first, arguments + 3);
    if (strcmp(what, "record") == 0)
        return record(atoi(first), arguments + 3);
    if (strcmp(what, "storm") == 0)
        return storm(first, atoi(second));
    return 2;
}
