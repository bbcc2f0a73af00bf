#include "core/hook_entries.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "channel/audit_messages.h"
#include "core/call_gate.h"
#include "enforce/exec_check.h"
#include "enforce/file_check.h"
#include "enforce/install_tracking.h"
#include "enforce/self_protection.h"
#include "platform/kernel/slab.h"
#include "platform/user/faults.h"
#include "platform/user/objects.h"
#include "platform/user/tasks.h"

// The enforcement the adapters call is this file's: it writes down what it was asked and
// answers what the test set.

namespace {

std::vector<std::string> asked;
const kernel::dentry* refused_entry = nullptr; // the file check refuses this one
int other_answer = 0;                          // of the exec check and of self-protection

std::string entry_name(const kernel::dentry* entry, const kernel::dentry* first)
{
    return entry == first ? "first" : "second";
}
const kernel::dentry* first_entry = nullptr;

} // namespace

int sorvanic_kernel_hook_inside_bprm_check_security(kernel::linux_binprm*)
{
    asked.push_back("exec");
    return other_answer;
}

int sorvanic_kernel_hook_dentry_has_permission(kernel::task_struct* task, kernel::dentry* entry,
                                               kernel::u32 mask, file_operation operation)
{
    EXPECT_EQ(task, kernel::current_task());
    EXPECT_EQ(calls_in_flight, 1u);
    asked.push_back(entry_name(entry, first_entry) + " mask " + std::to_string(mask) + " code " +
                    std::to_string(static_cast<int>(operation)));
    return entry == refused_entry ? 5 : 0; // any value but 0 refuses
}

void sorvanic_filter_install_executablefile(kernel::dentry*, kernel::u32 code, kernel::s32 origin)
{
    asked.push_back("install " + std::to_string(code) + " " + std::to_string(origin));
}

int sorvanic_common_task_avoid_kill(kernel::task_struct*, kernel::siginfo*, int signal, kernel::u32)
{
    asked.push_back("kill " + std::to_string(signal));
    return other_answer;
}

int sorvanic_common_send_syst_message(kernel::s32 requested, kernel::s32)
{
    asked.push_back("clock " + std::to_string(requested));
    return 0;
}

namespace {

class hook_entries : public testing::Test {
protected:
    hook_entries()
        : root(platform::make_root({.number = 1, .mode = 040755})),
          first(platform::make_entry(root.get(), "first", &file_facts)),
          second(platform::make_entry(root.get(), "second", &file_facts)), init(platform::find_task(1)),
          event(init.get())
    {
        asked.clear();
        refused_entry = nullptr;
        other_answer = 0;
        first_entry = first.get();
    }
    ~hook_entries() override { EXPECT_EQ(calls_in_flight, 0u); }

    /// What the last call asked, joined.
    static std::string calls()
    {
        std::string all;
        for (const std::string& one : asked)
            all += (all.empty() ? "" : "; ") + one;
        asked.clear();
        return all;
    }

