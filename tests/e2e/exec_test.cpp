#include <unistd.h>

#include <cerrno>

#include "tests/e2e/session_fixture.h"

// What runs and what is refused, by every way to an exec.

namespace e2e {

namespace {

using exec = session_test;

std::string error_line(int error)
{
    return "error " + std::to_string(error) + "\n";
}

TEST_F(exec, refuses_an_unlisted_program_by_every_way)
{
    const fs::path start = victim("start_program");
    const fs::path good = victim("exit_with");
    const fs::path bad = unlisted("unlisted", read_file(good) + "x");
    for (const uid_t user : users()) {
        for (const std::string way : {"fork", "vfork", "spawn", "memory", "descriptor", "directory",
                                      "nofollow", "own-link", "thread-link"}) {
            SCOPED_TRACE(way + " as " + std::to_string(user));
            EXPECT_EQ(run_session({start, way, good, "3"}, {}, user).out, "status 3\n");
            EXPECT_EQ(run_session({start, way, bad, "3"}, {}, user).out, error_line(EPERM));
        }
        for (const std::string way : {"self", "thread"}) {
            SCOPED_TRACE(way + " as " + std::to_string(user));
            EXPECT_EQ(run_session({start, way, good, "3"}, {}, user).status, 3);
            EXPECT_EQ(run_session({start, way, bad, "3"}, {}, user).out, error_line(EPERM));
        }
    }
}

TEST_F(exec, takes_a_name_in_the_callers_terms)
{
    const fs::path start = victim("start_program");
    // From its working directory, through links, up and down again.
    listed("program", read_file(victim("exit_with")));
    fs::create_directories(directory() / "below/further");
    fs::create_symlink("../../program", directory() / "below/further/up");
    fs::create_symlink(directory() / "below/further/up", directory() / "around");
    for (const std::string name :
         {"./further/up", "../around", "further/.././further//up", "../below/../program"}) {
        const outcome result =
            run_session(shell("cd below; exec '" + start.string() + "' fork " + name + " 5"));
        EXPECT_EQ(result.out, "status 5\n") << name << result.err;
    }
    if (geteuid() != 0)
        GTEST_SKIP() << "changing the root needs root";
    // With a root of its own, which has none of the libraries: the kernel gets as far as the loader.
    listed("alone", "#!/program\n");
    unlisted("alone-unlisted", "#!/program\n#");
    const auto in_root = [&](const std::string& name) {
        return run_session(shell("exec ./start_program changed-root " + name)).out;
    };
    EXPECT_EQ(in_root("/alone"), error_line(ENOENT));
    EXPECT_EQ(in_root("/../../alone"), error_line(ENOENT));
    EXPECT_EQ(in_root("/alone-unlisted"), error_line(EPERM));
}

TEST_F(exec, a_script_needs_its_own_and_its_interpreters_digest)
{
    const fs::path start = victim("start_program");
    const fs::path interpreter = victim("print_arguments");
    const fs::path other = unlisted("other", read_file(interpreter) + "x");
    const fs::path script = listed("script", "#!" + interpreter.string() + " -a b \n");
    const fs::path second = listed("second", "#!" + script.string() + "\n");
    const std::string printed = "[" + interpreter.string() + "]\n[-a b]\n[" + script.string() + "]\n";

    EXPECT_EQ(run_session({start, "fork", script, "c"}).out, printed + "[c]\nstatus 0\n");
    EXPECT_EQ(run_session({start, "fork", second}).out, printed + "[" + second.string() + "]\nstatus 0\n");
    EXPECT_EQ(run_session({start, "fork", unlisted("s1", "#!" + interpreter.string() + "\n")}).out,
              error_line(EPERM));
    EXPECT_EQ(run_session({start, "fork", listed("s2", "#!" + other.string() + "\n")}).out,
              error_line(EPERM));
    const fs::path inner = unlisted("s3", "#!" + interpreter.string() + " x\n");
    EXPECT_EQ(run_session({start, "fork", listed("s4", "#!" + inner.string() + "\n")}).out,
              error_line(EPERM));

    // A chain's end is the kernel's to find.
    fs::path link = script;
    for (int i = 0; i < 6; ++i)
        link = listed("chain" + std::to_string(i), "#!" + link.string() + "\n");
    EXPECT_EQ(run_session({start, "fork", link}).out, error_line(ELOOP));
    EXPECT_EQ(run_session({start, "fork", directory() / "chain3"}).out.substr(0, printed.size()), printed);
}

TEST_F(exec, passes_on_the_kernels_own_error)
{
    const fs::path start = victim("start_program");
    const fs::path plain = unlisted("not-executable", "x");
    fs::permissions(plain, fs::perms(0644));
    fs::create_symlink("loop", directory() / "loop");
    const fs::path text = listed("text", "neither a script nor a program\n");
    fs::create_symlink(text, directory() / "link");
    const std::string long_name(10000, 'x');

    const struct {
        const char* way;
        std::string name;
        int error;
    } cases[] = {
        {"fork", directory() / "nothing", ENOENT},
        {"fork", plain, EACCES},
        {"fork", directory(), EACCES},
        {"fork", text.string() + "/below", ENOTDIR},
        {"fork", text.string() + "/", ENOTDIR},
        {"fork", directory() / "loop", ELOOP},
        {"nofollow", directory() / "link", ELOOP},
        {"fork", long_name, ENAMETOOLONG},
        {"fork", text, ENOEXEC},
        {"fork", "", ENOENT},
        {"fork", listed("lost", "#!/nowhere\n"), ENOENT},
    };
    for (const auto& one : cases)
        EXPECT_EQ(run_session({start, one.way, one.name}).out, error_line(one.error))
            << one.name.substr(0, 100);
}

TEST_F(exec, judges_permission_by_the_callers_ids)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "another user's ids can be had by root only";
    const fs::path start = victim("start_program");
    const auto errors = [&](const fs::path& program) {
        return run_session(as_nobody({start, "fork", program})).out;
    };
    // What nobody may not execute is not the engine's to refuse.
    const fs::path mine = unlisted("mine", "x");
    fs::permissions(mine, fs::perms(0700));
    EXPECT_EQ(errors(mine), error_line(EACCES));
    fs::create_directory(directory() / "closed");
    fs::permissions(directory() / "closed", fs::perms(0700));
    unlisted("closed/program", "x");
    EXPECT_EQ(errors(directory() / "closed/program"), error_line(EACCES));
    EXPECT_EQ(errors(unlisted("open", "x")), error_line(EPERM));
    // Nobody may execute this one, and the engine, which is root, can tell what it is.
    const fs::path unreadable = listed("unreadable", read_file(victim("exit_with")));
    fs::permissions(unreadable, fs::perms(0711));
    EXPECT_EQ(errors(unreadable), "status 0\n");
}

TEST_F(exec, a_root_without_capabilities_follows_another_users_processes)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root";
    const fs::path start = victim("start_program");
    const fs::path good = victim("exit_with");
    const fs::path bad = unlisted("unlisted", read_file(good) + "x");
    const fs::path script =
        listed("script", "#!" + of_machine("sh").string() + "\nexec " + good.string() + " 6\n");
    const auto run_as_nobody = [&](const fs::path& program) {
        command line = {of_machine("setpriv"), "--bounding-set", "-sys_ptrace,-sys_admin,-kill", "--inh-caps",
                        "-all"};
        const command supervised = session(as_nobody({start, "fork", program, "5"}));
        line.insert(line.end(), supervised.begin(), supervised.end());
        return child_process(line, directory()).wait().out;
    };
    EXPECT_EQ(run_as_nobody(good), "status 5\n");
    EXPECT_EQ(run_as_nobody(script), "status 6\n");
    EXPECT_EQ(run_as_nobody(bad), error_line(EPERM));
}

