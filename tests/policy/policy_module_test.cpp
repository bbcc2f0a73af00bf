#include "policy/policy_module.h"

#include <cstdint>
#include <string>

#include "policy/auditctl.h"
#include "policy/blacklist.h"
#include "policy/dacctl.h"
#include "policy/dirctl.h"
#include "policy/installctl.h"
#include "policy/modlctl.h"
#include "policy/objlabel.h"
#include "policy/pracctl.h"
#include "policy/privctl.h"
#include "policy/ptpy.h"
#include "policy/sprolist.h"
#include "policy/statusctl.h"
#include "policy/sublabel.h"
#include "policy/uactivate.h"
#include "policy/whitelist.h"
#include "policy/workdir.h"
#include "tests/policy/policy_fixture.h"

namespace {

class policy : public policy_fixture {
protected:
    static bool white(std::uint32_t key) { return sorvanic_kernel_whitelist_module.search(&key) == 0; }
    void write_every_file()
    {
        const std::string zeros = ":0:0:0:0,0,0,0,0,0,0,0";
        machine_.policy("blacklist=b whitelist=w supertrustfile=s workdir=/w dirctl=/c ptpylist=protected "
                        "platuser=user dac=/r:who:4 priv=/r:who:4 appevp=/r:who:4 sublabel=/l" +
                        zeros + " objlabel=/l" + zeros +
                        " installlabel=2 statlabel=3 auditlabel=5:2 modllabel=2020");
    }
};

TEST_F(policy, each_operation_reaches_every_table)
{
    write_every_file();
    const std::uint32_t black = support::key_of("b"), super = support::key_of("s");
    const auto active = [&] {
        kernel::u32 state = 0;
        subject_label subject;
        object_label object;
        const bool found[] = {
            sorvanic_kernel_blacklist_module.search(&black) == 0,
            white(support::key_of("w")),
            sorvanic_kernel_sprolist_module.search(&super) == 0,
            sorvanic_kernel_workdir_module.search("/w/x") == 0,
            sorvanic_kernel_dirctl_module.search("/c/x") == 0,
            sorvanic_kernel_ptpy_module.match("/protected") == 0,
            sorvanic_kernel_uactivate_module.search("user", &state) == 0,
            sorvanic_kernel_dacctl_module.match("who", "/r", 4) == 0,
            sorvanic_kernel_privctl_module.match("who", "/r", 4) == 0,
            sorvanic_kernel_pracctl_module.match("/r", "who", 4) == 0,
            sorvanic_kernel_sublabel_module.search("/l", &subject) != nullptr,
            sorvanic_kernel_objlabel_module.search("/l", &object) != nullptr,
        };
        std::string shown;
        for (std::size_t table = 0; table < std::size(found); ++table)
            shown += found[table] ? "bwsdcpurrrll"[table] : '-';
        return shown + std::to_string(sorvanic_kernel_installctl_module.getstatus()) +
               std::to_string(sorvanic_kernel_statusctl_module.getstatus()) +
               std::to_string(sorvanic_kernel_auditctl_module.getstatus(5)) +
               std::to_string(sorvanic_kernel_modlctl_module.getstatus(0));
    };
    EXPECT_EQ(active(), "------------11048");
    EXPECT_EQ(sorvanic_kernel_policy_module.load(), 0);
    EXPECT_EQ(active(), "------------23250"); // status values have one copy only
    EXPECT_EQ(sorvanic_kernel_policy_module.sync(), 0);
    EXPECT_EQ(active(), "bwsdcpurrrll23250");
    sorvanic_kernel_policy_module.load();
    EXPECT_EQ(sorvanic_kernel_policy_module.unload(), 0);
    EXPECT_EQ(active(), "bwsdcpurrrll11048");
    sorvanic_kernel_policy_module.sync();
    EXPECT_EQ(active(), "------------11048");
    EXPECT_EQ(sorvanic_kernel_policy_module.reload(), 0);
    EXPECT_EQ(active(), "bwsdcpurrrll23250");
    EXPECT_EQ(sorvanic_kernel_policy_module.destroy(), 0);
    EXPECT_EQ(active(), "------------23250");
    EXPECT_EQ(sorvanic_kernel_policy_module.init(), 0);
    EXPECT_EQ(active(), "------------11048");
}

TEST_F(policy, a_load_without_unload_adds_and_a_reload_keeps_the_former_copy)
{
    for (const std::uint32_t key : {1u, 2u}) {
        machine_.keys("whitelist", {key});
        sorvanic_kernel_whitelist_module.load();
    }
    sorvanic_kernel_whitelist_module.sync();
    EXPECT_TRUE(white(1) && white(2));
    machine_.keys("whitelist", {3});
    sorvanic_kernel_whitelist_module.reload();
    EXPECT_TRUE(white(3) && !white(1) && !white(2));
    EXPECT_EQ(entries(), 3u);
    machine_.remove("/etc/sorvanic/whitelist");
    sorvanic_kernel_whitelist_module.reload();
    EXPECT_FALSE(white(1) || white(3));
    EXPECT_EQ(entries(), 1u);
}

TEST_F(policy, leaves_nothing_behind_whatever_fails)
{
    write_every_file();
    const auto whole_life = [] {
        sorvanic_kernel_policy_module.init();
        sorvanic_kernel_policy_module.load();
        sorvanic_kernel_policy_module.sync();
        sorvanic_kernel_policy_module.reload();
        sorvanic_kernel_policy_module.destroy();
    };
    for (const fault kind : {fault::allocation, fault::open, fault::read})
        fail_each_call(kind, whole_life, [](std::size_t) { EXPECT_EQ(entries(), 0u); });
}

} // namespace
