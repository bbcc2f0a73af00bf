#include "tests/support/machine.h"

#include <fcntl.h>

#include <array>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "core/entry.h"
#include "digest/digest_key.h"
#include "digest/file_digest.h"
#include "platform/user/driver/files.h"
#include "platform/user/driver/machine.h"
#include "policy/base64.h"
#include "policy/uactivate.h"
#include "process/process_map.h"

namespace support {

machine::machine()
{
    std::filesystem::create_directories(root_ / "etc/sorvanic");
    platform::mount_directory("/", root_.path());
    platform::mount_memory("/etc/sorvanic/kernel");
    platform::serve_text("/proc/kallsyms", platform::symbol_text());
    platform::set_kernel_log([this](std::string_view text) { log_ += text; });
}

machine::machine(const std::string& files) : machine()
{
    policy(files);
    EXPECT_EQ(load(), 0);
}

machine::~machine()
{
    for (std::size_t kind = 0; kind < platform::fault_kinds; ++kind)
        platform::fail_call(static_cast<platform::fault>(kind), 0);
    platform::empty_inode_cache(); // while the engine is there to free its marks
    if (loaded_)
        unload();
    platform::reset_tasks();
    const platform::live_counts left = platform::live();
    EXPECT_EQ(left.allocations, 0u);
    EXPECT_EQ(left.files, 0u);
    EXPECT_EQ(left.references, 0u);
    EXPECT_EQ(left.locks, 0u);
    platform::assert_thread_clean();
    platform::set_kernel_log({});
    platform::unmount_all();
}

std::filesystem::path machine::real(std::string_view path) const
{
    return root_ / std::filesystem::path(path).relative_path().string();
}

void machine::write(std::string_view path, std::string_view content)
{
    const std::filesystem::path file = real(path);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

std::string machine::read(std::string_view path) const
{
    std::ifstream file(real(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void machine::remove(std::string_view path)
{
    std::filesystem::remove(real(path));
}

void machine::plain(std::string_view name, std::string_view text)
{
    write("/etc/sorvanic/" + std::string(name), text);
}

void machine::encoded(std::string_view name, std::string_view text)
{
    plain(name, encode(text));
}

void machine::keys(std::string_view name, const std::vector<std::uint32_t>& keys)
{
    std::string records;
    for (const std::uint32_t key : keys)
        for (unsigned shift = 0; shift < 32; shift += 8)
            records += static_cast<char>((key >> shift) & 0xff);
    plain(name, records);
}

void machine::policy(const std::string& files)
{
    for (const std::string& word : words(files)) {
        const std::string name = word.substr(0, word.find('=')), text = word.substr(word.find('=') + 1);
        if (name == "whitelist" || name == "blacklist" || name == "supertrustfile") {
            std::vector<std::uint32_t> listed;
            for (const std::string& content : words(text, ','))
                listed.push_back(key_of(content));
            keys(name, listed);
        } else {
            plain(name, name == "workdir" ? text : encode(text));
        }
    }
}

int machine::load()
{
    const int result = sorvanic_init();
    loaded_ = result == 0;
    log_.clear();
    return result;
}

void machine::unload()
{
    sorvanic_exit();
    loaded_ = false;
}

platform::file_handle machine::open(std::string_view path) const
{
    host::unique_fd fd(::open(real(path).c_str(), O_PATH | O_CLOEXEC));
    if (!fd)
        return nullptr;
    return platform::make_pinned_file(std::move(fd), std::string(path));
}

void machine::process(int pid, int parent, std::string_view program)
{
    const platform::file_handle file = program.empty() ? nullptr : open(program);
    const std::string_view comm = program.substr(program.find_last_of('/') + 1);
    if (!platform::add_task(pid, parent, comm, file.get()))
        throw std::runtime_error("process id taken");
}

void machine::fork(int parent, int child, unsigned long flags)
{
    const platform::task_handle task = platform::find_task(parent);
    ASSERT_EQ(platform::run_do_fork(task.get(), flags, child), child);
}

void machine::exit(int pid)
{
    const platform::task_handle task = platform::find_task(pid);
    platform::run_do_exit(task.get(), 0);
}

int machine::exec(int pid, std::string_view path, std::string_view filename)
{
    const platform::file_handle program = open(path);
    const platform::exec_parameters bprm(program.get(), std::string(filename.empty() ? path : filename));
    const acting as(pid);
    return platform::call_bprm_check_security(bprm.get());
}

std::string machine::log()
{
    return std::exchange(log_, {});
}

acting::acting(int pid) : task_(platform::find_task(pid)), event_(task_.get())
{
}

std::vector<std::string> words(const std::string& text, char between)
{
    std::istringstream stream(text);
    std::vector<std::string> all;
    for (std::string word; std::getline(stream, word, between);)
        all.push_back(word);
    return all;
}

std::string encode(std::string_view text)
{
    const int size = static_cast<int>(text.size());
    std::string out(static_cast<std::size_t>(sorvanic_kernel_base64encode_len(size)), '\0');
    const int written = sorvanic_kernel_base64encode(out.data(), text.data(), size);
    out.resize(static_cast<std::size_t>(written - 1)); // the count includes the terminator
    return out;
}

std::string user_of(long pid)
{
    char user[sorvanic_user_name_size] = {};
    if (sorvanic_kernel_hashmap_module.search(pid, user) != 0)
        return user[0] == '\0' ? "-" : "touched";
    return user;
}

int state_of(const std::string& user)
{
    constexpr kernel::u32 untouched = 9;
    kernel::u32 state = untouched;
    const bool listed = sorvanic_kernel_uactivate_module.search(user.c_str(), &state) == 0;
    EXPECT_EQ(listed, state != untouched) << "only for who is listed a state is stored";
    return listed ? static_cast<int>(state) : -1;
}

std::uint32_t key_of(std::string_view content)
{
    md5_context context = {};
    std::array<kernel::u8, 16> digest = {};
    sorvanic_kernel_md5sum_module.init(&context);
    sorvanic_kernel_md5sum_module.update(&context, reinterpret_cast<const kernel::u8*>(content.data()),
                                         static_cast<kernel::u32>(content.size()));
    sorvanic_kernel_md5sum_module.final(&context, digest.data());
    kernel::u32 key = 0;
    sorvanic_common_make_16to4(digest.data(), &key);
    return key;
}

} // namespace support
