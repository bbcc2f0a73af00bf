#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "tests/attacks/attack.h"
#include "tests/e2e/session_fixture.h"

// Every attack on a session that has once worked, in each mode that it applies to. An attack must work
// without a session, or its test would pass for a wrong reason; in a session it must come out as the
// table says. Those that nobody has closed yet are marked, and a mark that is no longer true fails.

namespace e2e {

namespace {

/// Whom the command and the supervisor belong to.
enum mode : unsigned {
    R = 1, ///< root, under a root supervisor
    U = 2, ///< a user, under a root supervisor
    S = 4, ///< a user, under a supervisor of the same user
};

/// How an attack runs and what comes out, where that is not what most have.
struct terms {
    int wanted = attack::refused; ///< in a session
    int bare = attack::worked;    ///< without one
    std::string before = {};      ///< shell commands ahead of the session or of the bare attack
    command options = {};         ///< of the session; "@" is the place
};

struct row {
    const char* family; ///< the program
    const char* attack;
    unsigned modes;
    unsigned open = 0; ///< the modes in which it still works
    terms under = {};
};

const std::string mount_closed = "mkdir mounted && mount --bind closed mounted && ";
const std::string mount_elsewhere =
    "mkdir -p other; unshare -Urm sh -c 'mount --bind closed other; exec sleep 5' & sleep 0.5; ";
const std::string make_policy = "mkdir -p conf/policy; cp policy/* conf/policy; ";
const std::string stop_errors = "mkfifo stopped; sleep 60 < stopped & exec 2> stopped; ";

const terms survives = {.wanted = attack::worked};
const terms every_io = {.options = {"--every-io"}};
constexpr int own_failure = 125;

const row rows[] = {
    {"run_unlisted", "memory", R | U | S},
    {"run_unlisted", "long-path", R | U | S},

    {"reach_closed", "rename-above", R | U | S},
    {"reach_closed", "exchange-above", R | U | S},
    {"reach_closed",
     "policy-above",
     R | S,
     0,
     {.before = make_policy, .options = {"--policy", "@/conf/policy"}}},
    {"reach_closed",
     "state-above",
     R | S,
     0,
     {.before = "mkdir -p run; ", .options = {"--state", "@/run/state"}}},
    {"reach_closed", "enter", R | U | S},
    {"reach_closed", "secret-name", R | U | S},
    {"reach_closed", "socket", R | U | S},
    {"reach_closed", "watch", U | S},
    {"reach_closed", "accounting", R},
    {"reach_closed", "core", R | U | S},
    {"reach_closed", "chroot", R},
    {"reach_closed", "other-name", R | U, 0, {.before = mount_closed}},
    {"reach_closed", "other-root", S, 0, {.before = mount_elsewhere}},
    {"reach_closed", "openat2", R | U | S},
    {"reach_closed", "setxattrat", R | U | S},
    {"reach_closed", "landlock", U | S, 0, {.bare = attack::refused}},

    {"pass_bytes", "read", R | U | S, 0, every_io},
    {"pass_bytes", "preadv2", R | U | S, 0, every_io},
    {"pass_bytes", "io_submit", R | U | S, 0, every_io},
    {"pass_bytes", "splice", R | U | S, 0, every_io},
    {"pass_bytes", "sendfile", R | U | S, 0, every_io},
    {"pass_bytes", "copy_file_range", R | U | S, 0, every_io},
    {"pass_bytes", "mmap", R | U | S, 0, every_io},

    {"touch_process", "guarded-signal", R | U | S},
    {"touch_process", "guarded-start", R | U | S},
    {"touch_process", "guarded-memory", R | U | S},
    {"touch_process", "guarded-oom", R | U | S},
    {"touch_process", "guarded-clear-refs", R | U | S},
    {"touch_process", "guarded-dump", R | U | S},
    {"touch_process", "guarded-cpu", R | U | S},
    {"touch_process", "guarded-priority", R | U | S},
    {"touch_process", "supervisor-memory", S},
    {"touch_process", "supervisor-oom", S},
    {"touch_process", "supervisor-descriptors", S},
    {"touch_process", "supervisor-cpu", S},
    {"touch_process", "supervisor-priority", S},
    {"touch_process", "supervisor-idle", S},
    {"touch_process", "supervisor-affinity", S},
    {"touch_process", "supervisor-io", S},

    {"bring_down", "huge-attribute", R | U | S, 0, survives},
    {"bring_down", "small-files", R | U | S, 0, survives},
    {"bring_down", "many-waits", R | U | S, 0, survives},
    {"bring_down", "many-processes", S, 0, {.wanted = attack::worked, .before = "ulimit -n 256; "}},
    {"bring_down", "many-refusals", S, 0, {.wanted = attack::worked, .before = stop_errors}},
    {"bring_down", "few-refusals", R | U | S, 0, {.wanted = own_failure, .options = {"--log", "/dev/full"}}},
};

/// How often a race is tried: a thousand times, or as often as SORVANIC_ATTACK_TRIES says.
std::string tries()
{
    const char* wanted = std::getenv("SORVANIC_ATTACK_TRIES");
    return wanted != nullptr ? wanted : "1000";
}

struct attack_case {
    row what;
    mode in;
};

void PrintTo(const attack_case& each, std::ostream* to)
{
    *to << each.what.family << " " << each.what.attack;
}

struct attacks : session_test, ::testing::WithParamInterface<attack_case> {
    void SetUp() override
    {
        if (in() != S && geteuid() != 0)
            GTEST_SKIP() << "this mode needs root";
        session_test::SetUp();
        if (IsSkipped())
            return;
        make_place();
    }