    static constexpr platform::inode_facts file_facts = {.number = 2};
    platform::dentry_handle root;
    platform::dentry_handle first;
    platform::dentry_handle second;
    platform::task_handle init;
    platform::event event;
};

TEST_F(hook_entries, each_name_operation_passes_its_mask_and_code)
{
    kernel::dentry* e = first.get();
    struct {
        int (*call)(kernel::dentry*);
        const char* asks;
    } const cases[] = {
        {[](auto* d) { return sorvanic_kernel_hook_module_inside_inode_create(nullptr, d, 0); },
         "first mask 2 code 0; install 1 0"},
        {[](auto* d) { return sorvanic_kernel_hook_module_inside_inode_symlink(nullptr, d, "x"); },
         "first mask 2 code 1"},
        {[](auto* d) { return sorvanic_kernel_hook_module_inside_inode_unlink(nullptr, d); },
         "first mask 256 code 3"},
        {[](auto* d) { return sorvanic_kernel_hook_module_inside_inode_mkdir(nullptr, d, 0); },
         "first mask 2 code 4"},
        {[](auto* d) { return sorvanic_kernel_hook_module_inside_inode_rmdir(nullptr, d); },
         "first mask 256 code 5"},
    };
    for (const auto& c : cases) {
        refused_entry = nullptr;
        EXPECT_EQ(c.call(e), 0);
        EXPECT_EQ(calls(), c.asks);
        refused_entry = e;
        EXPECT_EQ(c.call(e), -1);
        EXPECT_EQ(calls(), std::string(c.asks).substr(0, std::string(c.asks).find(';')))
            << "what is refused is not handed to install tracking";
    }
}

TEST_F(hook_entries, a_link_needs_one_name_allowed_and_a_rename_both)
{
    const auto link = [this] {
        return sorvanic_kernel_hook_module_inside_inode_link(first.get(), nullptr, second.get());
    };
    EXPECT_EQ(link(), 0);
    EXPECT_EQ(calls(), "second mask 2 code 2");
    refused_entry = second.get();
    EXPECT_EQ(link(), 0) << "the existing file is allowed";
    EXPECT_EQ(calls(), "second mask 2 code 2; first mask 2 code 2");
    refused_entry = first.get();
    EXPECT_EQ(link(), 0);
    EXPECT_EQ(sorvanic_kernel_hook_module_inside_inode_link(first.get(), nullptr, first.get()), -1);
    calls();

    const auto rename = [this] {
        return sorvanic_kernel_hook_module_inside_inode_rename(nullptr, first.get(), nullptr, second.get());
    };
    EXPECT_EQ(rename(), -1);
    EXPECT_EQ(calls(), "second mask 512 code 6; first mask 512 code 6");
    refused_entry = second.get();
    EXPECT_EQ(rename(), -1);
    EXPECT_EQ(calls(), "second mask 512 code 6") << "the source is not asked about";
    refused_entry = nullptr;
    EXPECT_EQ(rename(), 0);
}

TEST_F(hook_entries, reading_or_searching_a_directory_is_free)
{
    kernel::inode* directory = kernel::dentry_inode(root.get());
    kernel::inode* file = kernel::dentry_inode(first.get());
    refused_entry = first.get();
    struct {
        kernel::inode* inode;
        int mask, result;
        const char* asks;
    } const cases[] = {
        {directory, 4, 0, ""},
        {directory, 1, 0, ""},
        {directory, 5, 0, "second mask 5 code 7"}, // "second": not the first entry
        {directory, 2, 0, "second mask 2 code 7"},
        {directory, 0x24, 0, "second mask 36 code 7"},
        {file, 4, -1, "first mask 4 code 7"},
        {file, 1, -1, "first mask 1 code 7"},
        {nullptr, 4, 0, ""},
        {reinterpret_cast<kernel::inode*>(-2L), 4, 0, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(sorvanic_kernel_hook_module_inside_inode_permission(c.inode, c.mask), c.result) << c.mask;
        EXPECT_EQ(calls(), c.asks) << c.mask;
    }
    EXPECT_EQ(platform::live().references, 0u) << "the alias is given back";
}

TEST_F(hook_entries, an_open_file_is_asked_about_by_its_entry)
{
    const platform::mount_handle mount = platform::add_mount(root.get(), "/");
    const platform::file_handle opened = platform::make_file(mount.get(), first.get());
    const platform::file_handle nowhere = platform::make_file(mount.get(), nullptr);
    refused_entry = first.get();
    EXPECT_EQ(sorvanic_kernel_hook_module_inside_file_permission(opened.get(), 6), -1);
    EXPECT_EQ(calls(), "first mask 6 code 9");
    EXPECT_EQ(sorvanic_kernel_hook_module_inside_file_permission(nowhere.get(), 6), 0);
    EXPECT_EQ(calls(), "");
    platform::clear_mounts();
}

TEST_F(hook_entries, only_a_regular_file_made_executable_is_tracked)
{
    struct {
        unsigned mode;
        const char* asks;
    } const cases[] = {
        {0100755, "install 1 -1"},
        {0100644, ""},
        {0100001, "install 1 -1"},
        {040755, ""},
        {0755, ""},
        {0, ""},
    };
    for (const auto& c : cases) {
        const platform::attribute_request attributes(c.mode);
        EXPECT_EQ(sorvanic_kernel_hook_module_inside_inode_setattr(first.get(), attributes.get()), 0);
        EXPECT_EQ(calls(), c.asks) << std::oct << c.mode;
    }
}

TEST_F(hook_entries, a_freed_inode_loses_its_mark_once)
{
    kernel::inode* inode = kernel::dentry_inode(first.get());
    kernel::set_inode_security(inode, kernel::kmalloc(8, kernel::GFP_KERNEL));
    sorvanic_kernel_hook_module_inside_inode_free_security(inode);
    EXPECT_EQ(platform::live().allocations, 0u);
    EXPECT_EQ(kernel::inode_security(inode), nullptr);
    sorvanic_kernel_hook_module_inside_inode_free_security(inode);
}

TEST_F(hook_entries, results_of_the_exec_and_kill_checks_pass_unchanged)
{
    for (const int answer : {0, -1}) {
        other_answer = answer;
        EXPECT_EQ(sorvanic_kernel_hook_module_inside_bprm_check_security(nullptr), answer);
        EXPECT_EQ(sorvanic_kernel_hook_module_inside_task_kill(init.get(), nullptr, 15, 0), answer);
    }
    EXPECT_EQ(calls(), "exec; kill 15; exec; kill 15");
}

TEST_F(hook_entries, a_clock_change_reports_the_seconds_and_a_time_zone_nothing)
{
    const platform::clock_request time(0x1'0000'0007);
    EXPECT_EQ(sorvanic_kernel_hook_module_inside_settime(time.get(), nullptr), 0);
    EXPECT_EQ(calls(), "clock 7");
    EXPECT_EQ(sorvanic_kernel_hook_module_inside_settime(nullptr, nullptr), 0);
    EXPECT_EQ(calls(), "");
}

} // namespace
