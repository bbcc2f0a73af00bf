#include "policy/text_source.h"

#include "core/base/klib.h"
#include "policy/encoded_file.h"
#include "policy/file_size.h"

using namespace kernel;

static constexpr std::size_t line_buffer_size = 1024;

static bool has_text(const open_file& opened)
{
    return opened.is_open() && file_size(opened.get()) != 0;
}

text_source::decoded::decoded(const char* encoded, const char* work) : work_(work)
{
    if (work_ != nullptr)
        sorvanic_kernel_base64defile(encoded, work_);
}

text_source::decoded::~decoded()
{
    if (work_ != nullptr)
        sorvanic_kernel_base64decover(work_);
}

text_source::text_source(const char* path)
    : decoded_(nullptr, nullptr), file_(path, open_read_only, 0), has_text_(has_text(file_)),
      line_(line_buffer_size)
{
}

text_source::text_source(const char* encoded, const char* work)
    : decoded_(encoded, work), file_(work, open_read_only, 0), has_text_(has_text(file_)),
      line_(line_buffer_size)
{
}

char* text_source::next_line(std::size_t longest)
{
    if (!has_text_ || !line_)
        return nullptr;

    while (char* line = klib_fgets(line_.get(), piece + 1, file_.get())) {
        std::size_t length = strlen(line);
        line_number_ += line_goes_on_ ? 0 : 1;
        line_goes_on_ = length == 0 || line[length - 1] != '\n';
        if (length > 0 && line[length - 1] == '\n')
            line[--length] = '\0';
        if (length > 0 && length <= longest && line[0] != '#')
            return line;
    }
    return nullptr;
}