    void make_place()
    {
        for (const char* name : {"closed/inner", "up/closed"}) {
            fs::create_directories(directory() / name);
            for (fs::path at = directory() / name; at != directory(); at = at.parent_path())
                fs::permissions(at, fs::perms::all);
        }
        for (const char* name : {"closed/secret", "up/closed/secret"}) {
            std::ofstream(directory() / name) << "secret\n";
            fs::permissions(directory() / name, fs::perms(0666));
        }
        const std::string program = read_file(fs::path(VICTIM_DIRECTORY) / "log_program");
        for (const fs::path& file : {listed("listed", program + "l"), unlisted("unlisted", program + "u")})
            fs::permissions(file, fs::perms::all);
        const std::string family = read_file(fs::path(ATTACK_DIRECTORY) / what().family);
        for (const char* name : {"victim", "opener", "reader"})
            listed(name, family);
        listed("guarded", read_file(fs::path(ATTACK_DIRECTORY) / "guarded"));

        encoded("dirctl",
                (directory() / "closed").string() + "\n" + (directory() / "up/closed").string() + "\n");
        encoded("appevp",
                (directory() / "closed/secret").string() + ":" + (directory() / "opener").string() + ":6\n");
        encoded("ptpylist", "guarded\n");
    }

    /// What attacks, started by a shell.
    command attacker()
    {
        const bool opens = what().family == std::string_view("pass_bytes");
        const command run = shell("umask 0; ./" + std::string(opens ? "opener " : "victim ") + what().attack +
                                  " " + directory().string() + " " + tries() + "; exit $?");
        return in() == U ? as_nobody(run) : run;
    }

    /// `run` behind the row's commands, in a mount namespace of its own where these mount.
    command behind(const command& run) const
    {
        const std::string& before = what().under.before;
        const bool mounts = in() != S && before.find("mount ") != before.npos;
        command line = mounts ? command{"/usr/bin/unshare", "-m"} : command();
        line.insert(line.end(), {"/bin/sh", "-c",
                                 "cd " + directory().string() + "; " + before + "\"$@\"; exit $?", "sh"});
        line.insert(line.end(), run.begin(), run.end());
        return line;
    }

    outcome run(const command& line, const fs::path& output)
    {
        const uid_t user = in() == S && geteuid() == 0 ? nobody : 0;
        return child_process(behind(line), output, user).wait(40s);
    }

    outcome run_attacked()
    {
        for (const char* left :
             {"log", "moved", "other", "gone", "closed/s", "mounted", "fifo", "stopped", "grown"})
            fs::remove_all(directory() / left);
        make_place();
        command options = what().under.options;
        for (std::string& option : options)
            if (option.starts_with('@'))
                option = directory().string() + option.substr(1);
        return run(session(attacker(), options), directory());
    }

    const row& what() const { return GetParam().what; }
    mode in() const { return GetParam().in; }
};

TEST_P(attacks, come_out_as_the_table_says)
{
    session(attacker()); // which writes the policy
    const outcome bare = run(attacker(), beside());
    if (bare.status == attack::not_here)
        GTEST_SKIP() << "this machine cannot have it: " << bare.err;
    ASSERT_EQ(bare.status, what().under.bare) << "without a session: " << bare.out << bare.err;

    const outcome got = run_attacked();
    const bool closed = got.status == what().under.wanted;
    if ((what().open & in()) != 0)
        EXPECT_FALSE(closed) << "closed: take the mark from the table\n" << got.out << got.err;
    else
        EXPECT_TRUE(closed) << "status " << got.status << "\n" << got.out << got.err;
}

std::vector<attack_case> cases()
{
    std::vector<attack_case> all;
    for (const row& each : rows)
        for (const mode in : {R, U, S})
            if ((each.modes & in) != 0)
                all.push_back({each, in});
    return all;
}

std::string name_of(const ::testing::TestParamInfo<attack_case>& each)
{
    std::string name = std::string(each.param.what.family) + "_" + each.param.what.attack + "_" +
                       (each.param.in == R   ? "R"
                        : each.param.in == U ? "U"
                                             : "S");
    std::ranges::replace(name, '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(session, attacks, ::testing::ValuesIn(cases()), name_of);

} // namespace

} // namespace e2e
