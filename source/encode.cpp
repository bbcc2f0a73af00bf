#include <algorithm>

#include "source/table_text.h"
#include "source/validate.h"

namespace source {

std::vector<new_file> encode(const policy& of, findings& found)
{
    std::vector<new_file> files;
    for (const policy_file& file : policy_files) {
        const policy_text& table = of.of(file.table);
        if (!table.present)
            continue;
        std::string text;
        for (const word& line : table.lines)
            text += line.value + "\n";
        compiled_file compiled = compile_policy_file(file, text);
        for (const source_error& error : compiled.errors) {
            const std::size_t at = std::min(error.line, table.lines.size());
            found.error(at == 0 ? place{of.path} : table.lines[at - 1].at, error.text);
        }
        files.push_back({file.name, std::move(compiled.content)});
    }
    return files;
}

} // namespace source
