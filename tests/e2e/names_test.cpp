#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tests/e2e/session_fixture.h"

// What rules say of paths, where a process has another root or a directory a second place.

namespace e2e {

namespace {

using names = session_test;

/// Opens each name to read, then to append, as a program without a trusted name.
constexpr const char* opens = R"(
import os, sys
def tell(name, flags):
    try: os.close(os.open(name, flags)); return 'opened'
    except OSError as e: return os.strerror(e.errno)
if sys.argv[1]: os.chroot(sys.argv[1])
for name in sys.argv[2:]: print(name, tell(name, os.O_RDONLY), tell(name, os.O_WRONLY | os.O_APPEND), sep=': ')
)";

TEST_F(names, protects_files_from_a_process_with_a_root_of_its_own)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root has other roots";
    const fs::path python = of_machine("python3");
    // A task with a root of its own chooses the paths that it sees; rules go by the host's.
    const fs::path jail = directory() / "jail";
    fs::create_directories(jail / "data");
    fs::create_directories(jail / policy().relative_path());
    for (const fs::path& file :
         {jail / "data/mine", jail / "data/other", jail / (policy() / "whitelist").relative_path()})
        std::ofstream(file) << "text\n";
    encoded("dirctl", "/data\n" + (jail / "data").string() + "\n");
    encoded("dac", "/data/other:bob:4\n" + (jail / "data/mine").string() + ":bob:4\n");
    const outcome inside = run_session(
        {python, "-c", opens, jail, "/data/mine", "/data/other", policy() / "whitelist"}, {"--user", "bob"});
    EXPECT_EQ(inside.out, "/data/mine: opened: Operation not permitted\n"
                          "/data/other: Operation not permitted: Operation not permitted\n" +
                              (policy() / "whitelist").string() + ": opened: opened\n")
        << inside.err;
    const outcome outside = run_session(
        {python, "-c", opens, directory(), "/policy/whitelist", "/state/kernel.log", "/jail/data/other"});
    EXPECT_EQ(outside.out, "/policy/whitelist: Operation not permitted: Operation not permitted\n"
                           "/state/kernel.log: Operation not permitted: Operation not permitted\n"
                           "/jail/data/other: Operation not permitted: Operation not permitted\n")
        << outside.err;
}

TEST_F(names, rules_hold_below_every_mount)
{
    if (std::system("unshare -m true 2>/dev/null") != 0)
        GTEST_SKIP() << "no mount namespace is to be had";
    const fs::path python = of_machine("python3");
    fs::create_directories(directory() / "real/part");
    fs::create_directory(directory() / "shown");
    std::ofstream(directory() / "real/part/file") << "text\n";
    encoded("dirctl", (directory() / "shown").string() + "\n");
    const std::string mount =
        "mount --bind \"$1\" \"$2\" && mount --bind \"$3\" \"$4\" && shift 4 && exec \"$@\"";
    fs::create_directory(directory() / "rules");
    command run = session({python, "-c", opens, "", directory() / "real/part/file",
                           directory() / "shown/file", directory() / "rules/whitelist"});
    run.insert(run.begin(),
               {"/usr/bin/unshare", "-m", "/bin/sh", "-c", mount, "sh", directory() / "real/part",
                directory() / "shown", policy(), directory() / "rules"});
    child_process supervised(run, directory());
    const outcome told = supervised.wait();
    EXPECT_EQ(told.out, (directory() / "real/part/file").string() +
                            ": Operation not permitted: Operation not permitted\n" +
                            (directory() / "shown/file").string() +
                            ": Operation not permitted: Operation not permitted\n" +
                            (directory() / "rules/whitelist").string() +
                            ": Operation not permitted: Operation not permitted\n")
        << told.err;
}

// Settings below /proc/sys/net and the tunnel device belong to the network namespace of who opens them, and
// for its callers that is the supervisor.
TEST_F(names, a_process_in_a_network_of_its_own_changes_no_other)
{
    if (std::system("unshare -n true 2>/dev/null") != 0)
        GTEST_SKIP() << "no network namespace is to be had";
    const command tree =
        shell("setting=/proc/sys/net/ipv4/ip_default_ttl; export setting; cat $setting; "
              "unshare -n sh -c 'echo 7 > $setting; cat /proc/sys/kernel/cap_last_cap | wc -l; "
              ": < /dev/net/tun; :'; cat $setting",
              {"cat", "unshare", "wc"});
    for (const char* now : {"3", "2"}) {
        status = now;
        command run = session(tree);
        run.insert(run.begin(), {"unshare", "-n"});
        const outcome result = child_process(run, directory()).wait();
        EXPECT_EQ(result.out, "64\n1\n64\n") << status << result.err;
        EXPECT_EQ(count_of(result.err, "Operation not permitted"), status == "3" ? 2u : 0u)
            << status << result.err;
    }
}

TEST_F(names, a_process_maps_the_ids_of_its_own_user_namespace_if_it_may_have_one)
{
    if (std::system("unshare -Ur true 2>/dev/null") != 0)
        GTEST_SKIP() << "no user namespace is to be had";
    const command tree =
        shell("unshare -Ur sh -c 'id -u; id -g; wc -l < /proc/self/uid_map'", {"unshare", "id", "wc"});
    for (const uid_t user : users()) {
        const outcome allowed = run_session(tree, {"--allow-namespaces"}, user);
        EXPECT_EQ(allowed.out, "0\n0\n1\n") << allowed.err;
        const outcome refused = run_session(tree, {}, user);
        EXPECT_EQ(refused.out, "");
        EXPECT_NE(refused.err.find("Operation not permitted"), refused.err.npos) << refused.err;
    }
}

} // namespace

} // namespace e2e
