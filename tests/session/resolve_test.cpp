#include "session/task/resolve.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <vector>

#include "tests/temporary_directory.h"

namespace session {
namespace {

struct place {
    dev_t device = 0;
    ino_t number = 0;
    int error = 0;
    bool operator==(const place&) const = default;
};

place place_of(int fd)
{
    struct stat about;
    return fd >= 0 && fstat(fd, &about) == 0 ? place{about.st_dev, about.st_ino} : place{0, 0, errno};
}

std::ostream& operator<<(std::ostream& to, const place& of)
{
    return to << of.device << ":" << of.number << " error " << of.error;
}

struct question {
    std::string name;
    int flags = 0;
    const char* directory = nullptr; ///< the call's descriptor is open on it
};

/// Another process, which says where the kernel finds each name for it, and then waits.
class other_process {
public:
    other_process(const std::string& directory, bool own_root, const std::vector<question>& questions)
    {
        int answers[2];
        if (pipe(answers) != 0)
            throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            // Where a name that only this process has leads: descriptor 100.
            dup2(open("/bin/sh", O_RDONLY), 100);
            if (chdir(directory.c_str()) != 0 || (own_root && chroot(".") != 0) || chdir("below") != 0)
                _exit(1);
            for (std::size_t i = 0; i < questions.size(); ++i) {
                const question& one = questions[i];
                if (one.directory != nullptr)
                    dup2(open(one.directory, O_PATH), 200 + static_cast<int>(i));
                const place found = answer(one, 200 + static_cast<int>(i));
                if (write(answers[1], &found, sizeof found) != sizeof found)
                    _exit(1);
            }
            raise(SIGSTOP);
            _exit(1);
        }
        close(answers[1]);
        for (std::size_t i = 0; i < questions.size(); ++i) {
            place found;
            if (read(answers[0], &found, sizeof found) != sizeof found)
                throw std::runtime_error("the other process does not answer");
            found_.push_back(found);
        }
        close(answers[0]);
    }
    ~other_process()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    other_process(const other_process&) = delete;
    other_process& operator=(const other_process&) = delete;

    pid_t pid() const { return pid_; }
    const place& found(std::size_t i) const { return found_[i]; }

private:
    static place answer(const question& one, int directory)
    {
        if ((one.flags & AT_EMPTY_PATH) != 0)
            return place_of(directory);
        return place_of(openat(one.directory != nullptr ? directory : AT_FDCWD, one.name.c_str(),
                               O_PATH | ((one.flags & AT_SYMLINK_NOFOLLOW) != 0 ? O_NOFOLLOW : 0)));
    }

    pid_t pid_;
    std::vector<place> found_;
};

class resolve_test : public ::testing::TestWithParam<bool> {};

TEST_P(resolve_test, finds_what_the_kernel_finds_for_the_caller)
{
    const bool own_root = GetParam();
    if (own_root && geteuid() != 0)
        GTEST_SKIP() << "changing the root needs root";
    const temporary_directory directory;
    std::filesystem::create_directories(directory / "below/further");
    directory.write("file", "x");
    directory.write("below/file", "y");
    std::string links = "link file root-link /file round-link /below/../../link one two two one chain0 file "
                        "below/up ../file below/up-slash up/ below/down further below/round down/../up "
                        "below/through-proc /proc/self/fd/100 ";
    for (int i = 1; i < 42; ++i)
        links += "chain" + std::to_string(i) + " chain" + std::to_string(i - 1) + " ";
    std::istringstream names_and_targets(links);
    for (std::string name, to; names_and_targets >> name >> to;)
        std::filesystem::create_symlink(to, directory / name);

    const std::string below = own_root ? "/below" : directory / "below";
    const std::string absolute = below + "/../file";
    const std::string named = below + "/file";
    std::vector<question> questions = {{""},
                                       {"", 0, named.c_str()},
                                       {"", AT_EMPTY_PATH, named.c_str()},
                                       {"file", 0, named.c_str()},
                                       {"file", 0, below.c_str()},
                                       {"../file", 0, below.c_str()},
                                       {absolute, 0, "/none"},
                                       {"self/fd/100", 0, "/proc"},
                                       {"self/fd/99", 0, "/proc"},
                                       {"thread-self/exe", 0, "/proc"},
                                       {"../self/fd/100", 0, "/proc/sys"}};
    std::istringstream names(
        absolute + " " + std::string(256, 'n') +
        " . .. / // /.. ../../../../../../../../../../.. file ./file ../file ..//./file file/ file/. file/.. "
        "none none/../file further/ further/../file up up/ up-slash down/ round down/../file ../link "
        "../root-link ../round-link ../one ../chain39 ../chain40 ../chain41 through-proc /bin/sh /bin/sh/ "
        "/proc/self /proc/self/ /proc/self/exe /proc/thread-self /proc/thread-self/exe /proc/thread-self/.. "
        "/proc/self/cwd/file /proc/self/cwd/../file /proc/self/root/file /proc/self/root/bin/sh "
        "/proc/self/fd/100 /proc/self/fd/99 /dev/fd/100 /proc/mounts /proc/self/task/../exe");
    for (std::string name; names >> name;)
        for (const int flags : {0, AT_SYMLINK_NOFOLLOW})
            questions.push_back({name, flags});

    const other_process other(directory.path(), own_root, questions);
    const caller stranger(other.pid());
    known_tasks known;
    const caller neighbour(other.pid(), own_root ? known_task{} : known.look_up(other.pid()));
    for (std::size_t i = 0; i < questions.size(); ++i) {
        const question& one = questions[i];
        const int at = one.directory != nullptr ? 200 + static_cast<int>(i) : AT_FDCWD;
        for (const caller* who : {&stranger, &neighbour}) {
            const resolved found = resolve(*who, at, one.name, one.flags);
            const place there = found.error == 0 ? place_of(found.file.get()) : place{0, 0, found.error};
            EXPECT_EQ(there, other.found(i)) << one.name << " " << one.flags;
        }
    }
}

// Rules know the paths of the supervisor's namespace only.
/// A process that stops at once, with a mount namespace of its own or in this one's. 0 when it cannot.
pid_t stopped_process(bool apart)
{
    const pid_t child = fork();
    if (child == 0) {
        if (!apart || unshare(CLONE_NEWNS) == 0)
            raise(SIGSTOP);
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    return WIFSTOPPED(status) ? child : 0;
}

TEST(resolve, refuses_the_root_of_another_mount_namespace)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "a mount namespace needs root";
    const pid_t apart = stopped_process(true);
    if (apart == 0)
        GTEST_SKIP() << "no mount namespace is to be had";
    const pid_t beside = stopped_process(false);
    const caller who(beside);
    const std::string foreign = "/proc/" + std::to_string(apart);
    for (const char* name : {"/root", "/root/bin/sh", "/cwd", "/cwd/.."})
        EXPECT_EQ(resolve(who, AT_FDCWD, foreign + name, 0).error, EPERM) << name;
    for (const char* name : {"/proc/self/root/bin/sh", "/proc/self/cwd"})
        EXPECT_EQ(resolve(who, AT_FDCWD, name, 0).error, 0) << name;
    const caller inside(apart);
    EXPECT_EQ(resolve(inside, AT_FDCWD, "/proc/self/root/bin/sh", 0).error, 0);
    for (const pid_t child : {apart, beside}) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(roots, resolve_test, ::testing::Bool());

} // namespace
} // namespace session
