#include <fcntl.h>
#include <linux/aio_abi.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "tests/attacks/attack.h"

// Reads by a descriptor that another program was let open. This program is PLACE/opener, which may read
// closed/secret; it goes on as PLACE/reader, which may not.

using namespace attack;

namespace {

constexpr int handed_over = 9;

/// Opens as opener and executes reader; then gives the descriptor.
int descriptor(const std::string& place, const char* name)
{
    if (fcntl(handed_over, F_GETFD) >= 0)
        return handed_over;
    const int fd = open((place + "/closed/secret").c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || dup2(fd, handed_over) < 0)
        return -1;
    execl((place + "/reader").c_str(), "reader", name, place.c_str(), "1", nullptr);
    return -1;
}

char buffer[64];

bool by_read(int fd)
{
    return read(fd, buffer, sizeof buffer) > 0;
}

bool by_preadv2(int fd)
{
    const iovec into = {buffer, sizeof buffer};
    return preadv2(fd, &into, 1, 0, 0) > 0;
}

bool by_io_submit(int fd)
{
    aio_context_t context = 0;
    if (syscall(SYS_io_setup, 1, &context) != 0)
        return false;
    iocb block = {};
    block.aio_fildes = static_cast<std::uint32_t>(fd);
    block.aio_lio_opcode = IOCB_CMD_PREAD;
    block.aio_buf = reinterpret_cast<std::uint64_t>(buffer);
    block.aio_nbytes = sizeof buffer;
    iocb* blocks[] = {&block};
    io_event event = {};
    return syscall(SYS_io_submit, context, 1, blocks) == 1 &&
           syscall(SYS_io_getevents, context, 1, 1, &event, nullptr) == 1 && event.res > 0;
}

bool by_splice(int fd)
{
    int ends[2] = {};
    return pipe(ends) == 0 && splice(fd, nullptr, ends[1], nullptr, 16, 0) > 0;
}

bool by_sendfile(int fd)
{
    int ends[2] = {};
    return pipe(ends) == 0 && sendfile(ends[1], fd, nullptr, 16) > 0;
}

bool by_copy(int fd)
{
    const int to = memfd_create("copy", MFD_CLOEXEC);
    const int file = open(".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    return copy_file_range(fd, nullptr, file >= 0 ? file : to, nullptr, 16, 0) > 0;
}

bool by_mapping(int fd)
{
    return mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, fd, 0) != MAP_FAILED;
}

template <bool (*act)(int)>
result pass(const std::string& place, const char* name)
{
    const int fd = descriptor(place, name);
    return told(name, fd >= 0 && act(fd));
}

#define PASS(name, act)                                                                                      \
    {                                                                                                        \
        name, [](const std::string& place, int) { return pass<act>(place, name); }                           \
    }

constexpr entry attacks[] = {
    PASS("read", by_read),     PASS("preadv2", by_preadv2),   PASS("io_submit", by_io_submit),
    PASS("splice", by_splice), PASS("sendfile", by_sendfile), PASS("copy_file_range", by_copy),
    PASS("mmap", by_mapping),
};

} // namespace

const std::span<const entry> attack::all = attacks;
