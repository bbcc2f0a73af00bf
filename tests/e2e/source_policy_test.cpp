#include <fstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/session_fixture.h"

// A policy as people write it, on real processes.

namespace e2e {

namespace {

struct source_policy : session_test {
    /// The entries of a list of programs.
    std::string programs(const command& names)
    {
        std::string list;
        for (const std::string& name : names)
            list += "\"" + of_machine(name).string() + "\", ";
        return list;
    }

    fs::path write(const std::string& name, const std::string& text)
    {
        std::ofstream(directory() / name) << text;
        return directory() / name;
    }

    outcome sorvanic(command arguments)
    {
        arguments.insert(arguments.begin(), SORVANIC_PROGRAM);
        return child_process(arguments, beside()).wait();
    }
};

TEST_F(source_policy, lets_each_word_do_what_it_says_and_no_more)
{
    const struct {
        const char* name;
        const char* words;
        const char* may;
    } cases[] = {
        {"none", R"("none")", ""},
        {"read", R"("read")", "read list "},
        {"list", R"(["read", "list"])", "read list "},
        {"execute", R"(["read", "execute"])", "read list "},
        {"write", R"(["read", "write"])", "read list write append "},
        {"append", R"(["read", "write", "append"])", "read list write append "},
        {"create", R"(["read", "write", "create"])", "read list write append create mkdir link symlink "},
        {"delete", R"(["read", "write", "create", "delete"])",
         "read list write append create mkdir link symlink rmdir delete "},
        {"edit", R"("edit")", "read list write append create mkdir link symlink rmdir delete "},
    };
    std::string text = "mode = \"enforce\"\n[programs]\nallow = [" +
                       programs({"sh", "cat", "ls", "rm", "mv", "mkdir", "rmdir", "ln"}) + "]\n";
    std::string script = R"(
        try() { if (eval "$2") >/dev/null 2>&1; then printf '%s ' "$1"; fi; }
        all() {
            printf '%s: ' "$1"; cd "$1" 2>/dev/null; cd "$TOP"
            try read "cat $1/file"
            try list "ls $1"
            try write "echo x >$1/file"
            try append "echo x >>$1/file"
            try create "echo x >$1/new"
            try mkdir "mkdir $1/made"
            try link "ln $1/file $1/linked"
            try symlink "ln -s file $1/pointer"
            try rmdir "rmdir $1/empty"
            try delete "rm -f $1/file"
            try rename "mv $1/moved $1/elsewhere"
            echo
        }
        )";
    script = "TOP=" + directory().string() + script;
    std::string expected;
    for (const auto& each : cases) {
        const fs::path place = directory() / each.name;
        fs::create_directories(place / "empty");
        for (const char* name : {"file", "moved"})
            std::ofstream(place / name) << "text\n";
        text += "[[files]]\npath = \"" + place.string() +
                "\"\nuser.root = \"edit\"\nuser.bin = " + each.words + "\n";
        script += std::string("all ") + each.name + "\n";
        expected += std::string(each.name) + ": " + each.may + "\n";
    }
    const outcome told =
        run_session(shell(script), {"--policy", write("policy.toml", text), "--user", "bin"});
    EXPECT_EQ(told.out, expected) << told.err;
}

TEST_F(source_policy, in_every_form_is_built_and_announced)
{
    is_told = true;
    const std::string list = programs({"sh"});
    write("policy.toml", "mode = \"enforce\"\n[programs]\nallow = [" + list + "]\n");
    fs::create_directory(directory() / "texts");
    write("texts/whitelist", of_machine("sh").string() + "\n");
    write("texts/statlabel", "3:enforce\n");
    write("texts/modllabel", "2000\n");
    for (const char* form : {"policy.toml", "texts"}) {
        const outcome told = run_session({"/bin/sh", "-c", "ls; echo $?"}, {"--policy", directory() / form});
        EXPECT_EQ(told.out, "126\n") << told.err;
        EXPECT_NE(
            told.err.find("sorvanic: enforcing: programs 1, files not controlled; signals not protected\n"),
            std::string::npos)
            << told.err;
        EXPECT_NE(told.err.find("warning: control of files is off"), std::string::npos) << told.err;
    }
    write("policy.toml", "mode = \"enforc\"\n");
    EXPECT_EQ(run_session({"/bin/sh", "-c", ":"}, {"--policy", directory() / "policy.toml"}).status, 125);
}

TEST_F(source_policy, is_taken_over_or_left_as_it_was)
{
    const std::string list = programs({"sh", "sleep"});
    const fs::path file = write("policy.toml", "mode = \"enforce\"\n[programs]\nallow = [" + list + "]\n");
    const std::string state = directory() / "state";
    child_process supervisor(
        session({"/bin/sh", "-c", "until [ -e " + (directory() / "end").string() + " ]; do sleep 0.1; done"},
                {"--policy", file}),
        directory());
    port();
    const auto shown = [&] {
        return nlohmann::json::parse(sorvanic({"status", "--json", "--state", state}).out);
    };
    const auto first = shown();
    EXPECT_EQ(first["policy_build"]["generation"], 1);
    EXPECT_EQ(first["policy_build"]["source"], file.string());

    const struct {
        const char* what;
        std::string text;
        command options;
        int exit_status;
        int generation;
        const char* told;
    } steps[] = {
        {"an error", "mode = \"enforc\"\n", {}, 1, 1, "nothing was changed"},
        {"a change",
         "mode = \"observe\"\n[programs]\nallow = [" + list + "]\n",
         {},
         0,
         2,
         "mode now observe\n"},
        {"no change",
         "mode = \"observe\"\n[programs]\nallow = [" + list + "]\n",
         {},
         0,
         2,
         "nothing changed\n"},
        {"the way back", "", {"--back"}, 0, 1, "mode now enforce\n"},
        {"no source", "", {"--from", "/no/such/policy.toml"}, 1, 1, "nothing was changed"},
    };
    for (const auto& step : steps) {
        if (!step.text.empty())
            write("policy.toml", step.text);
        command line = {"reload", "--state", state};
        line.insert(line.end(), step.options.begin(), step.options.end());
        const outcome told = sorvanic(line);
        EXPECT_EQ(told.status, step.exit_status) << step.what << told.err;
        EXPECT_NE((told.out + told.err).find(step.told), std::string::npos)
            << step.what << told.out << told.err;
        EXPECT_EQ(shown()["policy_build"]["generation"], step.generation) << step.what;
    }

    // A file that was cut, for one by a full disk, does not turn the session off.
    write("cut", "");
    fs::copy_file(directory() / "cut", fs::path(first["policy"].get<std::string>()) / "statlabel",
                  fs::copy_options::overwrite_existing);
    EXPECT_EQ(sorvanic({"reload", "--state", state, "statlabel"}).status, 1);
    EXPECT_EQ(shown()["switches"]["system"], 3);
    write("end", "");
    EXPECT_EQ(supervisor.wait().status, 0);
    EXPECT_FALSE(fs::exists(first["policy"].get<std::string>()));
}

} // namespace

} // namespace e2e
