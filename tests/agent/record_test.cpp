#include "agent/record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include <nlohmann/json.hpp>

#include "agent/record_json.h"
#include "agent/record_text.h"
#include "channel/audit_records.h"
#include "channel/wire.h"

namespace {

template <typename Payload>
std::string message(kernel::u32 kind, const Payload& payload, kernel::u16 type = message_audit)
{
    wire_header header = {};
    header.nlmsg_len = sizeof header + sizeof payload;
    header.nlmsg_type = type;
    header.nlmsg_flags = static_cast<kernel::u16>(kind);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
           std::string(reinterpret_cast<const char*>(&payload), sizeof payload);
}

std::string json_of(const std::string& datagram)
{
    const auto decoded = agent::decode(datagram);
    return decoded ? agent::to_json(*decoded).dump() : "nothing";
}

std::string text_of(const std::string& datagram)
{
    const auto decoded = agent::decode(datagram);
    return decoded ? agent::to_text(*decoded) : "nothing";
}

const untp_record untp = {0x3b75655e, "/opt/\x1b[2Jx\n", "sh", 0, path_class_no_user};
const access_record access_to_shadow = {"/etc/shadow", "vi", "bob", 2, path_class_system};

TEST(record, shows_all_fields_of_each_kind)
{
    const struct {
        std::string datagram;
        const char* json;
        const char* text;
    } cases[] = {
        {message(audit_untp, untp),
         R"({"kind":"untp","key":997549406,"key_text":"5E65753B","path":"/opt/\u001b[2Jx\n",)"
         R"("process":"sh","reserved":0,"class":6})",
         R"(untp unknown program /opt/\x1B[2Jx\x0A (key 5E65753B), started by sh [no-user])"},
        {message(audit_faau, access_to_shadow),
         R"({"kind":"faau","path":"/etc/shadow","process":"vi","user":"bob","decision":2,"class":3})",
         "faau access rule not granted: user bob, program vi, /etc/shadow [system]"},
        {message(audit_pcau, access_to_shadow),
         R"({"kind":"pcau","path":"/etc/shadow","process":"vi","user":"bob","decision":2,"class":3})",
         "pcau program rule not granted: user bob, program vi, /etc/shadow [system]"},
        {message(audit_plau, plau_record{"SYSTEM", 0x4400, 1}),
         R"({"kind":"plau","user":"SYSTEM","mask":17408,"result":1})",
         "plau reload 0x4400 asked for by SYSTEM"},
        {message(audit_syst, syst_record{86400, 0}), R"({"kind":"syst","requested":86400,"current":0})",
         "syst clock set to 1970-01-02T00:00:00Z, from 1970-01-01T00:00:00Z"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(json_of(c.datagram), c.json);
        EXPECT_EQ(text_of(c.datagram), c.text);
    }
}

TEST(record, keeps_bytes_that_are_not_text)
{
    untp_record latin = untp;
    std::snprintf(latin.path, sizeof latin.path, "/caf\xe9");
    std::memset(latin.process, 'p', sizeof latin.process); // not terminated
    const auto json = agent::to_json(*agent::decode(message(audit_untp, latin)));
    EXPECT_EQ(json["path"], "/caf\xef\xbf\xbd");
    EXPECT_EQ(json["path_hex"], "2f636166e9");
    EXPECT_EQ(json["process"], std::string(audit_path_size, 'p'));
    EXPECT_FALSE(json.contains("process_hex"));
}

TEST(record, refuses_every_datagram_that_is_no_record)
{
    const std::string whole = message(audit_plau, plau_record{});
    std::string longer = whole; // says that it is longer than it is
    longer[0] = static_cast<char>(whole.size() + 1);
    std::string shorter = whole;
    shorter[0] = 15;
    for (const std::string& datagram :
         {std::string(), std::string(15, '\0'), whole.substr(0, whole.size() - 1), longer, shorter,
          message(7, plau_record{}), message(audit_untp, plau_record{}),
          message(audit_plau, plau_record{}, message_login_done)})
        EXPECT_EQ(json_of(datagram), "nothing");

    std::mt19937 random(11);
    for (int round = 0; round < 2000; ++round) {
        std::string datagram = message(audit_untp, untp).substr(0, random() % 2100);
        for (int i = 0; i < 4 && !datagram.empty(); ++i)
            datagram[random() % std::min<std::size_t>(datagram.size(), 16)] = static_cast<char>(random());
        json_of(datagram); // must not read past it
    }
}

} // namespace
