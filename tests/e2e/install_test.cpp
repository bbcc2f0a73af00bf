#include <cstdio>
#include <fstream>

#include "tests/e2e/session_fixture.h"
#include "tests/support/machine.h"

// An installation on a real tree: what the installer's descendants make and run, to the end of
// the phase.

namespace e2e {

namespace {

struct installation : session_test {
    installation()
    {
        encoded("installlabel", "2\n");
        fs::create_directory(directory() / "tree");
        fs::permissions(directory() / "tree", fs::perms::all);
    }

    fs::path tree(const std::string& name) const { return directory() / "tree" / name; }
    std::string log(const std::string& name) const { return read_file(directory() / "state/log" / name); }

    std::string line(const std::string& program) const
    {
        const std::uint32_t key = __builtin_bswap32(support::key_of(read_file(tree(program))));
        char text[16];
        std::snprintf(text, sizeof text, "\t%08X\n", key);
        return tree(program).string() + text;
    }

    /// A session whose shell runs `script` in the tree.
    std::unique_ptr<child_process> start(const std::string& script, uid_t user)
    {
        fs::remove_all(directory() / "state");
        for (const auto& entry : fs::directory_iterator(directory() / "tree"))
            fs::remove_all(entry.path());
        return std::make_unique<child_process>(
            session(shell("cd tree; " + script, {"tar", "chmod", "cp", "ln", "mv"})), directory(), user);
    }
};

TEST_F(installation, what_an_installer_brings_in_runs_until_the_phase_ends)
{
    const std::string start_line = "#!" + of_machine("sh").string() + "\n";
    // A package with a program that is on no list, and one that is on the black list.
    fs::create_directory(directory() / "package");
    fs::create_directory(directory() / "second");
    unlisted("package/tool", start_line + "echo tool\n");
    blacklist(unlisted("package/banned", start_line + "echo banned\n"));
    std::ofstream(directory() / "package/data") << "data";
    child_process packing({of_machine("tar"), "cf", directory() / "package.tar", "-C",
                           directory() / "package", "data", "banned", "tool"},
                          directory());
    ASSERT_EQ(packing.wait().status, 0);
    listed("sorvall", start_line + "tar xf ../package.tar --no-same-permissions --no-same-owner\n"
                                   "./tool; ./banned; chmod 0700 banned; ./banned\n"
                                   "cp tool other; chmod u+x other; ./other\n"
                                   "ln banned again; ./again\n"
                                   "cp data more; chmod 0600 more; mv more data\n");
    listed("second/sorvall", start_line);
    for (const uid_t user : users()) {
        SCOPED_TRACE(user);
        const auto supervisor = start("../sorvall; ../second/sorvall; echo > end; until [ -e go ]; do "
                                      "sleep 0.02; done; ./other; ./banned; echo done",
                                      user);
        ASSERT_TRUE(eventually([&] { return fs::exists(tree("end")); })) << read_file(directory() / "err");
        EXPECT_EQ(child_process(client({"install-end"}, port()), beside()).wait().status, 0);
        std::ofstream(tree("go")) << "go";
        const outcome result = supervisor->wait();
        // Marked, it runs although it is black-listed; not any more when the phase is over.
        EXPECT_EQ(result.out, "tool\nbanned\ntool\nbanned\ndone\n") << result.err;
        std::string made;
        for (const char* name : {"data", "banned", "tool", "banned", "other", "more", "end"})
            made += tree(name).string() + "\n";
        EXPECT_EQ(log("swinstall.log"), made);
        EXPECT_EQ(log("swinstall_exec.log"), line("tool") + line("banned") + line("other") + line("again"));
        // A script and its interpreter are decided as one program each.
        const std::string messages = kernel_log();
        EXPECT_EQ(count_of(messages, "[sorvall] load success,pid ["), 1u) << messages;
        EXPECT_EQ(count_of(messages, "[sorvall] load faild,other install exist\n"), 3u) << messages;
    }
}

} // namespace

} // namespace e2e
