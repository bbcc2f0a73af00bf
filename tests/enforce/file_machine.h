#ifndef SORVANIC_TESTS_ENFORCE_FILE_MACHINE_H
#define SORVANIC_TESTS_ENFORCE_FILE_MACHINE_H

#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "core/base/inode_numbers.h"
#include "platform/user/driver/machine.h"
#include "process/process_map.h"
#include "tests/channel/messages.h"
#include "tests/support/machine.h"

/// A machine with one process (20) of a chosen name and user, on whose behalf file events
/// happen. File control is on, everything is recorded, and "/srv" is controlled.
struct file_machine : support::machine {
    file_machine()
    {
        write("/etc/sorvanic/whitelist", "");
        write("/usr/sorvanic/sorvagent", "");
        policy("statlabel=3 modllabel=0020 auditlabel=2:2\n3:2 dirctl=/srv");
    }
    ~file_machine()
    {
        agent_.reset();
        entries_.clear();
        mount_.reset();
        platform::clear_mounts();
    }

    /// Loads the engine and connects an agent. A user of "" is none that is known.
    void start(const std::string& comm, const std::string& user)
    {
        ASSERT_EQ(load(), 0);
        write("/bin/" + comm, "");
        process(20, 1, "/bin/" + comm);
        if (!user.empty())
            sorvanic_kernel_hashmap_module.insert(20, user.c_str());
        numbers_ = {{"/etc/sorvanic", sorvanic_kernel_common_get_config_inode_number()},
                    {"/usr/sorvanic", sorvanic_kernel_common_get_readonly_exec_inode_number()}};
        entries_.emplace("", platform::make_root({.number = 2, .mode = 040755}));
        mount_ = platform::add_mount(entries_.at("").get(), "/");
        agent_.emplace(90);
        log();
    }

    /// What the hook says of an event of process 20: a word and one or two paths. "file:MASK" and
    /// "inode:MASK" are the permission hooks, all others the operations on names, the new one last.
    /// The directory of a path exists, and its last component if it has no "+" at its end; a path
    /// that ends in "/" is a directory.
    int act(const std::string& event)
    {
        std::istringstream words(event);
        std::string what, first, second;
        words >> what >> first >> second;
        const auto mask = static_cast<int>(std::strtoul(what.substr(what.find(':') + 1).c_str(), nullptr, 0));
        kernel::dentry* entry = entry_of(first);
        const kernel::security_operations& hooks = platform::security();
        const support::acting as(20);
        const std::map<std::string, std::function<int()>> operations = {
            {"create", [&] { return hooks.inode_create(nullptr, entry, 0); }},
            {"symlink", [&] { return hooks.inode_symlink(nullptr, entry, "target"); }},
            {"link", [&] { return hooks.inode_link(entry, nullptr, entry_of(second)); }},
            {"unlink", [&] { return hooks.inode_unlink(nullptr, entry); }},
            {"mkdir", [&] { return hooks.inode_mkdir(nullptr, entry, 0); }},
            {"rmdir", [&] { return hooks.inode_rmdir(nullptr, entry); }},
            {"rename", [&] { return hooks.inode_rename(nullptr, entry, nullptr, entry_of(second)); }},
        };
        if (const auto named = operations.find(what); named != operations.end())
            return named->second();
        if (what.starts_with("inode:"))
            return hooks.inode_permission(kernel::dentry_inode(entry), mask);
        const platform::file_handle file = platform::make_file(mount_.get(), entry);
        return hooks.file_permission(file.get(), mask);
    }

    /// The records since the last call, as "faau VERDICT PATH USER COMM, pcau …".
    std::string reported()
    {
        std::string all;
        for (std::string message = agent_->next(); !message.empty(); message = agent_->next()) {
            EXPECT_EQ(message.size(), 16u + 2088);
            all += std::string(all.empty() ? "" : ", ") + (message[6] == 3 ? "faau " : "pcau ") +
                   std::to_string(messages::number_at(message, 16 + 2080)) + " " +
                   messages::text_at(message, 16) + " " + messages::text_at(message, 16 + 2048) + " " +
                   messages::text_at(message, 16 + 1024);
        }
        return all;
    }

    /// The entry of a path, made with those above it when it is asked for first.
    kernel::dentry* entry_of(std::string path)
    {
        const bool absent = path.ends_with('+');
        const bool directory = path.ends_with('/');
        if (absent || directory)
            path.pop_back();
        return make(path, absent, directory);
    }

private:
    kernel::dentry* make(const std::string& path, bool absent, bool directory)
    {
        if (const auto known = entries_.find(path); known != entries_.end())
            return known->second.get();
        const std::size_t slash = path.rfind('/');
        const auto special = numbers_.find(path);
        const platform::inode_facts facts = {.number = special != numbers_.end() ? special->second
                                                                                 : 100 + entries_.size(),
                                             .mode = directory ? 040755u : 0100644u};
        kernel::dentry* parent = make(path.substr(0, slash), false, true);
        return entries_
            .emplace(path, platform::make_entry(parent, path.substr(slash + 1), absent ? nullptr : &facts))
            .first->second.get();
    }

    std::optional<messages::agent> agent_;
    std::map<std::string, unsigned long> numbers_;
    std::map<std::string, platform::dentry_handle> entries_;
    platform::mount_handle mount_;
};

#endif