TEST_F(exec, an_unprivileged_supervisor_refuses_what_it_cannot_read)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "another user's file can be made by root only";
    const fs::path start = victim("start_program");
    const fs::path unreadable = listed("unreadable", read_file(victim("exit_with")));
    fs::permissions(unreadable, fs::perms(0711));
    EXPECT_EQ(run_session({start, "fork", unreadable, "4"}, {}, nobody).out, error_line(EPERM));
    status = "2";
    EXPECT_EQ(run_session({start, "fork", unreadable, "4"}, {}, nobody).out, "status 4\n");
}

TEST_F(exec, observing_lets_an_unlisted_program_run)
{
    const fs::path start = victim("start_program");
    const fs::path bad = unlisted("unlisted", read_file(victim("exit_with")) + "x");
    status = "2";
    for (const std::string way : {"fork", "memory", "descriptor"})
        EXPECT_EQ(run_session({start, way, bad, "3"}).out, "status 3\n") << way;
}

TEST_F(exec, passes_long_arguments)
{
    const std::string argument(10000, 'a');
    EXPECT_EQ(run_session({victim("print_arguments"), argument}).out,
              "[" + (directory() / "print_arguments").string() + "]\n[" + argument + "]\n");
}

TEST_F(exec, ends_with_the_commands_status)
{
    const fs::path exit_with = victim("exit_with");
    const fs::path bad = unlisted("unlisted", read_file(exit_with) + "x");
    const struct {
        command run;
        int status;
        std::string told;
    } cases[] = {
        {{exit_with, "0"}, 0, ""},
        {{exit_with, "7"}, 7, ""},
        {shell("kill -9 $$"), 137, ""},
        {{bad}, 126, "sorvanic: cannot run " + bad.string() + ": Operation not permitted\n"},
        {{directory()}, 126, "sorvanic: cannot run " + directory().string() + ": Permission denied\n"},
        {{"no-such-program"}, 127, "sorvanic: cannot run no-such-program: No such file or directory\n"},
        {{directory() / "none"},
         127,
         "sorvanic: cannot run " + (directory() / "none").string() + ": No such file or directory\n"},
    };
    for (const auto& one : cases) {
        const outcome result = run_session(one.run);
        EXPECT_EQ(result.status, one.status) << one.run[0];
        EXPECT_EQ(result.err, one.told);
    }
}

TEST_F(exec, refuses_calls_that_escape_supervision)
{
    const fs::path program = victim("call_forbidden");
    const std::string always = "clone 0\nclone-untraced 1\nclone-untraced-upper-half 1\nclone3 38\n"
                               "io_uring_setup 38\nio_uring_enter 38\nio_uring_register 38\n"
                               "x32-execve 38\nint80 38\nopen_by_handle_at 1\nprocess_vm_writev 1\n";
    EXPECT_EQ(run_session({program, "/proc/self/ns/mnt"}).out,
              always +
                  "open_tree 1\nsetns-any 1\nsetns-mounts 1\nsetns-processes 22\nsetns-net 9\ngetpid 0\n");
    EXPECT_EQ(run_session({program}, {"--allow-namespaces"}).out,
              always +
                  "open_tree 9\nsetns-any 9\nsetns-mounts 9\nsetns-processes 9\nsetns-net 9\ngetpid 0\n");
}

} // namespace

} // namespace e2e
