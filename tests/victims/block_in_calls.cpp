#include <fcntl.h>
#include <linux/futex.h>
#include <mqueue.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/sendfile.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

// block_in_calls: makes each call that can keep its caller waiting, once with a handler that has
// SA_RESTART and once with one that has not, and hits it with a signal while it waits. After the handler
// has run, what the call waits for comes about. Prints for each "NAME restart|plain: " and "interrupted",
// "done" (it was restarted), "failed" (otherwise), or "hung".

namespace {

int pipe_ends[2];
int full_pipe[2];
int pair[2];
int full_pair[2];
int listener;
int master;
int terminal;
int locked;
int events;
int semaphores;
int messages;
int watched;
mqd_t queue;
int queue_ends[2]; // of a pipe that the handler writes to
int* futex_word;   // shared
char data[1 << 16];

/// A call that waits, and what a process beside it does to end that.
struct blocking_call {
    const char* name;
    long (*wait)();
    void (*satisfy)();
};

void feed_pipe()
{
    [[maybe_unused]] const ssize_t written = write(pipe_ends[1], data, 1);
}

void drain_pipe()
{
    while (read(full_pipe[0], data, sizeof data) > 0) {
    }
}

void feed_pair()
{
    send(pair[1], data, 1, 0);
}

void drain_pair()
{
    while (recv(full_pair[1], data, sizeof data, MSG_DONTWAIT) > 0) {
    }
}

void feed_terminal()
{
    [[maybe_unused]] const ssize_t written = write(master, "line\n", 5);
}

sockaddr_un address()
{
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    std::strcpy(name.sun_path, "socket");
    return name;
}

void connect_to_it()
{
    const sockaddr_un to = address();
    connect(socket(AF_UNIX, SOCK_STREAM, 0), reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

void let_nothing()
{
}

pid_t waited_for;

void end_child()
{
    kill(waited_for, SIGTERM);
}

void unlock()
{
    flock(locked, LOCK_UN);
}

pid_t holder; // of the record lock

void end_holder()
{
    kill(holder, SIGTERM);
}

long lock_record(int command)
{
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    return fcntl(open("records", O_RDWR), command, &whole);
}

void satisfy_futex()
{
    syscall(SYS_futex, futex_word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

const timespec while_unsatisfied = {2, 0};
pollfd on_pipe;
iovec one_byte = {data, 1};

// What nobody satisfies ends by itself: these are never restarted, or with the time that is left.
const blocking_call calls[] = {
    {"read pipe", [] { return long{read(pipe_ends[0], data, 1)}; }, feed_pipe},
    {"readv pipe", [] { return long{readv(pipe_ends[0], &one_byte, 1)}; }, feed_pipe},
    {"splice pipe",
     [] {
         return long{splice(pipe_ends[0], nullptr, open("spliced", O_RDWR | O_CREAT, 0600), nullptr, 1, 0)};
     },
     feed_pipe},
    {"write pipe", [] { return long{write(full_pipe[1], data, 4096)}; }, drain_pipe},
    {"writev pipe", [] { return long{writev(full_pipe[1], &one_byte, 1)}; }, drain_pipe},
    {"sendfile pipe", [] { return long{sendfile(full_pipe[1], open("data", O_RDONLY), nullptr, 4096)}; },
     drain_pipe},
    {"read socket", [] { return long{read(pair[0], data, 1)}; }, feed_pair},
    {"recv socket", [] { return long{recv(pair[0], data, 1, 0)}; }, feed_pair},
    {"write socket", [] { return long{write(full_pair[0], data, 4096)}; }, drain_pair},
    {"send socket", [] { return long{send(full_pair[0], data, 4096, 0)}; }, drain_pair},
    {"accept", [] { return long{accept(listener, nullptr, nullptr)}; }, connect_to_it},
    {"read terminal", [] { return long{read(terminal, data, sizeof data)}; }, feed_terminal},
    {"open fifo to read", [] { return long{open("fifo", O_RDONLY)}; }, [] { open("fifo", O_WRONLY); }},
    {"open fifo to write", [] { return long{open("fifo", O_WRONLY)}; }, [] { open("fifo", O_RDONLY); }},
    {"flock", [] { return long{flock(open("locked", O_RDWR), LOCK_EX)}; }, unlock},
    {"record lock", [] { return lock_record(F_SETLKW); }, end_holder},
    {"open file description lock", [] { return lock_record(F_OFD_SETLKW); }, end_holder},
    {"wait4", [] { return long{waitpid(waited_for, nullptr, 0)}; }, end_child},
    {"waitid",
     [] {
         siginfo_t info;
         return long{waitid(P_PID, static_cast<id_t>(waited_for), &info, WEXITED)};
     },
     end_child},
    {"nanosleep", [] { return long{nanosleep(&while_unsatisfied, nullptr)}; }, let_nothing},
    {"clock_nanosleep",
     [] {
         const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, &while_unsatisfied, nullptr);
         errno = error;
         return error == 0 ? 0L : -1L;
     },
     let_nothing},
    {"poll", [] { return long{poll(&on_pipe, 1, -1)}; }, feed_pipe},
    {"ppoll", [] { return long{ppoll(&on_pipe, 1, nullptr, nullptr)}; }, feed_pipe},
    {"select",
     [] {
         fd_set set;
         FD_ZERO(&set);
         FD_SET(pipe_ends[0], &set);
         return long{select(pipe_ends[0] + 1, &set, nullptr, nullptr, nullptr)};
     },
     feed_pipe},
    {"epoll_wait",
     [] {
         epoll_event event = {};
         return long{epoll_wait(epoll_create(1), &event, 1, 2000)};
     },
     let_nothing},
    {"pause", [] { return long{pause()}; }, let_nothing},
    {"sigtimedwait",
     [] {
         sigset_t other;
         sigemptyset(&other);
         sigaddset(&other, SIGUSR2);
         return long{sigtimedwait(&other, nullptr, &while_unsatisfied)};
     },
     let_nothing},
    {"semop",
     [] {
         sembuf take = {0, -1, 0};
         return long{semop(semaphores, &take, 1)};
     },
     let_nothing},
    {"msgrcv",
     [] {
         long text[2];
         return long{msgrcv(messages, text, sizeof(long), 0, 0)};
     },
     let_nothing},
    {"futex", [] { return syscall(SYS_futex, futex_word, FUTEX_WAIT, 0, nullptr, nullptr, 0); },
     satisfy_futex},
    {"read eventfd", [] { return long{read(events, data, 8)}; },
     [] {
         const std::uint64_t one = 1;
         [[maybe_unused]] const ssize_t written = write(events, &one, sizeof one);
     }},
    {"read inotify", [] { return long{read(watched, data, sizeof data)}; },
     [] { close(creat("appears", 0600)); }},
    {"read timer",
     [] {
         const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
         const itimerspec once = {{}, while_unsatisfied};
         timerfd_settime(timer, 0, &once, nullptr);
         return long{read(timer, data, 8)};
     },
     let_nothing},
    {"mq_receive", [] { return long{mq_receive(queue, data, sizeof data, nullptr)}; },
     [] { mq_send(queue, "x", 1, 0); }},
};

void handle(int)
{
    const int before = errno;
    [[maybe_unused]] const ssize_t told = write(queue_ends[1], "h", 1);
    errno = before;
}

void fill(int descriptor)
{
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    while (write(descriptor, data, 4096) > 0) {
    }
    while (write(descriptor, data, 1) > 0) {
    }
    fcntl(descriptor, F_SETFL, 0);
}

pid_t child_that_waits()
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    pause();
    _exit(0);
}

/// What the calls wait for, made anew for each.
void prepare()
{
    close(open("data", O_RDWR | O_CREAT, 0600));
    [[maybe_unused]] const int sized = truncate("data", 8192);
    close(open("records", O_RDWR | O_CREAT, 0600));
    [[maybe_unused]] int made = pipe(pipe_ends);
    made = pipe(full_pipe);
    fcntl(full_pipe[0], F_SETFL, O_NONBLOCK);
    fill(full_pipe[1]);
    socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
    socketpair(AF_UNIX, SOCK_STREAM, 0, full_pair);
    fill(full_pair[0]);
    listener = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un name = address();
    bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof name);
    listen(listener, 1);
    openpty(&master, &terminal, nullptr, nullptr, nullptr);
    mkfifo("fifo", 0600);
    locked = open("locked", O_RDWR | O_CREAT, 0600);
    flock(locked, LOCK_EX);
    events = eventfd(0, 0);
    semaphores = semget(IPC_PRIVATE, 1, 0600);
    messages = msgget(IPC_PRIVATE, 0600);
    watched = inotify_init();
    inotify_add_watch(watched, ".", IN_CREATE);
    mq_attr attributes = {0, 1, 8, 0, {}};
    const std::string queue_name = "/sorvanic-test-" + std::to_string(getpid());
    queue = mq_open(queue_name.c_str(), O_RDWR | O_CREAT, 0600, &attributes);
    mq_unlink(queue_name.c_str());
    if (futex_word == nullptr)
        futex_word = static_cast<int*>(
            mmap(nullptr, sizeof *futex_word, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    on_pipe = {pipe_ends[0], POLLIN, 0};
    made = pipe(queue_ends);
    int ready[2];
    made = pipe(ready);
    holder = fork();
    if (holder == 0) {
        lock_record(F_SETLK);
        [[maybe_unused]] const ssize_t told = write(ready[1], "l", 1);
        pause();
        _exit(0);
    }
    char byte;
    [[maybe_unused]] const ssize_t seen = read(ready[0], &byte, 1);
}

void sleep_for(long milliseconds)
{
    const timespec time = {milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    nanosleep(&time, nullptr);
}

/// Until it has been asleep for a while: then it waits in its call.
void wait_until_asleep(pid_t task)
{
    int asleep = 0;
    for (int tries = 0; tries < 200 && asleep < 4; ++tries) {
        sleep_for(15);
        std::ifstream status("/proc/" + std::to_string(task) + "/stat");
        std::string text;
        std::getline(status, text);
        const std::size_t name_end = text.rfind(')');
        asleep = name_end != text.npos && text.compare(name_end, 3, ") S") == 0 ? asleep + 1 : 0;
    }
}

const char* outcome_of(const blocking_call& call, bool restart)
{
    prepare();
    int children[2];
    if (pipe(children) != 0)
        return "not tried";
    const pid_t caller = fork();
    if (caller == 0) {
        struct sigaction action = {};
        action.sa_handler = handle;
        action.sa_flags = restart ? SA_RESTART : 0;
        sigaction(SIGUSR1, &action, nullptr);
        waited_for = child_that_waits();
        [[maybe_unused]] const ssize_t told = write(children[1], &waited_for, sizeof waited_for);
        const long result = call.wait();
        _exit(result >= 0 ? 0 : errno == EINTR ? 1 : 2);
    }
    [[maybe_unused]] const ssize_t got = read(children[0], &waited_for, sizeof waited_for);
    wait_until_asleep(caller);
    kill(caller, SIGUSR1);
    pollfd handled = {queue_ends[0], POLLIN, 0};
    poll(&handled, 1, 2000);
    const pid_t satisfying = fork();
    if (satisfying == 0) {
        wait_until_asleep(caller);
        if (kill(caller, 0) == 0)
            call.satisfy();
        _exit(0);
    }
    int status = 0;
    const char* came = "hung";
    for (int tries = 0; tries < 300; ++tries) {
        if (waitpid(caller, &status, WNOHANG) == caller) {
            constexpr const char* all[] = {"done", "interrupted", "failed"};
            came = all[WEXITSTATUS(status) % 3];
            break;
        }
        sleep_for(20);
    }
    for (const pid_t left : {caller, satisfying, waited_for, holder})
        kill(left, SIGKILL);
    semctl(semaphores, 0, IPC_RMID);
    msgctl(messages, IPC_RMID, nullptr);
    return came;
}

/// Where a call has files of its own; all of them have been tried there when this returns.
void try_all(const std::string& directory)
{
    constexpr int at_once = 8;
    int running = 0;
    int which = 0;
    for (const blocking_call& call : calls) {
        for (const bool restart : {false, true}) {
            if (running++ == at_once) {
                wait(nullptr);
                --running;
            }
            const std::string own = directory + "/" + std::to_string(which++);
            if (fork() != 0)
                continue;
            if (mkdir(own.c_str(), 0700) == 0 && chdir(own.c_str()) == 0)
                std::ofstream("outcome") << call.name << (restart ? " restart: " : " plain: ")
                                         << outcome_of(call, restart) << std::endl;
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    for (int i = 0; i < which; ++i)
        std::cout << std::ifstream(directory + "/" + std::to_string(i) + "/outcome").rdbuf();
}

} // namespace

int main()
{
    char directory[] = "blockXXXXXX";
    if (mkdtemp(directory) == nullptr)
        return 1;
    try_all(directory);
    std::filesystem::remove_all(directory);
    return 0;
}
