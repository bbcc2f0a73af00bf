#include <fmt/core.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "cli/json_output.h"
#include "host/text.h"
#include "source/program_digest.h"

namespace cli {

namespace {

constexpr const char* examples =
    R"(Prints a line for each file: MD5, digest key, key text, file name. A line of a whitelist, blacklist
or supertrustfile may hold the key text.

With --json: an object with "version" and "programs", an array with an object for each readable file: the
texts "file", "md5", "key" and "key_text" (docs/commands.md).

Examples:
  sorvanic digest /bin/sh /bin/ls
  sorvanic digest --json /bin/* | jq -r '.programs[].key_text'

A file that cannot be read is reported on standard error, and the exit status is then 1.)";

int digest_files(const std::vector<std::string>& files, bool as_json)
{
    auto programs = nlohmann::ordered_json::array();
    int status = exit_done;
    for (const std::string& file : files) {
        std::string reason;
        const auto digest = source::digest_program(file, reason);
        if (!digest) {
            fmt::print(stderr, "sorvanic digest: {}: {}\n", host::visible(file), reason);
            status = exit_no;
        } else if (as_json) {
            nlohmann::ordered_json one;
            host::put_text(one, "file", file);
            one["md5"] = digest->md5;
            one["key"] = fmt::format("0x{:08x}", digest->key);
            one["key_text"] = digest->key_text;
            programs.push_back(std::move(one));
        } else {
            fmt::print("{}  0x{:08x}  {}  {}\n", digest->md5, digest->key, digest->key_text,
                       host::visible(file));
        }
    }
    if (as_json)
        print_json({{"programs", std::move(programs)}});
    return status;
}

} // namespace

void add_digest(const command& program, std::vector<std::string> operands, int& status)
{
    const command digest = program.add("digest", "Print the digests by which a policy knows programs");
    digest.usage("sorvanic digest [OPTIONS] [--] FILE...");
    digest.footer(examples);

    auto as_json = std::make_shared<bool>(false);
    digest.flag("--json", *as_json, "Print a JSON object");
    digest.action([files = std::move(operands), as_json, &status] {
        if (files.empty())
            misuse("no FILE");
        status = digest_files(files, *as_json);
    });
}

} // namespace cli
